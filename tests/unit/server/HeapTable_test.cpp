#include "server/ask/HeapTable.h"

#include <gtest/gtest.h>

#include <sstream>

#include "Lines.h"

namespace {

constexpr char kHeader[] = "     BYTES       %     OBJECTS       %  BYTES/OBJECT  CLASS\n";

// A summary's last two lines, of an empty heap and of none at all.
constexpr char kNoArrays[] = "primitive[],0,0.0,0,0.0\nobject[],0,0.0,0,0.0\n";

struct Shown {
    explicit Shown(const std::string& text) {
        std::istringstream in(text);
        done = server::showHeap(in, lines, wrong);
    }
    Lines lines;
    std::string wrong;
    bool done = false;
};

TEST(HeapTable, IsSortedBySizeAndThenByName) {
    const Shown shown(
        "1900,11\nshop/Small,100,5.3,4,36.4\nb/Same,400,21.1,1,9.1\na/Same,400,21.1,3,27.3\n"
        "primitive[],900,47.4,2,18.2\nobject[],100,5.3,1,9.1\n");
    EXPECT_EQ(shown.wrong, "");
    EXPECT_TRUE(shown.done);
    EXPECT_EQ(shown.lines.text,
              std::string(kHeader) +
                  "       900    47.4           2    18.2         450.0  primitive[]\n"
                  "       400    21.1           3    27.3         133.3  a.Same\n"
                  "       400    21.1           1     9.1         400.0  b.Same\n"
                  "       100     5.3           1     9.1         100.0  object[]\n"
                  "       100     5.3           4    36.4          25.0  shop.Small\n"
                  "      1900   100.0          11   100.0         172.7  total\n");
}

struct RowCase {
    const char* name;
    const char* line;
    const char* row;
};

class Rows : public testing::TestWithParam<RowCase> {};

TEST_P(Rows, AreReadFromTheirEnd) {
    const Shown shown("9,9\n" + std::string(GetParam().line) + "\n" + kNoArrays);
    EXPECT_EQ(shown.wrong, "");
    const std::string first = shown.lines.text.substr(sizeof kHeader - 1);
    EXPECT_EQ(first.substr(0, first.find('\n')), GetParam().row);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, Rows,
    testing::Values(
        RowCase{"commasInTheName", "a,1,2/b,8,88.9,2,22.2",
                "         8    88.9           2    22.2           4.0  a,1,2.b"},
        RowCase{"largestNumbers", "C,4294967295,100.0,4294967295,100.0",
                "4294967295   100.0  4294967295   100.0           1.0  C"},
        RowCase{"moreThanAWrappedTotal", "C,4294967295,2147483647.5,1,inf",
                "4294967295  2147483647.5           1       -  4294967295.0  C"},
        RowCase{"ofAnEmptyHeap", "C,1,nan,0,-nan",
                "         1       -           0       -             -  C"},
        RowCase{"nameThatSteersTheTerminal", "C\x1b[2J\xE2\x80\xAE,1,0.0,1,0.0",
                "         1     0.0           1     0.0           1.0  C\\x1b[2J\\u{202e}"}),
    [](const auto& c) { return std::string(c.param.name); });

struct RefusedCase {
    const char* name;
    std::string text;
    std::string wrong;
};

class Refused : public testing::TestWithParam<RefusedCase> {};

TEST_P(Refused, WithTheLineAndWhatWasExpected) {
    const Shown shown(GetParam().text);
    EXPECT_FALSE(shown.done);
    EXPECT_EQ(shown.lines.text, "");
    EXPECT_EQ(shown.wrong, GetParam().wrong);
}

RefusedCase refusedRow(const char* name, const std::string& line) {
    return {name, "9,9\nC,1,1.0,1,1.0\n" + line + "\n" + kNoArrays,
            "line 3 of the heap summary is \"" + line +
                "\", expected: class,bytes,percent,objects,percent"};
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Refused,
    testing::Values(
        RefusedCase{"empty", "",
                    "line 1 of the heap summary is \"\", expected: totalBytes,totalObjects"},
        RefusedCase{"noTotal", kNoArrays,
                    "line 1 of the heap summary is \"primitive[],0,0.0,0,0.0\", expected: "
                    "totalBytes,totalObjects"},
        RefusedCase{"cutOff", "9,9\nC,1,1.0,1,1.0\nprimitive[],0,0.0,0,0.0\n",
                    "the heap summary is cut off behind line 3, expected: a last line for "
                    "object[]"},
        RefusedCase{"otherFile",
                    "\x7f"
                    "ELF\x02\n" +
                        std::string(kNoArrays),
                    "line 1 of the heap summary is \"\\x7fELF\\x02\", expected: "
                    "totalBytes,totalObjects"},
        refusedRow("tooFew", "C,1,1.0,1"), refusedRow("noName", ",1,1.0,1,1.0"),
        refusedRow("blankLine", ""), refusedRow("negative", "C,-1,1.0,1,1.0"),
        refusedRow("negativePercentage", "C,1,-1.0,1,1.0"),
        refusedRow("tooLarge", "C,4294967296,1.0,1,1.0"), refusedRow("blank", "C, 1,1.0,1,1.0"),
        refusedRow("numberWithMore", "C,1,1.0x,1,1.0"), refusedRow("noNumber", "C,1,,1,1.0")),
    [](const auto& c) { return std::string(c.param.name); });

}  // namespace
