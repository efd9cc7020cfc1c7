#include "foundation/Utils.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
#include <regex>
#include <string>

#include "support/VelFixture.h"

namespace {

class UtilsTest : public VelFixture {};

TEST(Primes, AreTheFirst205InOrder) {
    std::size_t count = 0;
    for (int n = 2; count < std::size(Utils::listOfPrimes_); ++n) {
        bool prime = true;
        for (int d = 2; d * d <= n; ++d) prime = prime && n % d != 0;
        if (!prime) continue;
        ASSERT_EQ(Utils::listOfPrimes_[count], n);
        ++count;
    }
    EXPECT_EQ(Utils::listOfPrimes_[204], 1259);
}

TEST(Primes, TheNextBiggerOneIsStrictlyBigger) {
    const int cases[][2] = {{-1, 2},      {0, 2},       {1, 2},       {2, 3},
                            {10, 11},     {11, 13},     {1249, 1259}, {1258, 1259},
                            {1259, 1259}, {1260, 1260}, {5000, 5000}};
    for (const auto& c : cases) EXPECT_EQ(Utils::getNextBiggerPrimeNumber(c[0]), c[1]) << c[0];
}

TEST_F(UtilsTest, JavaTextIsCopiedAsModifiedUtf8) {
    for (const std::string text : {"", "plain", "z\xc3\xbcrich \xe6\x97\xa5",
                                   "a\xc0\x80"
                                   "b",
                                   "\xed\xa0\xbd\xed\xb8\x80"}) {
        const std::unique_ptr<char[]> copy(Utils::java2c_string(env, jni.string(text)));
        EXPECT_STREQ(copy.get(), text.c_str());
    }
    jni.closeRegions(false);
    const std::unique_ptr<char[]> closed(Utils::java2c_string(env, jni.string("open")));
    EXPECT_STREQ(closed.get(), "open");
    EXPECT_EQ(Utils::java2c_string(env, nullptr), nullptr);
    EXPECT_EQ(Utils::java2c_string(nullptr, jni.string("x")), nullptr);
}

TEST_F(UtilsTest, APendingExceptionIsDescribedAndCleared) {
    EXPECT_FALSE(handleJavaException(env));
    EXPECT_FALSE(handleJavaException(nullptr));
    jni.throwNow(env, "java/lang/IllegalStateException", "why");
    EXPECT_TRUE(handleJavaException(env));
    EXPECT_EQ(jni.described(), std::vector<std::string>{"java/lang/IllegalStateException: why"});
    EXPECT_EQ(jni.pending(env), "");
}

TEST(Utils, TimeIsLocalAndFixedWidth) {
    setenv("TZ", "EST5", 1);
    tzset();
    const std::time_t before = std::time(nullptr);
    const std::unique_ptr<char[]> text(Utils::getTime());
    std::tm read{};
    ASSERT_NE(strptime(text.get(), "%Y/%m/%d %H:%M:%S", &read), nullptr);
    EXPECT_TRUE(std::regex_match(text.get(), std::regex(R"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d)")));
    read.tm_isdst = 0;
    const double age = std::difftime(std::mktime(&read), before);
    EXPECT_GE(age, 0);
    EXPECT_LE(age, 2);
}

TEST(Utils, LogPrintsALine) {
    testing::internal::CaptureStdout();
    Utils::log("100% done");
    Utils::log(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "100% done \n");
}

}  // namespace
