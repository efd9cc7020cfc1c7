#include "foundation/ProbeLog.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/ProbeLogger.h"
#include "support/TestHome.h"
#include "support/VelFixture.h"

namespace {

class ProbeLogTest : public VelFixture {
protected:
    void TearDown() override {
        ProbeLog::destroy();
        testing::internal::CaptureStdout();
        ProbeLog::setLogLevel(ProbeLog::kInfo);
        testing::internal::GetCapturedStdout();
        VelFixture::TearDown();
    }

    // Opens the log over this messages file; what came on standard error.
    std::string open(const std::string& messages) {
        home.write("etc/LogMessages", messages);
        return openAsItIs();
    }

    std::string openAsItIs() {
        testing::internal::CaptureStderr();
        ProbeLog::initialize();
        return testing::internal::GetCapturedStderr();
    }

    // The log's text, each leading time replaced by "@".
    [[nodiscard]] std::string logged() const {
        const std::string name = ProbeLog::getLogFileName();
        const std::string content = home.read(name.substr(home.path().size() + 1));
        static const std::regex time(
            "(Mon|Tue|Wed|Thu|Fri|Sat|Sun) [A-Z][a-z]{2} [ 123]\\d \\d\\d:\\d\\d:\\d\\d \\d{4}  ");
        return std::regex_replace(content, time, "@");
    }

    // Standard output of setLogLevel.
    static std::string setLevel(int level) {
        testing::internal::CaptureStdout();
        ProbeLog::setLogLevel(level);
        return testing::internal::GetCapturedStdout();
    }

    TestHome home;
};

TEST_F(ProbeLogTest, NamesItsFileAfterNodeServerTimeAndProcess) {
    const std::string told = open("a=b\n");
    const std::string name = ProbeLog::getLogFileName();
    EXPECT_EQ(told, "[AM]: Using log file: " + name + " \n");
    EXPECT_TRUE(
        std::regex_match(name, std::regex(home.path("logs") + "/n1\\.s1\\.\\d{14}\\." +
                                          std::to_string(getpid()) + "\\.datacollector\\.log")))
        << name;
    EXPECT_EQ(home.files("logs").size(), 1U);
}

TEST_F(ProbeLogTest, NamesTheProfileWhenThereIsOne) {
    home.identify("n1", "s1", "p1");
    open("a=b\n");
    EXPECT_EQ(std::string(ProbeLog::getLogFileName()).find(home.path("logs") + "/n1.s1(p1).2"), 0U);
}

TEST_F(ProbeLogTest, WritesEachLevelInItsForm) {
    open("a=b\n");
    setLevel(ProbeLog::kTrace);
    ProbeLog::_log("one %s");
    ProbeLog::_logInfo("two");
    ProbeLog::_logDebug("three");
    ProbeLog::_logWarn("four");
    ProbeLog::_logError("five");
    ProbeLog::writeText(ProbeLog::kTrace, "six");
    ProbeLog::writeText(-7, "seven");
    ProbeLog::_log(nullptr);
    EXPECT_EQ(logged(),
              "@INFO: one %s \n@INFO: two \n@DEBUG: three \n@WARNING: four \n@##ERROR: five \n"
              "@TRACE: six \n@UNKNOW: seven \n");
}

TEST_F(ProbeLogTest, ARecordIsOneLineWhateverItsTextHolds) {
    open("k=user %s\n");
    ProbeLog::_logV(ProbeLog::kInfo, "k", "a\nb\x1b[2J\r\x7f\xc2\x9b\tc\xc3\xa9");
    EXPECT_EQ(logged(), "@INFO: user a\\nb\\x1b[2J\\x0d\\x7f\\x9b\tc\xc3\xa9\n \n");
}

TEST_F(ProbeLogTest, FillsTextsByKey) {
    open("started=The agent has started\ncount=%d of %s=\nbare\nlast=no end");
    ProbeLog::_logV(ProbeLog::kInfo, "started");
    ProbeLog::_logV(ProbeLog::kWarning, "count", 3, "five");
    ProbeLog::_logV(ProbeLog::kInfo, "count");  // too few arguments, as from Java
    ProbeLog::_logV(ProbeLog::kInfo, "last");
    ProbeLog::_logV(ProbeLog::kInfo, "bare\n");  // a line without "=" has no text
    ProbeLog::_logV(ProbeLog::kInfo, "bare");
    ProbeLog::_logV(ProbeLog::kInfo, "start");
    ProbeLog::_logV(ProbeLog::kInfo, nullptr);
    ProbeLog::_logV(ProbeLog::kDebug, "started");  // above the level
    // A text keeps its line end; only a last line has none.
    EXPECT_EQ(logged(),
              "@INFO: The agent has started\n \n@WARNING: 3 of five=\n \n@INFO: %d of %s=\n \n"
              "@INFO: no end \n");
}

TEST_F(ProbeLogTest, TheFirstOfTwoEqualKeysCounts) {
    open("k=1\nk=2\n");
    ProbeLog::_logV(ProbeLog::kInfo, "k");
    EXPECT_EQ(logged(), "@INFO: 1\n \n");
}

TEST_F(ProbeLogTest, ReadingEndsAtARemark) {
    open("#first\nk=1\n");
    ProbeLog::_logV(ProbeLog::kInfo, "k");
    EXPECT_EQ(logged(), "");
    ProbeLog::destroy();
    open("k=1\n#remark\nlater=2\n");
    ProbeLog::_logV(ProbeLog::kInfo, "k");
    ProbeLog::_logV(ProbeLog::kInfo, "later");
    EXPECT_EQ(logged(), "@INFO: 1\n \n");
}

TEST_F(ProbeLogTest, LongLinesAreCutIntoSeveral) {
    const std::string longText(9996, 'x');
    open("key=" + longText + "=tail\n");  // 10000 characters, then "=tail"
    ProbeLog::_logV(ProbeLog::kInfo, "key");
    ProbeLog::_logV(ProbeLog::kInfo, "");
    EXPECT_EQ(logged(), "@INFO: " + longText + " \n@INFO: tail\n \n");
}

TEST_F(ProbeLogTest, WithoutMessagesThereIsNoFile) {
    const std::string told = openAsItIs();
    EXPECT_NE(told.find("\nError: Fail to open LogMessages\n"), std::string::npos);
    EXPECT_EQ(ProbeLog::getLogFileName(), nullptr);
    EXPECT_TRUE(home.files("logs").empty());
    testing::internal::CaptureStdout();
    ProbeLog::_logError("to the console");
    ProbeLog::_logV(ProbeLog::kError, "key");
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.substr(out.find('#')), "##ERROR: to the console \n");
}

