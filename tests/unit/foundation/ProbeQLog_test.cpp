#include "foundation/ProbeQLog.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/ProbeLogger.h"
#include "support/FakeQlog.h"
#include "support/TestHome.h"

class ProbeQLogSteps {
public:
    static std::string qualified(const std::string& list, const char* qualifier) {
        ProbeQLog::_qualDir = qualifier;
        std::vector<char> result(list.size() + 1000 * (std::string(qualifier).size() + 2) + 1);
        ProbeQLog::setQualifierForFiles(list.c_str(), result.data());
        ProbeQLog::_qualDir = nullptr;
        return result.data();
    }
    static void setEnv(const char* name, const char* value, bool append) {
        ProbeQLog::setEnv(name, value, append);
    }
};

namespace {

class ProbeQLogTest : public ::testing::Test {
protected:
    ProbeQLogTest() {
        for (const char* name :
             {"QUALDIR", "QLOG_COMMON_DIR", "QLOG_FFDC_BASEDIR", "PROBE_CATALOG_NAME", "NLSPATH"})
            unsetenv(name);
        qlog.addObject("logger.dc.msg");
        qlog.addObject("logger.dc.trace");
        qlog.addObject("handler.file.dc.msg", "qlg_filehandler");
        qlog.addObject("handler.file.dc.trace", "qlg_filehandler");
        qlog.addObject("handler.ffdc.dc");
        qlog.setProperty("logger.dc.trace", "level", "10000");
        qlog.setProperty("handler.file.dc.msg", "fileName", "dc-message.log");
    }

    void TearDown() override {
        EXPECT_EQ(FakeQlog::kit().strings, 0);
        ProbeQLog::destroy();
        EXPECT_EQ(FakeQlog::kit().handlesHeld, 0);
        EXPECT_EQ(qLogger.load(), nullptr);
        EXPECT_FALSE(traceOn(kDebugMin));
    }

    void initialize() {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        ProbeQLog::initialize();
        err = testing::internal::GetCapturedStderr();
        out = testing::internal::GetCapturedStdout();
    }

