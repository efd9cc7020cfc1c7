#include "foundation/VeloraBase.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "foundation/JniEdge.h"
#include "foundation/Messages.h"
#include "foundation/VelException.h"
#include "foundation/VelTracer.h"
#include "support/VelFixture.h"

namespace {

class VeloraBaseTest : public VelFixture {};

struct Named : VeloraBase {
    explicit Named(const char* name) : VeloraBase(name) {}
    [[nodiscard]] std::string name() const { return clsName_; }
};

TEST_F(VeloraBaseTest, CopiesOwnTheirName) {
    Named first("ThreadMgr");
    Named copy(first);
    Named other("PropertyMgr");
    other = first;
    const Named& self = other;
    other = self;
    first = Named("gone");
    EXPECT_EQ(copy.name() + other.name() + first.name(), "ThreadMgrThreadMgrgone");
}

TEST_F(VeloraBaseTest, InfoWarnAndErrorGoToTheTracerWhateverTheDebugDepth) {
    traceFrom(QLG_LEVEL_INFO);
    const Named base("ThreadMgr");
    base._logInfo("ThreadMgr.cpp", 12, "50% done, %s");
    base._logWarn("ThreadMgr.cpp", 13, "w");
    base._logError("ThreadMgr.cpp", 14, nullptr);
    base._log("ThreadMgr.cpp", 15, "not seen");
    const auto lines = qlog.lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].text, "[ThreadMgr (ThreadMgr.cpp@12)] 50% done, %s \n");
    EXPECT_EQ(lines[0].level, QLG_LEVEL_INFO);
    EXPECT_EQ(lines[1].level, QLG_LEVEL_WARN);
    EXPECT_EQ(lines[2].text, "[ThreadMgr (ThreadMgr.cpp@14)]  \n");
    EXPECT_EQ(lines[2].level, QLG_LEVEL_ERROR);
    for (const auto& line : lines) {
        EXPECT_EQ(line.object, qTracer.load());
        EXPECT_EQ(line.catalogue + std::to_string(line.set) + std::to_string(line.number), "00");
    }
}

TEST_F(VeloraBaseTest, DebugLinesCarryTheRawMessageAtTheirDepth) {
    const Named base("ThreadMgr");
    base._log("a.cpp", 1, "low %s");
    base._logDebug("a.cpp", 2, "not seen");
    traceFrom(kDebugMax);
    base._logDebug("a.cpp", 3, "high");
    const auto lines = qlog.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "low %s");
    EXPECT_EQ(lines[0].level, QLG_LEVEL_DEBUG_MIN);
    EXPECT_EQ(lines[0].file + std::to_string(lines[0].line), "a.cpp1");
    EXPECT_EQ(lines[1].text, "high");
    EXPECT_EQ(lines[1].level, QLG_LEVEL_DEBUG_MAX);
}

TEST_F(VeloraBaseTest, TracesEntryAndEveryWayOut) {
    traceFrom(kDebugMid);
    const auto traced = [](bool early) {
        VEL_TRACE("traced(bool)");
        if (early) return 1;
        return 2;
    };
    traced(true);
    std::vector<std::string> texts;
    for (const auto& line : qlog.lines()) texts.push_back(line.function + " " + line.text);
    EXPECT_EQ(texts, (std::vector<std::string>{"traced(bool) entry", "traced(bool) exit"}));
}

TEST_F(VeloraBaseTest, NothingIsTracedBeforeTheToolkitIsUp) {
    traceThreshold.store(INT_MAX);
    qTracer.store(nullptr);
    qLogger.store(nullptr);
    EXPECT_FALSE(traceOn(kDebugMin));
    Named("x")._logError("a.cpp", 1, "nobody hears");
    logMessage(msg::kPropertyMgrStarted);
    EXPECT_TRUE(qlog.lines().empty());
}

TEST_F(VeloraBaseTest, AnExceptionLogsItselfOnce) {
    try {
        throw VelException("out of %d monitors");
    } catch (const VelException& e) {
        EXPECT_STREQ(e.getMessage(), "out of %d monitors");
        VelException copy(e);
        copy = e;
        EXPECT_STREQ(copy.getMessage(), "out of %d monitors");
    }
    ASSERT_EQ(qlog.lines().size(), 1U);
    EXPECT_TRUE(qlog.logged("[VelException (VelException.cpp@"));
    EXPECT_TRUE(qlog.logged(")] out of %d monitors \n"));
    EXPECT_STREQ(VelException(nullptr).getMessage(), "");
}

TEST_F(VeloraBaseTest, ANativesFailureIsTurnedIntoItsAnswerAndToldOnce) {
    const auto failing = [](const char* native, int kind) {
        return atJniEdge(native, -1, [&]() -> int {
            if (kind == 0) throw std::bad_alloc();
            if (kind == 1) throw VelException("ours");
            throw 5;
        });
    };
    EXPECT_EQ(failing("first", 0), -1);
    EXPECT_EQ(failing("first", 2), -1);
    EXPECT_EQ(failing("second", 1), -1);
    EXPECT_EQ(failing("third", 2), -1);
    EXPECT_EQ(atJniEdge("fine", -1, [] { return 7; }), 7);
    std::vector<std::string> texts;
    for (const auto& line : qlog.messages(1102)) texts.push_back(line.text);
    EXPECT_EQ(texts,
              (std::vector<std::string>{"Native first failed and did nothing: std::bad_alloc",
                                        "Native second failed and did nothing: ours",
                                        "Native third failed and did nothing: unknown exception"}));
}

TEST(VelTracer, TellsItsStateOnStandardOutput) {
    testing::internal::CaptureStdout();
    VelTracer::initialize();
    EXPECT_FALSE(VelTracer::traceOn());
    EXPECT_EQ(VelTracer("x", 5).getValue(), 5);
    VelTracer::resetCounters();
    EXPECT_TRUE(VelTracer::traceOff());
    EXPECT_EQ(VelTracer("x", 5).getValue(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "## Running in default mode ## \n"
              "## Tracer Mode: Default State: true \n"
              "## Profile counters reset done"
              "## Tracer Mode: Default State: false \n");
}

}  // namespace
