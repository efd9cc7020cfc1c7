#include "server/ask/Answer.h"

#include <gtest/gtest.h>

#include "Lines.h"

namespace {

struct Shown {
    Shown(std::string_view question, const std::string& answer) {
        done = server::showAnswer(question, answer, lines, wrong);
    }
    Lines lines;
    std::string wrong;
    bool done = false;
};

TEST(Answer, ThreadsStandInColumns) {
    const std::string longName(60, 'g');
    EXPECT_EQ(
        Shown("threads", "7\twaiting\tma\xC3\xAFn\tworker\n4294967295\trunnable, suspended\t" +
                             longName + "\tx\n8\tblocked\tmain\ty\n")
            .lines.text,
        "THREAD      STATUS               GROUP                                     NAME\n"
        "7           waiting              ma\xC3\xAFn                                      worker\n"
        "4294967295  runnable, suspended  " +
            longName +
            "  x\n"
            "8           blocked              main                                      y\n");
}

TEST(Answer, StacksReadLikeJava) {
    EXPECT_EQ(Shown("stack 7", "blocked\nshop.Cart.add\t(Ljava/lang/String;I)V\nshop.Main.main\n")
                  .lines.text,
              "thread 7: blocked\n    at shop.Cart.add(java.lang.String, int)\n"
              "    at shop.Main.main\n");
    EXPECT_EQ(Shown("stack 7", "runnable\n").lines.text,
              "thread 7: runnable\n    (no Java frames)\n");
    EXPECT_EQ(Shown("stack 7", "").lines.text, "thread 7: \n    (no Java frames)\n");
}

TEST(Answer, HeapIsTheTable) {
    const std::string summary =
        "3,2\na/B,1,33.3,1,50.0\nprimitive[],2,66.7,1,50.0\nobject[],0,0.0,0,0.0\n";
    const Shown shown("heap", summary);
    EXPECT_TRUE(shown.done) << shown.wrong;
    EXPECT_LT(shown.lines.text.find("primitive[]"), shown.lines.text.find("a.B"));
    const Shown cut("heap", summary.substr(0, 20));
    EXPECT_FALSE(cut.done);
    EXPECT_EQ(cut.lines.text, "");
}

TEST(Answer, ErrorsAreForStandardError) {
    for (const char* question : {"heap", "threads", "stack 7", "status", "other"}) {
        const Shown shown(question, "error: not\x1b now\nmore\n");
        EXPECT_FALSE(shown.done);
        EXPECT_EQ(shown.wrong, "not\\x1b now");
        EXPECT_EQ(shown.lines.text, "");
    }
}

TEST(Answer, HasRowsOfAtMostEightFields) {
    const std::string answer = "1\t2\t3\t4\t5\t6\t7\t8\t9\n";
    EXPECT_EQ(Shown("status", answer).lines.text, "1  2  3  4  5  6  7  8\\t9\n");
}

TEST(Answer, SteersNoTerminal) {
    for (const char* question : {"threads", "stack \x1b", "status"}) {
        const std::string text = Shown(question, "\x1b[2J\ta\x1b\n\x1b\t(\x1b)\n").lines.text;
        EXPECT_EQ(text.find('\x1b'), std::string::npos) << question;
    }
}

struct SignatureCase {
    const char* name;
    const char* signature;
    const char* readable;
};

class Signatures : public testing::TestWithParam<SignatureCase> {};

TEST_P(Signatures, AreReadable) {
    EXPECT_EQ(server::readableParameters(GetParam().signature), GetParam().readable);
}

INSTANTIATE_TEST_SUITE_P(
    Methods, Signatures,
    testing::Values(SignatureCase{"none", "()V", "()"},
                    SignatureCase{"primitives", "(ZBCSIJFD)I",
                                  "(boolean, byte, char, short, int, long, float, double)"},
                    SignatureCase{"arraysAndClasses", "([[Ljava/lang/String;[I)V",
                                  "(java.lang.String[][], int[])"},
                    // What is none stays as it is, cut at whatever place.
                    SignatureCase{"empty", "", ""}, SignatureCase{"field", "I", "I"},
                    SignatureCase{"open", "(I", "(I"},
                    SignatureCase{"openClass", "(Ljava", "(Ljava"},
                    SignatureCase{"openArray", "([", "(["},
                    SignatureCase{"arrayOfNoType", "([Q)V", "([Q)V"},
                    SignatureCase{"namelessClass", "(L;)V", "(L;)V"},
                    SignatureCase{"unknownType", "(Q)V", "(Q)V"}),
    [](const auto& c) { return std::string(c.param.name); });

}  // namespace
