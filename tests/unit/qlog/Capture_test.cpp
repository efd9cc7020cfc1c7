// First-failure data capture: what a fatal message leaves behind.
#include <sys/stat.h>

#include <algorithm>

#include "QlogFixture.h"

namespace fs = std::filesystem;

namespace {

class CaptureTest : public QlogFixture {
protected:
    void open(const std::string& files, const std::string& moreLines = "") {
        QlogFixture::open("ffdc.baseDir = " + path("ffdc").string() + "\nffdc.files = " + files +
                          "\n" + moreLines);
        QlgInitFFDCExtensions();
    }
    void fatal() { QlgLogFatal(logger_, nullptr, 1, 7, "the end", 0); }
    // Names of the incident folders relative to the test's folder, oldest first.
    std::vector<std::string> incidents() const {
        std::vector<std::string> names;
        if (!fs::exists(path("ffdc"))) return names;
        for (const auto& entry : fs::directory_iterator(path("ffdc"))) {
            names.push_back("ffdc/" + entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(CaptureTest, FilesAreCopiedWithTheFatalLineInThem) {
    put("other.txt", "other");
    put("one.x", "1");
    put("two.x", "2");
    fs::create_directory(path("sub"));
    put("sub/one.x", "another one");
    open(path("msg.log").string() + "," + path("other.txt").string() + " , " +
             path("*.x").string() + " " + path("sub/one.x").string() + "," +
             path("missing.txt").string() + ",",
         "file.msg.flush = NO\n");
    fatal();
    ASSERT_EQ(incidents().size(), 1u);
    const std::string folder = incidents()[0] + "/";
    EXPECT_EQ(records(folder + "msg.log"), std::vector<std::string>{"FATAL 7 the end"});
    EXPECT_EQ(get(folder + "other.txt"), "other");
    EXPECT_EQ(get(folder + "one.x"), "1");
    EXPECT_EQ(get(folder + "two.x"), "2");
    EXPECT_EQ(get(folder + "one.x.2"), "another one");
    const std::string report = get(folder + "incident.txt");
    EXPECT_NE(report.find("FATAL 7 the end"), std::string::npos) << report;
    EXPECT_NE(report.find("missing " + path("missing.txt").string()), std::string::npos) << report;
    QlgCloseToolkit();
    EXPECT_EQ(lastRecord("msg.log"), "INFO  5 files copied to " + path(incidents()[0]).string());
}

TEST_F(CaptureTest, NothingLessThanFatalAndNothingUnlessEnabledCaptures) {
    QlogFixture::open("ffdc.baseDir = " + path("ffdc").string() + "\n");
    fatal();
    EXPECT_EQ(incidents().size(), 0u);
    QlgInitFFDCExtensions();
    QlgLogError(logger_, nullptr, 1, 7, "error", 0);
    EXPECT_EQ(incidents().size(), 0u);
    QlgSetObjPropInt(logger_, "level", QLG_LEVEL_OFF);
    fatal();
    EXPECT_EQ(incidents().size(), 0u);
    QlgSetObjPropInt(logger_, "level", QLG_LEVEL_FATAL);
    fatal();
    EXPECT_EQ(incidents().size(), 1u);
}

TEST_F(CaptureTest, HandlerSaysAndTakesFolderAndList) {
    open("a,b");
    const QlgHandle handler = QlgGetObject("ffdc", nullptr);
    char* base = QlgFFDCTriggerHandlerGetBaseDir(handler);
    char* files = QlgFileCopyHandlerGetFiles(handler);
    EXPECT_EQ(base, path("ffdc").string());
    EXPECT_STREQ(files, "a,b");
    ZosMemoryFree(base);
    ZosMemoryFree(files);

    put("x.txt", "x");
    QlgFFDCTriggerHandlerSetBaseDir(handler, path("elsewhere/deep").c_str());
    QlgFileCopyHandlerSetFiles(handler, (path("x.txt").string() + " ").c_str());
    fatal();
    EXPECT_EQ(incidents().size(), 0u);
    const fs::path folder = fs::directory_iterator(path("elsewhere/deep"))->path();
    EXPECT_TRUE(fs::exists(folder / "x.txt"));

    QlgFFDCTriggerHandlerSetBaseDir(handler, "");
    EXPECT_EQ(QlgFFDCTriggerHandlerGetBaseDir(handler), nullptr);
    fatal();
}

TEST_F(CaptureTest, OldIncidentsGoAndOtherFoldersStay) {
    open(path("x.txt").string(), "ffdc.maxIncidents = 3\n");
    const std::vector<std::string> strangers{"ffdc-notes", "ffdc-20250101-000000-000-x1",
                                             "ffdc-2025010a-000000-000-p1", "zffdc"};
    for (const auto& name : strangers) fs::create_directories(path("ffdc/" + name));
    fs::create_directories(path("target"));
    fs::create_directory_symlink(path("target"), path("ffdc/ffdc-20240101-000000-000-p1"));
    fs::create_directories(path("ffdc/ffdc-20250101-000000-000-p1-00/sub"));
    for (int i = 0; i < 4; ++i) {
        put("x.txt", std::to_string(i));
        fatal();
    }
    std::vector<std::string> contents;
    for (const auto& folder : incidents()) {
        const std::string text = get(folder + "/x.txt");
        if (!text.empty()) contents.push_back(text);
    }
    EXPECT_EQ(contents, (std::vector<std::string>{"1", "2", "3"}));
    for (const auto& name : strangers) EXPECT_TRUE(fs::exists(path("ffdc/" + name))) << name;
    EXPECT_TRUE(fs::is_symlink(path("ffdc/ffdc-20240101-000000-000-p1")));
    EXPECT_FALSE(fs::exists(path("ffdc/ffdc-20250101-000000-000-p1-00")));
}

TEST_F(CaptureTest, AStormOfFatalMessagesCopiesOnce) {
    open(path("msg.log").string(), "ffdc.minSeconds = 3600\n");
    for (int i = 0; i < 5; ++i) fatal();
    EXPECT_EQ(incidents().size(), 1u);
}

TEST_F(CaptureTest, OfALongFileTheEndIsCopied) {
    put("long.txt", std::string(3000, 'a') + std::string(1024, 'b'));
    open(path("long.txt").string(), "ffdc.maxCopyKB = 1\n");
    fatal();
    ASSERT_EQ(incidents().size(), 1u);
    EXPECT_EQ(get(incidents()[0] + "/long.txt"), std::string(1024, 'b'));
}

TEST_F(CaptureTest, WhatCannotBeCopiedIsLeftOut) {
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    put("good.txt", "good");
    open(path("pipe").string() + "," + dir_.string() + ",/dev/zero,*[," +
         path("good.txt").string());
    fatal();
    ASSERT_EQ(incidents().size(), 1u);
    EXPECT_EQ(get(incidents()[0] + "/good.txt"), "good");
    EXPECT_FALSE(fs::exists(path(incidents()[0] + "/pipe")));
}

TEST_F(CaptureTest, AnUnusableFolderIsNobodysProblem) {
    put("file", "x");
    open(path("msg.log").string(), "ffdc.baseDir = " + path("file/below").string() + "\n");
    testing::internal::CaptureStderr();
    fatal();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(records("msg.log"), std::vector<std::string>{"FATAL 7 the end"});
}

}  // namespace
