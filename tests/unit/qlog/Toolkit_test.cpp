// Objects, levels, configuration.
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "QlogFixture.h"

namespace {

std::atomic<long> aheadSeconds{0};  // of the steady clock as the toolkit reads it

}  // namespace

// Takes the place of the C library's, so that a rule of five seconds needs no sleep.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const long answer = ::syscall(SYS_clock_gettime, clock, time);
    if (clock == CLOCK_MONOTONIC) time->tv_sec += aheadSeconds;
    return static_cast<int>(answer);
}

namespace {

class ToolkitTest : public QlogFixture {};

// Every operation with nothing to work on.
void callEverything(QlgHandle object) {
    int exists = 7;
    EXPECT_EQ(QlgGetObjProp(object, "level", &exists), nullptr);
    EXPECT_EQ(exists, 0);
    EXPECT_EQ(QlgGetObjProp(object, "level", nullptr), nullptr);
    QlgSetObjProp(object, "level", "INFO");
    QlgSetObjPropInt(object, "level", 0);
    EXPECT_FALSE(QlgIsLoggable(object, QLG_LEVEL_FATAL));
    QlgLogDebugMax(object, "f", "g", 1, "%s", 507, "a", 0);
    QlgLogDebugMid(object, nullptr, nullptr, 1, nullptr, 0);
    QlgLogDebugMin(object, "f", "g", 1, "", 0);
    QlgLogInfo(object, "c", 1, 1, "%s", 507, "a", 0);
    QlgLogWarn(object, nullptr, 1, 1, nullptr, 0);
    QlgLogError(object, "c", 1, 1, "", 0);
    QlgLogFatal(object, "c", 1, 1, "", 0);
    QlgLogText(object, "text", 0);
    QlgLogText(object, nullptr, 0);
    EXPECT_EQ(QlgFFDCTriggerHandlerGetBaseDir(object), nullptr);
    EXPECT_EQ(QlgFileCopyHandlerGetFiles(object), nullptr);
    QlgFFDCTriggerHandlerSetBaseDir(object, "/nowhere");
    QlgFileCopyHandlerSetFiles(object, nullptr);
    QlgReleaseObject(object);
}

TEST_F(ToolkitTest, NothingHappensWithoutAConfiguration) {
    EXPECT_EQ(QlgOpenToolkit(nullptr), 0);
    EXPECT_EQ(QlgOpenToolkit(path("missing.properties").c_str()), 0);
    EXPECT_EQ(QlgOpenToolkit(dir_.c_str()), 0);
    EXPECT_EQ(QlgGetObject("log.msg", nullptr), nullptr);
    EXPECT_EQ(QlgGetObject(nullptr, nullptr), nullptr);
    QlgInitFFDCExtensions();
    callEverything(nullptr);
    QlgCheckConfiguration();
    QlgCloseToolkit();
    ZosMemoryFree(nullptr);
    zis_set_dir(nullptr);
}

TEST_F(ToolkitTest, HandlesOfAClosedToolkitAreSilentAndReviveWithIt) {
    open();
    QlgLogInfo(logger_, nullptr, 1, 7, "before", 0);
    QlgCloseToolkit();
    callEverything(logger_);
    EXPECT_EQ(records("msg.log"), std::vector<std::string>{"INFO  7 before"});

    const QlgHandle old = logger_;
    open();
    EXPECT_EQ(logger_, old);
    QlgLogInfo(old, nullptr, 1, 7, "after", 0);
    EXPECT_EQ(lastRecord("msg.log"), "INFO  7 after");
}

TEST_F(ToolkitTest, ObjectsAreFoundByNameAndType) {
    open();
    EXPECT_NE(QlgGetObject("file.msg", "qlg_filehandler"), nullptr);
    EXPECT_EQ(QlgGetObject("file.msg", nullptr), QlgGetObject("file.msg", "qlg_filehandler"));
    EXPECT_EQ(QlgGetObject("file.msg", "qlg_ffdchandler"), nullptr);
    EXPECT_EQ(QlgGetObject("file.other", nullptr), nullptr);
    EXPECT_NE(QlgGetObject("ffdc", nullptr), nullptr);
}

TEST_F(ToolkitTest, OpeningAgainReplacesTheConfiguration) {
    open("log.msg.level = ERROR\nextra.x = 1\n");
    const QlgHandle extra = QlgGetObject("extra", nullptr);
    ASSERT_NE(extra, nullptr);
    open("file.msg.fileName = " + path("second.log").string() + "\n");
    QlgLogInfo(logger_, nullptr, 1, 7, "here", 0);
    EXPECT_EQ(lastRecord("second.log"), "INFO  7 here");
    EXPECT_EQ(QlgGetObject("extra", nullptr), nullptr);
    callEverything(extra);
}

TEST_F(ToolkitTest, AFailedOpenKeepsTheOldConfiguration) {
    open();
    EXPECT_EQ(QlgOpenToolkit(path("missing.properties").c_str()), 0);
    QlgLogInfo(logger_, nullptr, 1, 7, "still here", 0);
    EXPECT_EQ(lastRecord("msg.log"), "INFO  7 still here");
}

TEST_F(ToolkitTest, PropertiesAreTrimmedExpandedAndKept) {
    const WithEnvironment variable("QLOG_TEST_ROOT", "/srv");
    const WithEnvironment none("QLOG_TEST_NONE", nullptr);
    open(
        "# file.msg.comment = 1\r\n ! file.msg.comment = 2\n"
        "  o.blank =  two words \t\r\n"
        "o.empty =\n"
        "o.equals = a=b\n"
        "o.twice = 1\no.twice = 2\n"
        "o.env = ${QLOG_TEST_ROOT:-/x}/${QLOG_TEST_NONE:-y}/${QLOG_TEST_NONE}z\n"
        "o.dir = ${config.dir}/..\n"
        "o.pid = ${pid}\n"
        "o.open = ${unclosed\n"
        "no equals sign\n = nothing\nnodot = 1\n.x = 1\no. = 1\n"
        "o.last = end");
    const QlgHandle o = QlgGetObject("o", nullptr);
    EXPECT_EQ(property(o, "blank"), "two words");
    EXPECT_EQ(property(o, "empty"), "");
    EXPECT_EQ(property(o, "equals"), "a=b");
    EXPECT_EQ(property(o, "twice"), "2");
    EXPECT_EQ(property(o, "env"), "/srv/y/z");
    EXPECT_EQ(property(o, "dir"), dir_.string() + "/..");
    EXPECT_EQ(property(o, "pid"), std::to_string(::getpid()));
    EXPECT_EQ(property(o, "open"), "${unclosed");
    EXPECT_EQ(property(o, "last"), "end");
    EXPECT_EQ(property(o, "missing"), "(none)");
    EXPECT_EQ(property(QlgGetObject("file.msg", nullptr), "comment"), "(none)");
    QlgSetObjProp(o, "missing", "set");
    QlgSetObjPropInt(o, "number", -5);
    EXPECT_EQ(property(o, "missing"), "set");
    EXPECT_EQ(property(o, "number"), "-5");
}

struct LevelCase {
    const char* name;
    const char* text;
    int level;
};

class LevelTest : public QlogFixture, public testing::WithParamInterface<LevelCase> {};

TEST_P(LevelTest, IsTheLowestThatIsLogged) {
    open("log.trace.level = " + std::string(GetParam().text) + "\n");
    EXPECT_TRUE(QlgIsLoggable(tracer_, GetParam().level));
    EXPECT_FALSE(QlgIsLoggable(tracer_, GetParam().level - 1));

    open();
    QlgSetObjProp(tracer_, "level", GetParam().text);
    EXPECT_TRUE(QlgIsLoggable(tracer_, GetParam().level));
    EXPECT_FALSE(QlgIsLoggable(tracer_, GetParam().level - 1));
}

INSTANTIATE_TEST_SUITE_P(
    Levels, LevelTest,
    testing::Values(LevelCase{"all", "ALL", 0}, LevelCase{"debugMax", "DEBUG_MAX", 1000},
                    LevelCase{"debugMid", "Debug_Mid", 2000},
                    LevelCase{"debugMin", "debug_min", 3000}, LevelCase{"info", "INFO", 4000},
                    LevelCase{"warn", "WARN", 5000}, LevelCase{"error", "ERROR", 6000},
                    LevelCase{"fatal", "FATAL", 7000}, LevelCase{"off", "OFF", 10000},
                    LevelCase{"number", " 2500 ", 2500}, LevelCase{"aboveOff", "19999", 19999},
                    LevelCase{"verySmall", "3", 3}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(ToolkitTest, LevelsDecideWhatIsWritten) {
    open("log.trace.level = DEBUG_MID\nlog.msg.level = ERROR\n");
    QlgLogDebugMax(tracer_, "a.cpp", "f()", 1, "max", 0);
    QlgLogDebugMid(tracer_, "a.cpp", "f()", 2, "mid %d", 502, 5, 0);
    QlgLogDebugMin(tracer_, "a.cpp", "f()", 3, "min", 0);
    EXPECT_EQ(records("trace.log"),
              (std::vector<std::string>{"MID   a.cpp:2 f() mid 5", "MIN   a.cpp:3 f() min"}));
    QlgLogText(logger_, "text", 0);
    QlgLogInfo(logger_, nullptr, 1, 7, "info", 0);
    QlgLogWarn(logger_, nullptr, 1, 7, "warn", 0);
    QlgLogError(logger_, nullptr, 1, 0, "error", 0);
    QlgLogFatal(logger_, nullptr, 1, 8, "fatal", 0);
    EXPECT_EQ(records("msg.log"), (std::vector<std::string>{"ERROR error", "FATAL 8 fatal"}));
    QlgSetObjPropInt(logger_, "level", QLG_LEVEL_OFF);
    QlgLogFatal(logger_, nullptr, 1, 8, "fatal again", 0);
    EXPECT_EQ(records("msg.log").size(), 2u);
}

TEST_F(ToolkitTest, AnUnusableLevelLeavesTheOldOneInForce) {
    open();
    QlgSetObjProp(logger_, "level", "WARN");
    QlgSetObjProp(logger_, "level", "LOUD");
    QlgSetObjProp(logger_, "level", "");
    EXPECT_TRUE(QlgIsLoggable(logger_, QLG_LEVEL_WARN));
    EXPECT_FALSE(QlgIsLoggable(logger_, QLG_LEVEL_INFO));
    EXPECT_EQ(property(logger_, "level"), "WARN");
}

TEST_F(ToolkitTest, UnusableSettingsAreReportedInTheLog) {
    open("file.msg.maxFiles = many\nlog.trace.level = LOUD\n");
    QlgSetObjProp(QlgGetObject("file.trace", nullptr), "fileName", path("t.log").c_str());
    QlgSetObjProp(QlgGetObject("file.trace", nullptr), "maxFileSizeKB", "0");
    QlgLogInfo(logger_, nullptr, 1, 7, "first", 0);
    const std::string setting = "WARN  Setting ";
    const std::string unusable = " has the unusable value ";
    EXPECT_EQ(records("msg.log"),
              (std::vector<std::string>{
                  setting + "file.msg.maxFiles" + unusable + "\"many\"; using 5 instead",
                  setting + "log.trace.level" + unusable + "\"LOUD\"; using 4000 instead",
                  setting + "file.trace.maxFileSizeKB" + unusable + "\"0\"; using 1 instead",
                  "INFO  7 first"}));
}

TEST_F(ToolkitTest, PlainTextIsWrittenAsGiven) {
    open();
    QlgLogText(logger_, "[Mgr (f@1)] %s %d\tas it is", 0);
    EXPECT_EQ(get("msg.log"), "[Mgr (f@1)] %s %d\tas it is\n");
}

std::atomic<int> levelChanges{0};
std::atomic<int> levelSeen{0};
QlgHandle listenedTo = nullptr;

void onLevelChange() {
    ++levelChanges;
    levelSeen = QlgIsLoggable(listenedTo, QLG_LEVEL_DEBUG_MID);
}

TEST_F(ToolkitTest, ListenerSeesEveryChangeOfALevel) {
    open();
    listenedTo = tracer_;
    QlgSetLevelListener(onLevelChange);
    EXPECT_EQ(levelChanges.exchange(0), 1);
    EXPECT_EQ(levelSeen, 0);
    QlgSetObjPropInt(tracer_, "level", QLG_LEVEL_DEBUG_MID);
    EXPECT_EQ(levelChanges.exchange(0), 1);
    EXPECT_EQ(levelSeen, 1);
    QlgSetObjProp(tracer_, "other", "1");
    EXPECT_EQ(levelChanges, 0);
    QlgCloseToolkit();
    EXPECT_EQ(levelChanges.exchange(0), 1);
    EXPECT_EQ(levelSeen, 0);
    open("log.trace.level = ALL\n");
    EXPECT_EQ(levelChanges.exchange(0), 1);
    EXPECT_EQ(levelSeen, 1);
    QlgSetLevelListener(nullptr);
    QlgSetObjPropInt(tracer_, "level", QLG_LEVEL_OFF);
    EXPECT_EQ(levelChanges, 0);
}

TEST_F(ToolkitTest, AnEditedLevelIsTakenOverAndNothingElse) {
    open();
    QlgSetObjProp(logger_, "level", "WARN");  // unchanged in the file, so it stays
    writeConfiguration(
        "log.trace.level = DEBUG_MIN\nfile.msg.fileName = " + path("other.log").string() + "\n");
    listenedTo = tracer_;
    QlgSetLevelListener(onLevelChange);
    levelChanges = 0;
    QlgCheckConfiguration();
    EXPECT_EQ(levelChanges, 1);
    QlgSetLevelListener(nullptr);
    EXPECT_TRUE(QlgIsLoggable(tracer_, QLG_LEVEL_DEBUG_MIN));
    EXPECT_FALSE(QlgIsLoggable(logger_, QLG_LEVEL_INFO));
    QlgLogWarn(logger_, nullptr, 1, 7, "where", 0);
    EXPECT_EQ(lastRecord("msg.log"), "WARN  7 where");

    writeConfiguration("");  // edited back
    aheadSeconds = 6;
    QlgCheckConfiguration();
    aheadSeconds = 0;
    EXPECT_FALSE(QlgIsLoggable(tracer_, QLG_LEVEL_DEBUG_MIN));
}

TEST_F(ToolkitTest, AForkedChildIsSilentAndUnharmed) {
    open();
    QlgLogInfo(logger_, nullptr, 1, 7, "parent", 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        QlgLogInfo(logger_, nullptr, 1, 7, "child", 0);
        QlgLogFatal(logger_, nullptr, 1, 7, "child", 0);
        QlgSetObjProp(logger_, "level", "ALL");
        QlgCloseToolkit();
        ::_exit(QlgOpenToolkit(path("test.properties").c_str()) == 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    QlgLogInfo(logger_, nullptr, 1, 7, "parent again", 0);
    EXPECT_EQ(records("msg.log"),
              (std::vector<std::string>{"INFO  7 parent", "INFO  7 parent again"}));
}

TEST_F(ToolkitTest, ThreadsLoseNothingWhileSettingsChange) {
    constexpr int kThreads = 4;
    constexpr int kEach = 300;
    open("file.msg.maxFiles = 1000\nfile.msg.maxFileSizeKB = 4\n");
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i) {
                QlgLogInfo(logger_, "none", 1, 7, "thread %d line %d", 502, t, 502, i, 0);
                QlgLogDebugMid(tracer_, "f", "g", i, "trace %d", 502, i, 0);
            }
            --running;
        });
    }
    const QlgHandle traceFile = QlgGetObject("file.trace", nullptr);
    for (int i = 0; running > 0; ++i) {
        QlgSetObjPropInt(tracer_, "level", i % 2 == 0 ? QLG_LEVEL_ALL : QLG_LEVEL_OFF);
        QlgSetObjProp(traceFile, "fileName", path("t" + std::to_string(i % 3)).c_str());
        property(traceFile, "fileName");
        QlgCheckConfiguration();
    }
    for (auto& thread : threads) thread.join();

    std::vector<int> seen(kThreads, 0);
    for (const auto& entry : std::filesystem::directory_iterator(dir_)) {
        const std::string name = entry.path().filename().string();
        if (name.compare(0, 3, "msg") != 0) continue;
        EXPECT_LE(entry.file_size(), 4096u) << name;
        for (const auto& record : records(name)) {
            int t = -1;
            int i = -1;
            ASSERT_EQ(std::sscanf(record.c_str(), "INFO  7 thread %d line %d", &t, &i), 2)
                << record;
            ++seen.at(static_cast<std::size_t>(t));
        }
    }
    EXPECT_EQ(seen, std::vector<int>(kThreads, kEach));
}

TEST_F(ToolkitTest, OpeningAndClosingWhileThreadsLogIsHarmless) {
    open();
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            while (!stop) {
                QlgLogWarn(logger_, "none", 1, 7, "x %s", 507, "y", 0);
                QlgLogText(logger_, "plain", 0);
                QlgIsLoggable(tracer_, 1000);
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(QlgOpenToolkit(path("test.properties").c_str()), 1);
        QlgCloseToolkit();
    }
    stop = true;
    for (auto& thread : threads) thread.join();
}

}  // namespace