TEST_F(ProbeLogTest, SaysWhenItsFileCannotBeMade) {
    std::filesystem::remove(home.path("logs"));
    const std::string told = open("a=b\n");
    EXPECT_TRUE(std::regex_search(
        told, std::regex("Could not create " + home.path("logs") + "/n1.s1.*log\n")))
        << told;
    EXPECT_EQ(ProbeLog::getLogFileName(), nullptr);
}

TEST_F(ProbeLogTest, LevelsOutsideTheFiveAreRefused) {
    open("a=b\n");
    EXPECT_EQ(setLevel(2), "Setting Log Level: 2 \n");
    EXPECT_EQ(ProbeLog::getLogLevel(), 2);
    EXPECT_EQ(setLevel(3), "Setting Log Level: 3 \n");
    EXPECT_EQ(setLevel(-3), "Setting Log Level: -3 \n");
    EXPECT_EQ(ProbeLog::getLogLevel(), 2);
    setLevel(-2);
    ProbeLog::_logWarn("dropped");
    EXPECT_EQ(logged(),
              "@##ERROR: Incorrect log level given: 3 using the existing loglevel: 2  \n"
              "@##ERROR: Incorrect log level given: -3 using the existing loglevel: 2  \n");
}

TEST_F(ProbeLogTest, LinesOfManyThreadsDoNotMix) {
    open("a=b\n");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            const std::string text(3000, static_cast<char>('a' + t));
            for (int i = 0; i < 50; ++i) ProbeLog::_log(text.c_str());
        });
    for (std::thread& thread : threads) thread.join();
    const std::string all = logged();
    std::size_t lines = 0;
    for (std::size_t at = 0; at < all.size(); at = all.find('\n', at) + 1) {
        ASSERT_EQ(all.find_first_not_of(all[at + 7], at + 7), at + 3007) << at;
        ++lines;
    }
    EXPECT_EQ(lines, 200U);
}

// --- natives ------------------------------------------------------------------------------------

TEST_F(ProbeLogTest, JavaWritesByKeyAndAsText) {
    const std::string longKey(2000, 'k');
    open("hello=from %s Java\n" + longKey + "=long\n");
    const auto write = Java_com_velora_probe_log_ProbeLogger_write;
    write(env, nullptr, 0, jni.string("hello"));
    write(env, nullptr, -2, jni.string(longKey + "cut off"));
    write(env, nullptr, 0, jni.string("unknown"));
    write(env, nullptr, 0, nullptr);
    Java_com_velora_probe_log_ProbeLogger_writeText(env, nullptr, -1, jni.string("100%n"));
    EXPECT_EQ(logged(), "@INFO: from %s Java\n \n@##ERROR: long\n \n@WARNING: 100%n \n");
}

// 1999 bytes and a character of three: the cut falls before it.
TEST_F(ProbeLogTest, ACutKeepsCharactersWhole) {
    open("a=b\n");
    const std::string text(1999, 'x');
    Java_com_velora_probe_log_ProbeLogger_writeText(env, nullptr, 0,
                                                    jni.string(text + "\xe6\x97\xa5"));
    EXPECT_EQ(logged(), "@INFO: " + text + " \n");
}

TEST_F(ProbeLogTest, JavaAsksForTheFile) {
    const auto ask = Java_com_velora_probe_log_ProbeLogger_getLogFileName;
    EXPECT_EQ(ask(env, nullptr), nullptr);
    open("a=b\n");
    EXPECT_EQ(jni.text(ask(env, nullptr)), ProbeLog::getLogFileName());
    jni.returnToJava(env);
}

}  // namespace
