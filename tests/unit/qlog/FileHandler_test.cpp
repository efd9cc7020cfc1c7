// Files: when they are made, how they rotate, what happens when they cannot be written.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <regex>

#include "QlogFixture.h"

namespace fs = std::filesystem;

namespace {

class FileHandlerTest : public QlogFixture {
protected:
    void info(const char* text) { QlgLogInfo(logger_, nullptr, 1, 7, "%s", 507, text, 0); }
};

TEST_F(FileHandlerTest, TheFileIsMadeAtTheFirstRecordUnderItsLatestName) {
    open();
    QlgSetObjProp(QlgGetObject("file.msg", nullptr), "fileName", path("a/b/new.log").c_str());
    EXPECT_FALSE(fs::exists(path("a")));
    info("first");
    EXPECT_EQ(lastRecord("a/b/new.log"), "INFO  7 first");
    EXPECT_FALSE(fs::exists(path("msg.log")));
}

TEST_F(FileHandlerTest, RecordsCarryTimeProcessAndThread) {
    open();
    info("text");
    const std::string pid = std::to_string(::getpid());
    const std::regex line(
        "20\\d\\d-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}[+-]\\d\\d:\\d\\d \\[" + pid + ":" +
        std::to_string(::gettid()) + "\\] INFO  7 text\n");
    EXPECT_TRUE(std::regex_match(get("msg.log"), line)) << get("msg.log");
}

TEST_F(FileHandlerTest, AnExistingFileIsContinued) {
    put("msg.log", "old\n");
    open();
    info("new");
    EXPECT_EQ(records("msg.log"), (std::vector<std::string>{"old", "INFO  7 new"}));
}

TEST_F(FileHandlerTest, RotationKeepsTheLatestFilesWithinTheirSize) {
    open("file.msg.maxFileSizeKB = 1\nfile.msg.maxFiles = 2\n");
    const std::string text(400, 'x');  // two records fill a file
    for (int i = 0; i < 10; ++i) info((std::to_string(i) + text).c_str());
    const auto numbersIn = [&](const std::string& name) {
        std::string numbers;
        for (const auto& record : records(name)) numbers += record.substr(8, 1);
        return numbers;
    };
    EXPECT_EQ(numbersIn("msg.log"), "89");
    EXPECT_EQ(numbersIn("msg.1.log"), "67");
    EXPECT_EQ(numbersIn("msg.2.log"), "45");
    EXPECT_FALSE(fs::exists(path("msg.3.log")));
}

TEST_F(FileHandlerTest, WithoutRotatedFilesTheFileStartsAnew) {
    open("file.msg.maxFileSizeKB = 1\nfile.msg.maxFiles = 0\n");
    const std::string text(600, 'x');
    info(("1" + text).c_str());
    info(("2" + text).c_str());
    EXPECT_EQ(records("msg.log").size(), 1u);
    EXPECT_FALSE(fs::exists(path("msg.1.log")));
}

TEST_F(FileHandlerTest, LevelOfAFileLeavesOutItsLowerRecords) {
    open("log.msg.handlers = file.msg,file.trace\nfile.trace.level = ERROR\n");
    info("both?");
    QlgLogError(logger_, nullptr, 1, 8, "both", 0);
    EXPECT_EQ(records("msg.log").size(), 2u);
    EXPECT_EQ(records("trace.log"), std::vector<std::string>{"ERROR 8 both"});
}

TEST_F(FileHandlerTest, UnflushedRecordsArriveAtTheLatestWhenTheToolkitCloses) {
    open("file.msg.flush = NO\n");
    info("kept back");
    EXPECT_EQ(get("msg.log"), "");
    QlgCloseToolkit();
    EXPECT_EQ(lastRecord("msg.log"), "INFO  7 kept back");
}

struct BadPlace {
    const char* name;
    void (*make)(const fs::path&);
};

class BadPlaceTest : public QlogFixture, public testing::WithParamInterface<BadPlace> {};

// A pipe would hang the host, a device would be renamed by rotation.
INSTANTIATE_TEST_SUITE_P(
    Files, BadPlaceTest,
    testing::Values(BadPlace{"parentIsAFile",
                             [](const fs::path& p) {
                                 fs::copy_file("/proc/self/comm", p.parent_path());
                             }},
                    BadPlace{"isAFolder", [](const fs::path& p) { fs::create_directories(p); }},
                    BadPlace{"isAPipe",
                             [](const fs::path& p) {
                                 fs::create_directories(p.parent_path());
                                 ASSERT_EQ(::mkfifo(p.c_str(), 0600), 0);
                             }},
                    BadPlace{"isADevice",
                             [](const fs::path& p) {
                                 fs::create_directories(p.parent_path());
                                 fs::create_symlink("/dev/null", p);
                             }}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(BadPlaceTest, CostsOneLineOnStandardErrorAndTheRecords) {
    const fs::path place = path("place/x.log");
    GetParam().make(place);
    open("file.msg.fileName = " + place.string() + "\nfile.msg.maxFileSizeKB = 1\n");
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    const std::string text(300, 'x');
    for (int i = 0; i < 10; ++i) QlgLogError(logger_, nullptr, 1, 7, "%s", 507, text.c_str(), 0);
    const std::string complaint = testing::internal::GetCapturedStderr();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
    EXPECT_NE(complaint.find(place.string()), std::string::npos) << complaint;

    // A better name helps at once.
    QlgSetObjProp(QlgGetObject("file.msg", nullptr), "fileName", path("good.log").c_str());
    QlgLogError(logger_, nullptr, 1, 7, "good", 0);
    EXPECT_EQ(lastRecord("good.log"), "ERROR 7 good");
}

TEST_F(FileHandlerTest, ABlockedRotationLosesRecordsAndNothingElse) {
    open("file.msg.maxFileSizeKB = 1\nfile.msg.maxFiles = 1\n");
    fs::create_directory(path("msg.1.log"));  // rotation cannot take this name
    put("msg.1.log/keep", "x");
    testing::internal::CaptureStderr();
    const std::string text(600, 'x');
    for (int i = 0; i < 5; ++i) info(text.c_str());
    const std::string complaint = testing::internal::GetCapturedStderr();
    EXPECT_LE(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
    EXPECT_EQ(get("msg.1.log/keep"), "x");
    EXPECT_LE(fs::file_size(path("msg.log")), 2048u);
}

TEST_F(FileHandlerTest, AHandlerWithoutAFileNameWritesNothing) {
    open("file.msg.fileName =\n");
    testing::internal::CaptureStderr();
    info("nowhere");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(property(QlgGetObject("file.msg", nullptr), "fileName"), "");
}

}  // namespace
