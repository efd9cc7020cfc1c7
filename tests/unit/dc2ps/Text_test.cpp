#include "dc2ps/Text.h"

#include <gtest/gtest.h>

#include <limits>

using namespace dc2ps;
using std::literals::operator""sv;

namespace {

struct TextCase {
    const char* name;
    std::string_view wire;
    const char* terminal;
    const char* json;
};

class WireText : public testing::TestWithParam<TextCase> {};

TEST_P(WireText, IsShownSafely) {
    std::string terminal, json;
    appendText(terminal, GetParam().wire, Escape::terminal);
    appendText(json, GetParam().wire, Escape::json);
    EXPECT_EQ(terminal, GetParam().terminal);
    EXPECT_EQ(json, GetParam().json);
}

#define BAD "\xEF\xBF\xBD"  // the replacement character

INSTANTIATE_TEST_SUITE_P(
    Texts, WireText,
    testing::Values(
        TextCase{"plain", "GET /a?b=1"sv, "GET /a?b=1", "GET /a?b=1"},
        TextCase{"quotesAndBackslash", "a\"b\\c"sv, "a\"b\\\\c", "a\\\"b\\\\c"},
        TextCase{"lineEnds", "a\r\n\tb"sv, "a\\r\\n\\tb", "a\\r\\n\\tb"},
        TextCase{"terminalEscape", "\x1b[2Jx\x07\x7f"sv, "\\x1b[2Jx\\x07\\x7f",
                 "\\u001b[2Jx\\u0007\\u007f"},
        TextCase{"controlsBeyondAscii", "\xC2\x9B!"sv, "\\x9b!", "\\u009b!"},
        TextCase{"zeroInTwoBytes", "a\xC0\x80z"sv, "a\\x00z", "a\\u0000z"},
        TextCase{"twoAndThreeBytes", "\xC3\xB6\xE2\x82\xAC"sv, "\xC3\xB6\xE2\x82\xAC",
                 "\xC3\xB6\xE2\x82\xAC"},
        TextCase{"surrogatePair", "\xED\xA0\xBD\xED\xB8\x80"sv, "\xF0\x9F\x98\x80",
                 "\xF0\x9F\x98\x80"},
        TextCase{"fourBytes", "\xF0\x9F\x98\x80"sv, "\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
        TextCase{"firstHalfOnly", "\xED\xA0\xBDx"sv, BAD "x", BAD "x"},
        TextCase{"secondHalfOnly", "\xED\xB8\x80x"sv, BAD "x", BAD "x"},
        TextCase{"cutInACharacter", "a\xE2\x82"sv, "a" BAD BAD, "a" BAD BAD},
        TextCase{"overlong", "\xC1\xA1\xE0\x80\xAF"sv, BAD BAD BAD BAD, BAD BAD BAD BAD},
        TextCase{"beyondUnicode", "\xF4\x90\x80\x80"sv, BAD BAD BAD BAD, BAD BAD BAD BAD},
        TextCase{"rightToLeftOverride", "a\xE2\x80\xAEz"sv, "a\\u{202e}z", "a\\u202ez"},
        TextCase{"invisibleTag", "\xED\xAD\x80\xED\xB1\x81"sv, "\\u{e0041}", "\\udb40\\udc41"}),
    [](const auto& c) { return std::string(c.param.name); });

TEST(WireTextCut, CountsCharactersNotBytes) {
    std::string cut, whole;
    appendText(cut, "\xC3\xB6\xC3\xB6\xC3\xB6", Escape::terminal, 2);
    appendText(whole, "\xC3\xB6\xC3\xB6", Escape::terminal, 2);
    EXPECT_EQ(cut, "\xC3\xB6\xC3\xB6\xE2\x80\xA6");
    EXPECT_EQ(whole, "\xC3\xB6\xC3\xB6");
    EXPECT_EQ(columnsOf(cut), 3u);
}

TEST(IsoTime, KnowsTheCalendar) {
    const auto iso = [](std::int64_t micros) {
        std::string out;
        appendIsoTime(out, micros);
        return out;
    };
    EXPECT_EQ(iso(0), "1970-01-01T00:00:00.000000Z");
    EXPECT_EQ(iso(951782399999999), "2000-02-28T23:59:59.999999Z");
    EXPECT_EQ(iso(951782400000000), "2000-02-29T00:00:00.000000Z");
    EXPECT_EQ(iso(1709251200000000), "2024-03-01T00:00:00.000000Z");
    EXPECT_EQ(iso(4107542400000000), "2100-03-01T00:00:00.000000Z");  // 2100 has no leap day
    EXPECT_EQ(iso(253402300799999999), "9999-12-31T23:59:59.999999Z");
    EXPECT_EQ(iso(253402300800000000), "253402300800000000us");
    EXPECT_EQ(iso(-1), "-1us");
}

TEST(Decimal, HandlesSignAndExtremes) {
    const auto decimal = [](std::int64_t value, int decimals) {
        std::string out;
        appendDecimal(out, value, decimals);
        return out;
    };
    EXPECT_EQ(decimal(1234567, 3), "1234.567");
    EXPECT_EQ(decimal(5, 3), "0.005");
    EXPECT_EQ(decimal(-5, 3), "-0.005");
    EXPECT_EQ(decimal(std::numeric_limits<std::int64_t>::min(), 6), "-9223372036854.775808");
}

}  // namespace
