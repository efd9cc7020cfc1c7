#include "foundation/SafeFormat.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct FormatCase {
    const char* name;
    const char* format;
    const char* result;
};

class SafeFormatTest : public ::testing::TestWithParam<FormatCase> {};

// Always filled with: the integer -42, the text "abc", the real 2.5.
TEST_P(SafeFormatTest, FillsOrLeavesAsItStands) {
    EXPECT_EQ(formatSafely(GetParam().format, {-42, "abc", 2.5}), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, SafeFormatTest,
    testing::Values(
        FormatCase{"plain", "no conversion", "no conversion"},
        FormatCase{"inOrder", "%d %s %.1f", "-42 abc 2.5"},
        FormatCase{"lengthsAreOurs", "%lld|%hhd", "-42|abc"},
        FormatCase{"widthsAndFlags", "[%5d][%-5s][%08.2f]", "[  -42][abc  ][00002.50]"},
        FormatCase{"precisionCutsText", "%d%.2s", "-42ab"},
        FormatCase{"precisionOfANumber", "%.4d %.1d", "-0042 abc"},
        FormatCase{"percent", "100%% %d%%", "100% -42%"}, FormatCase{"textForANumber", "%s", "-42"},
        FormatCase{"numberForAText", "%d %d", "-42 abc"},
        FormatCase{"realForANumber", "%d %s %d", "-42 abc 2.5"},
        FormatCase{"hex", "%x", "ffffffffffffffd6"},
        FormatCase{"tooManyConversions", "%d%s%f%s%s", "-42abc2.500000%s%s"},
        FormatCase{"writingToMemory", "%n%d", "%n-42"}, FormatCase{"starWidth", "%*d", "%*d"},
        FormatCase{"position", "%1$s", "%1$s"}, FormatCase{"loneAtTheEnd", "50%", "50%"},
        FormatCase{"unfinishedAtTheEnd", "%-5.3l", "%-5.3l"}, FormatCase{"empty", "", ""}),
    [](const auto& c) { return std::string(c.param.name); });

TEST(SafeFormat, HugeWidthsAreCut) {
    EXPECT_EQ(formatSafely("%999999999999d", {1}).size(), 999U);
    EXPECT_EQ(formatSafely("%.99999999s", {"text"}), "text");
    EXPECT_EQ(formatSafely("%.99999999f", {1.0}).size(), 2U + 999U);
}

TEST(SafeFormat, TakesEveryKindOfArgument) {
    const char* const none = nullptr;
    EXPECT_EQ(formatSafely("%s %u %c %d", {none, 18446744073709551615ULL, 'x', true}),
              "(null) 18446744073709551615 x 1");
    int here = 0;
    EXPECT_EQ(formatSafely("%s", {static_cast<const void*>(&here)}).substr(0, 2), "0x");
    EXPECT_EQ(formatSafely("%s", {}), "%s");
}

}  // namespace
