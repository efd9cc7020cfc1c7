// Formats and typed arguments, as a caller sees them: what stands in the log.
#include <climits>
#include <cstdint>

#include "QlogFixture.h"

namespace {

struct FormatCase {
    const char* name;
    void (*log)(QlgHandle);
    const char* expected;
};

class FormatTest : public QlogFixture, public testing::WithParamInterface<FormatCase> {};

TEST_P(FormatTest, FillsOperands) {
    open();
    GetParam().log(logger_);
    EXPECT_EQ(lastRecord("msg.log"), std::string("INFO  7 ") + GetParam().expected);
}

#define LOGS(...) [](QlgHandle logger) { QlgLogInfo(logger, nullptr, 1, 7, __VA_ARGS__); }

constexpr std::int64_t kBig = 5000000000;

INSTANTIATE_TEST_SUITE_P(
    Formats, FormatTest,
    testing::Values(
        FormatCase{"inOrder", LOGS("%s has %d of %ld", 507, "a", 502, -3, 503, kBig, 0),
                   "a has -3 of 5000000000"},
        FormatCase{"byPositionFromZero", LOGS("%1$d before %0$s", 507, "a", 502, 3, 0),
                   "3 before a"},
        FormatCase{"positionTwice", LOGS("%0$d and %0$x", 502, 255, 0), "255 and ff"},
        FormatCase{"zeroFlagIsNoPosition", LOGS("magic %0X", 502, 0x1F, 0), "magic 1F"},
        FormatCase{"numberUnderS", LOGS("%s", 502, 42, 0), "42"},
        FormatCase{"textUnderD", LOGS("%d|%5d", 507, "word", 507, "ab", 0), "word|   ab"},
        FormatCase{"wideUnderPlainD", LOGS("%d", 503, kBig, 0), "5000000000"},
        FormatCase{"intUnderLd", LOGS("%ld", 502, INT_MIN, 0), "-2147483648"},
        FormatCase{"negativeInHexIs32Bits", LOGS("%X %u", 502, -1, 502, -1, 0),
                   "FFFFFFFF 4294967295"},
        FormatCase{"negativeInHexIs64Bits", LOGS("%lx", 503, std::int64_t{-1}, 0),
                   "ffffffffffffffff"},
        FormatCase{"pointer", LOGS("%p", 503, std::int64_t{0xABC}, 0), "0xabc"},
        FormatCase{
            "widthsAndFlags",
            LOGS("[%5d|%-5d|%05d|%+d|%.3d|%#x]", 502, 1, 502, 2, 502, 3, 502, 4, 502, 5, 502, 6, 0),
            "[    1|2    |00003|+4|005|0x6]"},
        FormatCase{"textWidths", LOGS("[%4s|%-4s|%.2s]", 507, "ab", 507, "cd", 507, "efg", 0),
                   "[  ab|cd  |ef]"},
        FormatCase{"character", LOGS("%c%c", 502, 'x', 502, 7, 0), "x7"},
        FormatCase{"fractionOfAnInteger", LOGS("%.2f", 502, 5, 0), "5"},
        FormatCase{"percent", LOGS("100%% of %d", 502, 1, 0), "100% of 1"},
        FormatCase{"missingArgumentsStayVisible", LOGS("%s %d %3$s", 507, "a", 0), "a %d %3$s"},
        FormatCase{"tooManyArguments", LOGS("%d", 502, 1, 502, 2, 0), "1"},
        FormatCase{"unknownTypeEndsTheList", LOGS("%d %d", 502, 1, 999, 2, 502, 3, 0), "1 %d"},
        FormatCase{"nullText", LOGS("%s", 507, static_cast<const char*>(nullptr), 0), "(null)"},
        FormatCase{"noWriteThroughN", LOGS("%n %s", 507, "a", 0), "%n a"},
        FormatCase{"noWidthFromArguments", LOGS("%*d %d", 502, 9, 502, 1, 0), "%*d 9"},
        FormatCase{"absurdWidth", LOGS("%999999999d", 502, 1, 0), "%999999999d"},
        FormatCase{"absurdPosition", LOGS("%99999999999999999999$d %d", 502, 1, 0),
                   "%99999999999999999999$d 1"},
        FormatCase{"lonePercentAtTheEnd", LOGS("5%", 0), "5%"},
        FormatCase{"unfinishedOperand", LOGS("%-05.2l", 502, 1, 0), "%-05.2l"},
        FormatCase{"nullFormat", LOGS(nullptr, 502, 1, 0), ""},
        FormatCase{"controlCharacters", LOGS("a\r\x1B[1mb\tc%s", 507, "\x7F", 0), "a?[1mb\tc?"}),
    [](const auto& tested) { return std::string(tested.param.name); });

using FormatLimits = QlogFixture;

TEST_F(FormatLimits, LineEndsInATextCannotForgeARecord) {
    open();
    QlgLogInfo(logger_, nullptr, 1, 7, "url %s", 507, "/a\n2025-01-01 [1:1] ERROR 1 gone\n", 0);
    EXPECT_EQ(records("msg.log"),
              (std::vector<std::string>{"INFO  7 url /a", "\t2025-01-01 [1:1] ERROR 1 gone"}));
}

TEST_F(FormatLimits, LongTextIsCutAtACharacter) {
    open();
    std::string text(16 * 1024 - 4, 'x');
    for (int i = 0; i < 10; ++i) text += "\xC3\xA4";  // two bytes each: the limit falls inside one
    QlgLogInfo(logger_, nullptr, 1, 7, "%s|", 507, text.c_str(), 0);
    EXPECT_EQ(lastRecord("msg.log"), "INFO  7 " + std::string(16 * 1024 - 4, 'x') + "...|");
}

TEST_F(FormatLimits, ManyLongTextsMakeABoundedRecord) {
    open();
    const std::string text(16 * 1024, 'x');
    const char* t = text.c_str();
    QlgLogInfo(logger_, nullptr, 1, 7, "%s%s%s%s%s%s", 507, t, 507, t, 507, t, 507, t, 507, t, 507,
               t, 0);
    EXPECT_EQ(lastRecord("msg.log").size(), std::string("INFO  7 ").size() + 64 * 1024);
}

TEST_F(FormatLimits, ArgumentsBeyondTheLimitAreNotRead) {
    open();
#define TEN 502, 1, 502, 2, 502, 3, 502, 4, 502, 5, 502, 6, 502, 7, 502, 8, 502, 9, 502, 10
    QlgLogInfo(logger_, nullptr, 1, 7, "%9$d %31$d %32$d", TEN, TEN, TEN, TEN, 0);
#undef TEN
    EXPECT_EQ(lastRecord("msg.log"), "INFO  7 10 2 %32$d");
}

}  // namespace
