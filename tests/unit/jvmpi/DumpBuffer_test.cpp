// The heap dump's memory: zero-filled, contents kept while it grows, refused in good order.
#include "jvmpi/DumpBuffer.h"

#include <gtest/gtest.h>

namespace adapter {
namespace {

TEST(DumpBuffer, KeepsContentsAndGivesZeroes) {
    DumpBuffer buffer;
    constexpr std::uint64_t kStep = 100'003;  // odd, so that values straddle pages
    std::uint64_t written = 0;
    for (; buffer.size() < (40u << 20); ++written) {  // several moves
        const std::uint64_t at = buffer.size();
        ASSERT_TRUE(buffer.extend(kStep));
        for (std::uint64_t i = at; i < buffer.size(); i += 997) ASSERT_EQ(*buffer.at(i), 0);
        buffer.put(at, written);
        buffer.put(at + kStep - sizeof written, written);
    }
    EXPECT_EQ(buffer.size(), written * kStep);
    for (std::uint64_t i = 0; i < written; ++i) {
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        std::memcpy(&first, buffer.at(i * kStep), sizeof first);
        std::memcpy(&last, buffer.at((i + 1) * kStep - sizeof last), sizeof last);
        ASSERT_EQ(first, i);
        ASSERT_EQ(last, i);
    }
}

TEST(DumpBuffer, RefusesWhatCannotBeHad) {
    DumpBuffer buffer;
    ASSERT_TRUE(buffer.extend(10));
    buffer.put(2, std::uint32_t{0xCAFE});
    for (const std::uint64_t much : {std::uint64_t{1} << 46, UINT64_MAX, UINT64_MAX - 9}) {
        EXPECT_FALSE(buffer.extend(much));
    }
    EXPECT_EQ(buffer.size(), 10u);
    ASSERT_TRUE(buffer.extend(10));
    std::uint32_t kept = 0;
    std::memcpy(&kept, buffer.at(2), sizeof kept);
    EXPECT_EQ(kept, 0xCAFEu);
}

}  // namespace
}  // namespace adapter
