// Reads /proc/meminfo and the control group's limits.
#include "jvmpi/MemoryBudget.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <sstream>

#include "os/RegularFile.h"

namespace adapter {
namespace {

constexpr std::uint64_t kUnknown = std::numeric_limits<std::uint64_t>::max();

std::string textOf(const std::string& path) {
    constexpr std::size_t kLargest = std::size_t{1} << 20;  // bytes
    return os::readRegular(path, kLargest).value_or("");
}

// The number in a file that holds one; nothing for "max" and for missing files.
std::optional<std::uint64_t> numberIn(const std::string& path) {
    std::istringstream file(textOf(path));
    std::uint64_t value = 0;
    if (file >> value) return value;
    return std::nullopt;
}

// The number behind the word that begins a line.
std::optional<std::uint64_t> numberBehind(const std::string& word, const std::string& path) {
    std::istringstream file(textOf(path));
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string first;
        std::uint64_t value = 0;
        if (words >> first >> value && first == word) return value;
    }
    return std::nullopt;
}

std::uint64_t systemAvailable(const std::string& root) {
    const auto kilobytes = numberBehind("MemAvailable:", root + "/proc/meminfo");
    return kilobytes ? *kilobytes * 1024 : kUnknown;
}

// How a version of control groups calls its files, and in "memory.stat" the cache of files that
// nobody has read lately: it counts as used, but goes as soon as the group needs memory.
struct GroupNames {
    const char* limit;
    const char* used;
    const char* oldCache;
};
constexpr GroupNames kVersion1{"memory.limit_in_bytes", "memory.usage_in_bytes",
                               "total_inactive_file"};
constexpr GroupNames kVersion2{"memory.max", "memory.current", "inactive_file"};

std::uint64_t restOf(const std::string& folder, const GroupNames& names) {
    const auto limit = numberIn(folder + names.limit);
    auto used = numberIn(folder + names.used);
    if (!limit || !used) return kUnknown;
    *used -= std::min(*used, numberBehind(names.oldCache, folder + "memory.stat").value_or(0));
    return *limit > *used ? *limit - *used : 0;
}

// A group is also bound by the groups above it, up to the root of what is mounted.
std::uint64_t restInGroups(const std::string& mount, std::string group, const GroupNames& names) {
    std::uint64_t rest = kUnknown;
    for (;;) {
        rest = std::min(rest, restOf(mount + group + "/", names));
        if (group.empty()) return rest;
        group.erase(std::min(group.rfind('/'), group.size()));
    }
}

// Lines of /proc/self/cgroup: "0::/group" for version 2, "4:memory:/group" for version 1. In a
// container the group's own folder may be what is mounted, which the walk upwards ends at.
std::uint64_t controlGroupRest(const std::string& root) {
    std::istringstream file(textOf(root + "/proc/self/cgroup"));
    std::uint64_t rest = kUnknown;
    for (std::string line; std::getline(file, line);) {
        const auto first = line.find(':');
        const auto second = line.find(':', first + 1);
        if (first == std::string::npos || second == std::string::npos) continue;
        const std::string controllers = "," + line.substr(first + 1, second - first - 1) + ",";
        std::string group = line.substr(second + 1);
        if (group == "/") group.clear();
        if (controllers == ",,") {
            rest = std::min(rest, restInGroups(root + "/sys/fs/cgroup", group, kVersion2));
        } else if (controllers.find(",memory,") != std::string::npos) {
            rest = std::min(rest, restInGroups(root + "/sys/fs/cgroup/memory", group, kVersion1));
        }
    }
    return rest;
}

}  // namespace

std::uint64_t availableMemory(const std::string& root) {
    return std::min(systemAvailable(root), controlGroupRest(root));
}

}  // namespace adapter
