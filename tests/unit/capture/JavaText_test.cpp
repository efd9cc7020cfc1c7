#include "capture/JavaText.h"

#include <string>

#include "event/EventText.h"
#include "support/VelFixture.h"

namespace {

struct CopyCase {
    const char* name;
    std::u16string text;
    int limit;
    std::string expected;
};

class JavaTextCopy : public VelFixture, public ::testing::WithParamInterface<CopyCase> {};

TEST_P(JavaTextCopy, CutsBetweenCharacters) {
    const CopyCase& c = GetParam();
    const javatext::Text copied = javatext::copy(env, jni.string(c.text), c.limit);
    EXPECT_EQ(std::string(copied.chars), c.expected);
    EXPECT_EQ(copied.length, static_cast<int>(c.expected.size()) + 1);
    char* owned = copied.chars;
    freeText(owned);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, JavaTextCopy,
    ::testing::Values(
        CopyCase{"fits", u"abc", 10, "abc"}, CopyCase{"fitsExactly", u"abcd", 5, "abcd"},
        CopyCase{"oneTooLong", u"abcde", 5, "abcd"}, CopyCase{"empty", u"", 5, ""},
        CopyCase{"limitOfTheZeroAlone", u"abc", 1, ""}, CopyCase{"limitZero", u"abc", 0, ""},
        CopyCase{"limitBelowZero", u"abc", -7, ""},
        CopyCase{"twoByteCharacterWhole", u"a\u00e9", 4, "a\xC3\xA9"},
        CopyCase{"twoByteCharacterLeftOut", u"a\u00e9", 3, "a"},
        CopyCase{"threeByteCharacterWhole", u"\u20ac", 4, "\xE2\x82\xAC"},
        CopyCase{"threeByteCharacterLeftOut", u"a\u20ac", 4, "a"},
        CopyCase{"threeByteCharacterLeftOutAtItsSecondByte", u"a\u20ac", 3, "a"},
        CopyCase{"embeddedZeroIsTwoBytes", std::u16string(u"a\0b", 3), 10,
                 "a\xC0\x80"
                 "b"},
        CopyCase{"surrogatePairWhole", u"\U0001F600", 7, "\xED\xA0\xBD\xED\xB8\x80"},
        CopyCase{"surrogatePairNeverHalved", u"a\U0001F600", 5, "a"},
        CopyCase{"surrogatePairNeverHalvedOneByteLater", u"a\U0001F600", 6, "a"},
        CopyCase{"loneSurrogateAtTheEndStays", u"a\xD83D", 10, "a\xED\xA0\xBD"},
        CopyCase{"longerThanTheStackBuffer", std::u16string(4000, u'x'), 5000,
                 std::string(4000, 'x')},
        CopyCase{"wideAndLongerThanTheStackBuffer", std::u16string(2000, u'\u20ac'), 1000,
                 [] {
                     std::string expected;
                     for (int i = 0; i < 333; ++i) expected += "\xE2\x82\xAC";
                     return expected;
                 }()},
        CopyCase{"farLongerThanTheLimit", std::u16string(100000, u'y'), 300,
                 std::string(299, 'y')}),
    [](const auto& info) { return std::string(info.param.name); });

class JavaTextTest : public VelFixture {};

TEST_F(JavaTextTest, NullAndEmptyShareTheEmptyText) {
    EXPECT_EQ(javatext::copy(env, nullptr, 100).chars, emptyText());
    EXPECT_EQ(javatext::copy(env, jni.string(u""), 100).chars, emptyText());
}

TEST_F(JavaTextTest, AtLeastGivesAnArrayOfThatManyBytes) {
    const javatext::Text text = javatext::copy(env, jni.string(u"ab"), 100, 5);
    EXPECT_EQ(std::string(text.chars, 5), std::string("ab\0\0\0", 5));
    EXPECT_EQ(text.length, 3);
    delete[] text.chars;
    const javatext::Text none = javatext::copy(env, nullptr, 100, 5);
    EXPECT_EQ(std::string(none.chars, 5), std::string(5, '\0'));
    delete[] none.chars;
}

// A region of a string may not be terminated by the VM: what an earlier call left in the buffer
// must not become part of the text.
TEST_F(JavaTextTest, DoesNotTrustTheVmToTerminate) {
    struct Table {
        JNINativeInterface_ functions;
        static void JNICALL region(JNIEnv*, jstring, jsize start, jsize length, char* out) {
            for (jsize i = start; i < start + length; ++i) *out++ = static_cast<char>('a' + i);
        }
    };
    static Table table{*env->functions};
    table.functions.GetStringUTFRegion = Table::region;
    JNIEnv unterminated{&table.functions};
    table.functions.GetStringLength = [](JNIEnv*, jstring) -> jsize { return 3; };
    const auto text = reinterpret_cast<jstring>(&unterminated);
    for (int round = 0; round < 2; ++round) {
        const javatext::Text copied = javatext::copy(&unterminated, text, 100);
        EXPECT_EQ(std::string(copied.chars), "abc");
        char* chars = copied.chars;
        freeText(chars);
    }
}

TEST_F(JavaTextTest, EqualsComparesContentAndLength) {
    EXPECT_TRUE(javatext::equals(env, jni.string(u"JSP"), "JSP", 3));
    EXPECT_FALSE(javatext::equals(env, jni.string(u"JSX"), "JSP", 3));
    EXPECT_FALSE(javatext::equals(env, jni.string(u"JSPX"), "JSP", 3));
    EXPECT_FALSE(javatext::equals(env, jni.string(u"\u00e9SP"), "JSP", 3));
    EXPECT_FALSE(javatext::equals(env, nullptr, "JSP", 3));
    const long regions = jni.calls("GetStringUTFRegion");
    EXPECT_FALSE(javatext::equals(env, jni.string(u"longer"), "JSP", 3));
    EXPECT_EQ(jni.calls("GetStringUTFRegion"), regions);  // the length alone decided
}

}  // namespace
