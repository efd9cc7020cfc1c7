#include "server/print/ExceptionNote.h"

#include <gtest/gtest.h>

using server::ExceptionNote;

namespace {

std::string noteOf(const ExceptionNote& note) {
    std::string text;
    server::appendExceptionNote(text, note);
    return text;
}

struct NoteCase {
    const char* name;
    ExceptionNote note;
    const char* text;
};

class Notes : public testing::TestWithParam<NoteCase> {};

TEST_P(Notes, ReadLikeThis) {
    EXPECT_EQ(noteOf(GetParam().note), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Exceptions, Notes,
    testing::Values(
        NoteCase{"framesBelowTheirCause",
                 {"a.Oops", "shop.Cart", "add", "a.Oops: no\n\tat x(X.java:1)\nCaused by: b\n"},
                 "exception a.Oops in shop.Cart.add\n    a.Oops: no\n        at x(X.java:1)\n"
                 "    Caused by: b"},
        NoteCase{
            "noStack", {"a.Oops", "shop.Cart", "add", ""}, "exception a.Oops in shop.Cart.add"},
        NoteCase{"nobodyKnowsWhere", {"a.Oops", "", "", "at x"}, "exception a.Oops\n    at x"},
        NoteCase{"methodOnly", {"a.Oops", "", "add", ""}, "exception a.Oops in add"},
        NoteCase{"otherLineEnds",
                 {"E", "C", "m", "a\r\n\r\nb"},
                 "exception E in C.m\n    a\n    \n    b"},
        // Neither the stack nor a name can steer the terminal or begin a row of its own.
        NoteCase{"hostile",
                 {"E\n", "C\x1b", "m", "\x1b[2J\t\n-- node/server"},
                 "exception E\\n in C\\x1b.m\n    \\x1b[2J\\t\n    -- node/server"}),
    [](const auto& c) { return std::string(c.param.name); });

TEST(ExceptionNote, SaysHowManyLinesAreLeftOut) {
    std::string stack;
    for (std::size_t i = 1; i <= ExceptionNote::kMaxLines; ++i) stack += "x\n";
    EXPECT_EQ(noteOf({"E", "C", "m", stack}).find("more lines"), std::string::npos);
    for (const char* rest : {"y\n\nlast", "y\n\nlast\n"}) {
        const std::string text = noteOf({"E", "C", "m", stack + rest});
        const std::string end = "\n    x\n    ... 3 more lines";
        EXPECT_EQ(text.substr(text.size() - end.size()), end);
    }
}

}  // namespace
