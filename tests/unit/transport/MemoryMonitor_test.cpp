#include "transport/MemoryMonitor.h"

#include <tuple>

#include "TransportFixture.h"
#include "agent/ProbeMgr.h"
#include "event/GateBooks.h"
#include "foundation/PropertyMgr.h"

namespace {

class MemoryMonitorTest : public TransportFixture {
protected:
    MemoryMonitor* started() {
        MemoryMonitor* const monitor = MemoryMonitor::getInstance();
        monitor->start();
        return monitor;
    }
    static void enableProbe() {
        ProbeMgr::setEventMgrReady(true);
        ProbeMgr::setNetworkMgrReady(true);
    }
};

struct LimitCase {
    const char* name;
    const char* limitMb;      // null: not set
    const char* thresholdMb;  // null: not set
    unsigned long limit;
    unsigned long delta;
    bool told;  // message 1051
};

class MemoryLimits : public MemoryMonitorTest, public testing::WithParamInterface<LimitCase> {};

TEST_P(MemoryLimits, AreReadInMegabytesAndKeptSane) {
    const LimitCase& wanted = GetParam();
    if (wanted.limitMb != nullptr) set("internal.memory.limit", wanted.limitMb);
    if (wanted.thresholdMb != nullptr) set("internal.memory.accept.threshold", wanted.thresholdMb);
    started();
    EXPECT_EQ(MemoryMonitor::getMemoryULimit(), wanted.limit);
    EXPECT_EQ(MemoryMonitor::getAcceptDelta(), wanted.delta);
    EXPECT_EQ(qlog.messages(1051).size(), wanted.told ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, MemoryLimits,
    testing::Values(LimitCase{"defaults", nullptr, nullptr, 60000000, 2000000, false},
                    LimitCase{"belowTheLeast", "3", nullptr, 4000000, 0, true},
                    LimitCase{"theLeastItself", "4", nullptr, 4000000, 0, true},
                    LimitCase{"negative", "-7", "1", 4000000, 0, true},
                    LimitCase{"thresholdAboveTheSpan", nullptr, "70", 60000000, 28000000, false},
                    LimitCase{"thresholdNegative", "10", "-3", 10000000, 0, false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(MemoryMonitorTest, TellsTheLeastLimitInBytesAndThePropertiesWithTheirBlank) {
    set("internal.memory.limit", "3");
    started();
    EXPECT_EQ(qlog.messages(1051).at(0).text,
              "Ignoring user specified Memory Limit as it's less than minimum limit, 4000000 MB");
    EXPECT_EQ(qlog.messages(1052).at(0).text,
              " Memory Monitor properties, ULimit 4000000 bytes, Accept Threshold 0 bytes, URL "
              "Limit: 1000, SQL Limit: 5000");
}

struct ResetCase {
    const char* name;
    const char* resetSec;
    const char* periodMs;
    long passes;
};

class ResetTimer : public MemoryMonitorTest, public testing::WithParamInterface<ResetCase> {};

TEST_P(ResetTimer, CountsInWholePasses) {
    if (GetParam().resetSec != nullptr) set("internal.counter.resettime", GetParam().resetSec);
    if (GetParam().periodMs != nullptr)
        set("internal.probe.publishing.frequency", GetParam().periodMs);
    started();
    EXPECT_EQ(MemoryMonitor::getResetTimerCount(), GetParam().passes);
}

INSTANTIATE_TEST_SUITE_P(Settings, ResetTimer,
                         testing::Values(ResetCase{"defaults", nullptr, nullptr, 1800},
                                         ResetCase{"negativeTime", "-5", nullptr, 0},
                                         ResetCase{"periodBelowOneSecond", "100", "300", 100},
                                         ResetCase{"periodZero", "100", "0", 100},
                                         ResetCase{"cutNotRounded", "100", "3999", 33}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(MemoryMonitorTest, StopsAtTheLimitAndResumesOnlyTheDistanceBelow) {
    MemoryMonitor* const monitor = started();
    const unsigned long fixed = 4000000;
    const auto at = [&](unsigned long estimate) {
        monitor->checkForULimit(estimate - fixed);
        EXPECT_EQ(monitor->getMemoryTaken(), estimate);
        return MemoryMonitor::isULimitReached();
    };
    EXPECT_FALSE(at(59999999));
    EXPECT_TRUE(at(60000000));
    EXPECT_TRUE(at(61000000));
    EXPECT_TRUE(at(58000001));
    EXPECT_FALSE(at(58000000));
    EXPECT_FALSE(at(59999999));
    EXPECT_EQ(qlog.messages(1054).size(), 1u);
    EXPECT_EQ(qlog.messages(1055).at(0).text,
              "Memory Utlization below Limit, datacollector is accepting data, Limit: 60000000 "
              "Memory Utilization: 58000000");
}

TEST_F(MemoryMonitorTest, TheBytesReallyHeldCloseTheGateAsWell) {
    MemoryMonitor* const monitor = started();
    monitor->checkForULimit(1000000, nullptr, 54999999);
    EXPECT_FALSE(MemoryMonitor::isULimitReached());
    monitor->checkForULimit(1000000, nullptr, 55000000);
    EXPECT_TRUE(MemoryMonitor::isULimitReached());
    EXPECT_EQ(monitor->getMemoryTaken(), 5000000u) << "the estimate is shown as ever";
    EXPECT_EQ(qlog.messages(1128).size(), 1u);
    monitor->checkForULimit(1000000, nullptr, 53000001);
    EXPECT_TRUE(MemoryMonitor::isULimitReached());
    monitor->checkForULimit(1000000, nullptr, 53000000);
    EXPECT_FALSE(MemoryMonitor::isULimitReached());
}

TEST_F(MemoryMonitorTest, TurnedAwayCallsAreToldOnceAMinute) {
    static OncePerMinute::Clock::time_point at;
    OncePerMinute::now = [] { return at; };
    MemoryMonitor* const monitor = started();
    for (int second = 0; second <= 60; second += 20) {
        GateBooks::noteCalls(5);
        at += std::chrono::seconds(20);
        monitor->checkForULimit(60000000);
    }
    OncePerMinute::now = [] { return OncePerMinute::Clock::now(); };
    ASSERT_EQ(qlog.messages(1122).size(), 2u);
    EXPECT_EQ(qlog.messages(1122)[1].text,
              "Capture was stopped by the memory limit: 15 calls made no event");
}

TEST_F(MemoryMonitorTest, TheAveragesFreezeAtThe254thSample) {
    started();
    EXPECT_EQ(MemoryMonitor::getRequestSize(), 188);
    EXPECT_EQ(MemoryMonitor::getSQLSize(), 1072);
    for (int i = 0; i < 253; ++i) MemoryMonitor::httpEJBRequest(50);
    EXPECT_FALSE(MemoryMonitor::avgURLCalculated());
    EXPECT_EQ(MemoryMonitor::getRequestSize(), 188);
    MemoryMonitor::httpEJBRequest(50 + 254);
    EXPECT_TRUE(MemoryMonitor::avgURLCalculated());
    EXPECT_EQ(MemoryMonitor::getRequestSize(), 88 + 51);
    MemoryMonitor::httpEJBRequest(30000);
    EXPECT_EQ(MemoryMonitor::getRequestSize(), 88 + 51);
    EXPECT_FALSE(MemoryMonitor::avgSQLCalculated());
    for (int i = 0; i < 254; ++i) MemoryMonitor::sqlRequest(65535);
    EXPECT_EQ(MemoryMonitor::getSQLSize(), INT16_MAX) << "a charge must not turn negative";
}

TEST_F(MemoryMonitorTest, CreditsTheCounterThatWasCharged) {
    ThreadData thread(env);
    for (const EventType type : {CLASS, METHOD, SQL, DROPPED}) {
        MemoryMonitor::addToMemCntr(type, 100, &thread);
        MemoryMonitor::delFromMemCntr(type, 100, &thread);
    }
    EXPECT_EQ(thread.jvmpiAddCounter_, 200u);
    EXPECT_EQ(thread.jvmpiDeleteCounter_, 200u);
    EXPECT_EQ(thread.jniAddCounter_, 200u);
    EXPECT_EQ(thread.jniDeleteCounter_, 200u);
}

// --- the gate ------------------------------------------------------------------------------------

TEST_F(MemoryMonitorTest, ADisabledProbeAnswersReachedAndQueuesNothing) {
    start();
    runEventAgent(0);
    ThreadData* const thread = newThread();
    EXPECT_TRUE(MemoryMonitor::reachedULimit(thread->getThreadId()));
    EXPECT_EQ(thread->getEvtQueue()->size(), 0);
}

TEST_F(MemoryMonitorTest, OneMarkerPerThreadAndStopAndEveryCallCounted) {
    runAll();
    ThreadData* const thread = newThread();
    JNIEnv* const caller = thread->getThreadId();
    MemoryMonitor* const monitor = memMon_.load();
    EXPECT_FALSE(MemoryMonitor::reachedULimit(caller));

    for (int stop = 1; stop <= 2; ++stop) {
        monitor->checkForULimit(60000000);
        for (int i = 0; i < 5; ++i) EXPECT_TRUE(MemoryMonitor::reachedULimit(caller));
        EXPECT_EQ(thread->getEvtQueue()->size(), stop);
        monitor->checkForULimit(0);
        EXPECT_FALSE(MemoryMonitor::reachedULimit(caller));
        EXPECT_FALSE(thread->dropRecordsFlag_);
    }
    EXPECT_TRUE(qlog.messages(1122).empty()) << "told once the agent has looked at its threads";
    gate.step("e0");
    EXPECT_EQ(qlog.messages(1122).at(0).text,
              "Capture was stopped by the memory limit: 10 calls made no event");
}

TEST_F(MemoryMonitorTest, AThreadWithoutARecordGetsNoneWhileTheGateIsClosed) {
    runAll();
    memMon_.load()->checkForULimit(60000000);
    const int records = ThreadMgr::getInstance()->getThreadCount();
    EXPECT_TRUE(MemoryMonitor::reachedULimit(jni.newEnv()));
    EXPECT_EQ(ThreadMgr::getInstance()->getThreadCount(), records);
    memMon_.load()->stop();
    EXPECT_EQ(qlog.messages(1122).size(), 1u) << "the call is told at the stop";
}

TEST_F(MemoryMonitorTest, TheOpenGateTakesNoLock) {
    runAll();
    JNIEnv* const caller = newThread()->getThreadId();
    vm.resetCounts();
    for (int i = 0; i < 100; ++i) EXPECT_FALSE(MemoryMonitor::reachedULimit(caller));
    EXPECT_EQ(vm.counts().enter, 0);
}

}  // namespace