    TestHome home;
    FakeQlog qlog;
    std::string out, err;
};

TEST_F(ProbeQLogTest, SetsEverythingUpAndTellsIt) {
    setenv("QLOG_COMMON_DIR", "", 1);  // not the host's root folder
    EXPECT_STREQ(ProbeQLog::getLogRootDir(), "/var/kor/tessar/common");
    setenv("QLOG_COMMON_DIR", "/var/common", 1);
    initialize();
    EXPECT_TRUE(ProbeQLog::isInitialized());
    EXPECT_EQ(err, "");
    EXPECT_EQ(out, "NLSPATH=" + home.path("msg") +
                       "/%L/%N.cat\n"
                       "INFO: Catalog file is velprobeMessages\n"
                       "set log file to /var/common/VEL/logs/dc-message.log\n"
                       "ffdc base dir is /var/common/VEL/FFDC\n");
    EXPECT_EQ(FakeQlog::kit().openedFile, home.path("etc/vel-qlog.properties"));
    EXPECT_EQ(FakeQlog::kit().codesetDir, home.path("codeset"));
    EXPECT_TRUE(FakeQlog::kit().ffdcEnabled);
    EXPECT_EQ(FakeQlog::kit().ffdcBaseDir, "/var/common/VEL/FFDC");
    EXPECT_EQ(qlog.property("handler.file.dc.msg", "fileName"),
              "/var/common/VEL/logs/dc-message.log");
    EXPECT_EQ(qlog.property("handler.file.dc.trace", "fileName"), "");  // had none: stays without
    EXPECT_EQ(FakeQlog::kit().ffdcFiles, "");
    EXPECT_EQ(ProbeQLog::getSet(), 1);
    EXPECT_EQ(FakeQlog::kit().handlesHeld, 2);  // logger and tracer; the handlers were given back
}

TEST_F(ProbeQLogTest, AQualifierGetsItsOwnFolders) {
    setenv("QLOG_COMMON_DIR", "/c", 1);
    setenv("QUALDIR", "q7", 1);
    setenv("NLSPATH", "/old/%N", 1);
    qlog.setProperty("handler.file.dc.trace", "fileName", "");
    FakeQlog::kit().ffdcBaseDir = "first";
    FakeQlog::kit().ffdcFiles = "/c/VEL/logs/dc-message.log,/etc/hosts";
    initialize();
    EXPECT_EQ(out, "NLSPATH=/old/%N:" + home.path("msg") +
                       "/%L/%N.cat\n"
                       "INFO: Catalog file is velprobeMessages\n"
                       "set log file to /c/VEL/logs/q7/dc-message.log\n"
                       "set log file to /c/VEL/logs/q7/dc-native.log\n"
                       "ffdc base dir is /c/VEL/first/q7\n"
                       "Files to copy defined in vel-qlog.properties are "
                       "/c/VEL/logs/dc-message.log,/etc/hosts\n"
                       "Files to be copied are /c/VEL/logs/q7/dc-message.log /etc/hosts \n");
    EXPECT_EQ(FakeQlog::kit().ffdcFiles, "/c/VEL/logs/q7/dc-message.log /etc/hosts ");
    EXPECT_EQ(FakeQlog::kit().ffdcBaseDir, "/c/VEL/first/q7");
}

TEST_F(ProbeQLogTest, DefaultRootAndTheEnvironmentsCaptureFolder) {
    setenv("QLOG_FFDC_BASEDIR", "mine", 1);
    FakeQlog::kit().ffdcBaseDir = "first";
    FakeQlog::kit().ffdcFiles = "/a,/b";
    qlog.setProperty("handler.file.dc.msg", "fileName", "");
    initialize();
    EXPECT_EQ(FakeQlog::kit().ffdcBaseDir, "/var/kor/tessar/common/VEL/mine");
    EXPECT_EQ(FakeQlog::kit().ffdcFiles, "/a,/b");  // only a qualifier changes the list
    EXPECT_EQ(qlog.property("handler.file.dc.msg", "fileName"),
              "/var/kor/tessar/common/VEL/logs/dc-native.log");
}

TEST_F(ProbeQLogTest, HandlersOfAnotherTypeAreLeftAlone) {
    qlog.addObject("handler.file.dc.msg", "qlg_consolehandler");
    initialize();
    EXPECT_EQ(qlog.property("handler.file.dc.msg", "fileName"), "dc-message.log");
}

TEST_F(ProbeQLogTest, ALongCatalogueNameIsCutAndClosed) {
    setenv("PROBE_CATALOG_NAME", std::string(400, 'c').c_str(), 1);
    initialize();
    EXPECT_EQ(std::string(ProbeQLog::getCatalog()), std::string(255, 'c'));
}

TEST_F(ProbeQLogTest, AMissingToolkitLeavesNothingLoggable) {
    FakeQlog::kit().failOpen = true;
    initialize();
    EXPECT_EQ(err, "ERROR: Could not open Toolkit. please check if qlog property file " +
                       home.path("etc/vel-qlog.properties") + " exists.\n");
    EXPECT_FALSE(ProbeQLog::isInitialized());
    EXPECT_FALSE(traceOn(kDebugMin));
    logMessage(msg::kPropertyMgrStarted);
    ProbeQLog::logMsg("x");
    ProbeQLog::setLogLevel(5);
    ProbeQLog::setLogLevel(20005);
}

TEST_F(ProbeQLogTest, MissingObjectsAreNamed) {
    qlog.removeObject("logger.dc.trace");
    initialize();
    EXPECT_EQ(err, "ERROR: Could not initialize tracer 'DC_TRACER'\n");
    EXPECT_FALSE(traceOn(kDebugMin));
    ProbeQLog::destroy();
    qlog.removeObject("logger.dc.msg");
    initialize();
    EXPECT_EQ(err, "ERROR: Could not initialize logger 'DC_LOGGER'\n");
}

TEST_F(ProbeQLogTest, LevelsReachTheirObjectAndTheTraceTest) {
    initialize();
    ProbeQLog::setLogLevel(19999);
    EXPECT_EQ(qlog.property("logger.dc.msg", "level"), "19999");
    struct Case {
        int level, threshold;
    };
    for (const Case& c : {Case{30000, INT_MAX},
                          {23001, INT_MAX},
                          {23000, kDebugMin},
                          {22000, kDebugMid},
                          {21000, kDebugMax},
                          {20003, kDebugMax},
                          {20000, kDebugMax}}) {
        Java_com_velora_probe_log_ProbeLogger_setNativeProbeLoggingLevel(nullptr, nullptr, c.level);
        EXPECT_EQ(qlog.property("logger.dc.trace", "level"), std::to_string(c.level - 20000));
        EXPECT_EQ(traceThreshold.load(), c.threshold) << c.level;
    }
    QlgCloseToolkit();
    EXPECT_FALSE(traceOn(kDebugMin));
}

TEST_F(ProbeQLogTest, NothingIsTracedAfterTheEnd) {
    initialize();
    ProbeQLog::setLogLevel(20000);
    EXPECT_TRUE(traceOn(kDebugMax));
    ProbeQLog::destroy();
    EXPECT_FALSE(traceOn(kDebugMin));
    EXPECT_FALSE(FakeQlog::kit().open);
}

TEST_F(ProbeQLogTest, MessagesCarrySetCatalogueAndTypedArguments) {
    initialize();
    logMessage(msg::kUsingPropertyFile, "/etc/x");
    ProbeQLog::logMsg("50% plain");
    ProbeQLog::logMsg(nullptr);
    ASSERT_EQ(qlog.messages(1070).size(), 1U);
    const FakeQlog::Line message = qlog.messages(1070)[0];
    EXPECT_EQ(message.text, "Using property file /etc/x");
    EXPECT_EQ(message.catalogue, "velprobeMessages");
    EXPECT_EQ(message.set, 1);
    EXPECT_EQ(qlog.lines().back().text, "50% plain");
}

TEST(ProbeQLogEnvironment, IsSetAppendedOrLeftAlone) {
    unsetenv("VEL_TEST");
    testing::internal::CaptureStdout();
    ProbeQLogSteps::setEnv("VEL_TEST", "a", true);
    ProbeQLogSteps::setEnv("VEL_TEST", "b", true);
    EXPECT_STREQ(std::getenv("VEL_TEST"), "a:b");
    ProbeQLogSteps::setEnv("VEL_TEST", "c", false);
    EXPECT_STREQ(std::getenv("VEL_TEST"), "c");
    ProbeQLogSteps::setEnv(nullptr, "d", false);
    ProbeQLogSteps::setEnv("VEL_TEST", nullptr, false);
    EXPECT_STREQ(std::getenv("VEL_TEST"), "c");
    testing::internal::CaptureStderr();
    ProbeQLogSteps::setEnv("", "d", false);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to set . Error code is -1\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "VEL_TEST=a\nVEL_TEST=a:b\nVEL_TEST=c\n=d\n");
}

