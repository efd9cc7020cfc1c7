// What counts as available memory, with files laid out as a kernel would.
#include "jvmpi/MemoryBudget.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <limits>

namespace adapter {
namespace {

namespace fs = std::filesystem;

class MemoryBudgetTest : public testing::Test {
protected:
    void SetUp() override {
        std::string name = testing::TempDir() + "budgetXXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        root_ = name;
    }
    void TearDown() override { fs::remove_all(root_); }

    void write(const std::string& path, const std::string& text) {
        fs::create_directories((root_ + path).substr(0, (root_ + path).rfind('/')));
        std::ofstream(root_ + path) << text;
    }
    void systemHas(const char* kilobytes) {
        std::string text = "MemTotal: 99999999 kB\nMemAvailable:   ";
        text.append(kilobytes).append(" kB\nBuffers: 1 kB\n");
        write("/proc/meminfo", text);
    }

    std::string root_;
};

TEST_F(MemoryBudgetTest, UnknownIsWithoutLimit) {
    EXPECT_EQ(availableMemory(root_), std::numeric_limits<std::uint64_t>::max());
}

TEST_F(MemoryBudgetTest, SystemAlone) {
    systemHas("1000");
    EXPECT_EQ(availableMemory(root_), 1000u * 1024);
}

TEST_F(MemoryBudgetTest, GroupOfVersionTwo) {
    systemHas("1000");
    write("/proc/self/cgroup", "0::/a/b\n");
    write("/sys/fs/cgroup/a/b/memory.max", "max\n");
    write("/sys/fs/cgroup/a/b/memory.current", "5\n");
    EXPECT_EQ(availableMemory(root_), 1000u * 1024);
    write("/sys/fs/cgroup/a/memory.max", "5000\n");  // the one above binds as well
    write("/sys/fs/cgroup/a/memory.current", "2000\n");
    EXPECT_EQ(availableMemory(root_), 3000u);
    write("/sys/fs/cgroup/a/memory.stat", "anon 900\nactive_file 100\ninactive_file 1000\n");
    EXPECT_EQ(availableMemory(root_), 4000u);
    write("/sys/fs/cgroup/a/memory.stat", "inactive_file 2001\n");  // not read at the same moment
    EXPECT_EQ(availableMemory(root_), 5000u);
    write("/sys/fs/cgroup/a/b/memory.max", "4\n");  // overdrawn already
    EXPECT_EQ(availableMemory(root_), 0u);
}

TEST_F(MemoryBudgetTest, GroupAtTheMount) {
    systemHas("1000");
    write("/proc/self/cgroup", "0::/\n");
    write("/sys/fs/cgroup/memory.max", "700\n");
    write("/sys/fs/cgroup/memory.current", "100\n");
    EXPECT_EQ(availableMemory(root_), 600u);
}

TEST_F(MemoryBudgetTest, GroupOfVersionOne) {
    systemHas("1000");
    write("/proc/self/cgroup", "12:cpu,cpuacct:/x\n4:memory:/m\nnonsense\n");
    write("/sys/fs/cgroup/memory/m/memory.limit_in_bytes", "900\n");
    write("/sys/fs/cgroup/memory/m/memory.usage_in_bytes", "200\n");
    EXPECT_EQ(availableMemory(root_), 700u);
    write("/sys/fs/cgroup/memory/m/memory.stat", "inactive_file 7\ntotal_inactive_file 50\n");
    EXPECT_EQ(availableMemory(root_), 750u);
}

TEST_F(MemoryBudgetTest, OfThisMachineIsPlausible) {
    EXPECT_GT(availableMemory(), 1u << 20);
}

}  // namespace
}  // namespace adapter