struct FilesCase {
    const char* name;
    std::string list, result;
};

class QualifiedFilesTest : public ::testing::TestWithParam<FilesCase> {};

TEST_P(QualifiedFilesTest, InsertsTheQualifierBehindTheLogsFolder) {
    setenv("QLOG_COMMON_DIR", "/c", 1);
    EXPECT_EQ(ProbeQLogSteps::qualified(GetParam().list, "q"), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    Lists, QualifiedFilesTest,
    testing::Values(FilesCase{"one", "a", "a "}, FilesCase{"none", "", ""},
                    FilesCase{"inside", "/c/VEL/logs/x.log", "/c/VEL/logs/q/x.log "},
                    FilesCase{"outside", "/d/VEL/logs/x.log,b", "/d/VEL/logs/x.log b "},
                    FilesCase{"inTheMiddle", "/any/c/VEL/logs/x", "/any/c/VEL/logs/q/x "},
                    FilesCase{"emptyOnes", ",a,,b,", "a b "}),
    [](const auto& c) { return std::string(c.param.name); });

// The longest result that the room is computed for: every file qualified.
TEST(QualifiedFiles, EndAtAThousand) {
    setenv("QLOG_COMMON_DIR", "/c", 1);
    std::string list;
    std::string result;
    for (int i = 0; i < 1200; ++i) list += "/c/VEL/logs/,";
    for (int i = 0; i < 1000; ++i) result += "/c/VEL/logs/q/ ";
    const std::string told = "Number of files sepcified exceeds the maximum limit 1000\n";
    testing::internal::CaptureStderr();
    EXPECT_EQ(ProbeQLogSteps::qualified(list, "q"), result);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), told);
    testing::internal::CaptureStderr();
    list.resize(1000 * std::string("/c/VEL/logs/,").size());  // exactly a thousand: told as well
    EXPECT_EQ(ProbeQLogSteps::qualified(list, "q"), result);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), told);
}

}  // namespace
