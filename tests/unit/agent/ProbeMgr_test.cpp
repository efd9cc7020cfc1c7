// The manager of managers: creation, start, stop and end of the others, levels, lists, readiness.
#include "agent/ProbeMgr.h"

#include <string>

#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "foundation/PropertyMgr.h"
#include "instrument/class.h"
#include "instrument/classfilter.h"
#include "support/TestHome.h"
#include "support/VelFixture.h"

extern "C" {
jboolean Java_com_velora_probe_ProbeUtils_customServiceStart(JNIEnv*, jobject);
void Java_com_velora_probe_ProbeUtils_customServiceShutDown(JNIEnv*, jobject);
void Java_com_velora_probe_ProbeController_startNativeProbe(JNIEnv*, jobject);
void Java_com_velora_probe_ProbeController_stopNativeProbe(JNIEnv*, jobject);
jint Java_com_velora_probe_ProbeController_getMonitoringLevel(JNIEnv*, jobject);
jboolean Java_com_velora_probe_ProbeController_setModLevel(JNIEnv*, jobject, jint);
jboolean Java_com_velora_probe_ProbeController_isNativeProbeEnabled(JNIEnv*, jobject);
jboolean Java_com_velora_probe_ProbeController_isJvmpiEnabled(JNIEnv*, jobject);
jboolean Java_com_velora_probe_ProbeController_restartOnToFromL1(JNIEnv*, jobject);
void Java_com_velora_probe_ProbeController_setIncludeExcludeList(JNIEnv*, jobject, jobjectArray,
                                                                 jobjectArray);
void Java_com_velora_probe_ProbeController_flushNativeProbe(JNIEnv*, jobject, jint);
}

namespace {

class ProbeMgrTest : public VelFixture {
protected:
    ProbeMgrTest() {
        setenv("am.home", home.path().c_str(), 1);
        setenv("am.nodename", "n1", 1);
        setenv("am.appserver", "s1", 1);
        jvmpi = nullptr;
        ProbeMgr::onLoadInitialize(vm.vm(), nullptr);
        traceFrom(kDebugMin);
        qlog.clearLines();
    }
    ~ProbeMgrTest() override { PropertyMgr::destroy(); }

    bool serviceStart() {
        return Java_com_velora_probe_ProbeUtils_customServiceStart(env, nullptr) == JNI_TRUE;
    }
    void serviceEnd() { Java_com_velora_probe_ProbeUtils_customServiceShutDown(env, nullptr); }
    std::string numbers() {
        std::string all;
        for (const FakeQlog::Line& line : qlog.lines())
            if (line.number != 0) all += std::to_string(line.number) + " ";
        return all;
    }
    bool enabled() {
        return Java_com_velora_probe_ProbeController_isNativeProbeEnabled(env, nullptr) == JNI_TRUE;
    }

    TestHome home;
};

TEST_F(ProbeMgrTest, TheServiceMakesEveryManager) {
    traceFrom(
        QLG_LEVEL_OFF);  // our own test of the level says no, the line is written all the same
    qlog.setProperty("logger.dc.trace", "level", "0");
    ASSERT_TRUE(serviceStart());
    EXPECT_TRUE(qlog.logged("Native Custom Service initializing... "));
    EXPECT_EQ(numbers(), "1016 1001 ");
    EXPECT_TRUE(lockMgr_ && propMgr_ && probMgr_ && memMon_ && naMgr_ && evtMgr_ && thrMgr_ &&
                visitor_);
    EXPECT_TRUE(class_list_lock && ClassSequenceLock && jclass_t::unLoadLock_);
    serviceEnd();
    EXPECT_FALSE(lockMgr_ || propMgr_ || probMgr_ || memMon_ || naMgr_ || evtMgr_ || thrMgr_ ||
                 visitor_);
    EXPECT_EQ(qlog.messages(1003).size(), 1U);
}

TEST_F(ProbeMgrTest, WithoutTheInterfaceThereIsNoService) {
    vm.refuseInterface = true;
    EXPECT_FALSE(serviceStart());
    EXPECT_EQ(numbers(), "1015 1002 ");
    EXPECT_EQ(Java_com_velora_probe_ProbeController_isJvmpiEnabled(env, nullptr), JNI_FALSE);
    ProbeMgr::getInstance()->start();
    EXPECT_EQ(numbers(), "1015 1002 1013 1012 ");
    ProbeMgr::destroy();
}

TEST_F(ProbeMgrTest, StartAndStopRunInTheirOrder) {
    ASSERT_TRUE(serviceStart());
    qlog.clearLines();
    Java_com_velora_probe_ProbeController_startNativeProbe(env, nullptr);
    EXPECT_EQ(numbers(), "1071 1052 1053 1066 1046 1072 1011 1004 ");
    for (const jint event : {33, 34, 60, 61}) EXPECT_TRUE(vm.isEnabled(event)) << event;
    EXPECT_EQ(vm.interface()->NotifyEvent != nullptr, true);
    EXPECT_NE(class_hash, nullptr);
    EXPECT_NE(method_hash, nullptr);

    ThreadMgr::getInstance()->createSpecialEventQueue(env)->countGatedCall();
    qlog.clearLines();
    vm.resetCounts();
    Java_com_velora_probe_ProbeController_stopNativeProbe(env, nullptr);
    EXPECT_EQ(numbers(), "1014 1067 1047 1073 1122 1005 ") << "a thread's last calls are told, too";
    EXPECT_TRUE(qlog.logged("Waiting for 10 secs"));
    EXPECT_TRUE(qlog.logged("Waiting DONE 10 secs"));
    EXPECT_EQ(vm.waitedMs(), 10000);
    for (const jint event : {33, 34, 60, 61}) EXPECT_FALSE(vm.isEnabled(event)) << event;
    serviceEnd();
}

TEST_F(ProbeMgrTest, ASecondServiceKeepsTheTables) {
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(serviceStart());
        Java_com_velora_probe_ProbeController_startNativeProbe(env, nullptr);
        static jclass_t** const first = class_hash;
        EXPECT_EQ(class_hash, first);
        Java_com_velora_probe_ProbeController_stopNativeProbe(env, nullptr);
        serviceEnd();
    }
}

TEST_F(ProbeMgrTest, TheProbeIsEnabledOnceBothManagersAreReady) {
    EXPECT_FALSE(enabled());
    ProbeMgr::setNetworkMgrReady(true);
    EXPECT_FALSE(enabled());
    ProbeMgr::setEventMgrReady(true);
    EXPECT_TRUE(enabled());
    ProbeMgr::setNetworkMgrReady(false);
    EXPECT_TRUE(enabled()) << "nothing here disables it again";
    ASSERT_TRUE(serviceStart());
    Java_com_velora_probe_ProbeController_stopNativeProbe(env, nullptr);
    EXPECT_FALSE(enabled());
    ProbeMgr::setNetworkMgrReady(true);
    EXPECT_TRUE(enabled());
    serviceEnd();
    EXPECT_FALSE(enabled());
}

// A probe that is stopped while its agents' threads are still coming up.
TEST_F(ProbeMgrTest, AgentsThatComeUpDuringAStopDoNotOutliveIt) {
    ASSERT_TRUE(serviceStart());
    vm.interface()->RawMonitorWait = [](JVMPI_RawMonitor, jlong) {
        ProbeMgr::setNetworkMgrReady(true);
        ProbeMgr::setEventMgrReady(true);
    };
    Java_com_velora_probe_ProbeController_stopNativeProbe(env, nullptr);
    EXPECT_FALSE(enabled());
    serviceEnd();
}

TEST_F(ProbeMgrTest, LevelsAreCheckedAndMirrored) {
    const auto set = [this](jint level) {
        return Java_com_velora_probe_ProbeController_setModLevel(env, nullptr, level) == JNI_TRUE;
    };
    EXPECT_FALSE(set(3)) << "disabled";
    EXPECT_EQ(ProbeMgr::getProbeLevel(), 2);
    ProbeMgr::setEventMgrReady(true);
    ProbeMgr::setNetworkMgrReady(true);
    EXPECT_FALSE(set(2));
    EXPECT_TRUE(qlog.logged("Current Native MOD level is same as new level"));
    for (const jint wrong : {0, 4, 1000, 1004, -1}) EXPECT_FALSE(set(wrong)) << wrong;
    EXPECT_TRUE(qlog.logged("Incorrect MOD level given (4) rejecting, current MOD level 2"));
    EXPECT_TRUE(set(1003));
    EXPECT_TRUE(qlog.logged("Native MOD level changed from (2) to (3)"));
    EXPECT_TRUE(qlog.logged("L3 is handled in Java now ..."));
    EXPECT_EQ(probe_level, 3);
    EXPECT_EQ(Java_com_velora_probe_ProbeController_getMonitoringLevel(env, nullptr), 1003);
    qlog.clearLines();
    EXPECT_TRUE(set(1));
    EXPECT_TRUE(qlog.logged("L3 is handled in Java now ..."));
    qlog.clearLines();
    EXPECT_TRUE(set(2));
    EXPECT_FALSE(qlog.logged("L3 ")) << "method tracing changes only to and from 3";
    PropertyMgr::getInstance()->putProperty("internal.disableL3", "yes");
    EXPECT_TRUE(set(3));
    EXPECT_TRUE(qlog.logged("L3 disabled, not enabling/disabling method events"));
}

TEST_F(ProbeMgrTest, ListsReplaceEachOtherAndAreReapplied) {
    const auto set = [this](jobjectArray include, jobjectArray exclude) {
        Java_com_velora_probe_ProbeController_setIncludeExcludeList(env, nullptr, include, exclude);
    };
    traceFrom(kDebugMid);
    set(jni.stringArray({"org/acme/A*"}), jni.stringArray({"org/*", nullptr, "net/*"}));
    EXPECT_TRUE(qlog.logged("Include List: org/acme/A*"));
    EXPECT_TRUE(qlog.logged("Exclude List: net/*"));
    EXPECT_EQ(isClassFiltered("org/acme/A1"), kInstrumentClass);
    EXPECT_EQ(isClassFiltered("org/acme/B"), kFilteredOut);
    EXPECT_EQ(isClassFiltered("net/B"), kInstrumentClass) << "a null element ends the list";
    EXPECT_EQ(jni.localRefs(env), 0);
    set(nullptr, nullptr);
    ASSERT_NE(include_list.load(), nullptr);
    EXPECT_EQ(include_list.load()[0], nullptr);
    EXPECT_EQ(isClassFiltered("org/acme/B"), kInstrumentClass);
}

TEST_F(ProbeMgrTest, TracingModes) {
    struct Mode {
        const char* text;  // null: not set
        int level;
        const char* message;
        int mode;
        const char* appList;
        bool restart;
    };
    for (const Mode& m :
         {Mode{nullptr, 2, "Using tracing mode new(1001), and mod level is 2", 1001,
               "Using AppList", false},
          Mode{"Classic", 2, "Using tracing mode Classic(1000), and mod level is 2", 1000, "",
               true},
          Mode{"HYBRID", 2, "Using tracing mode HYBRID(1002), and mod level is 2", 1002,
               "Using AppList", true},
          Mode{"hybrid", 1, "Using tracing mode hybrid(1002), and mod level is 1", 1002, "", true},
          Mode{"odd", 1, "Using tracing mode odd(1002), and mod level is 1", 1002, "", true},
          Mode{"new", 1, "Using tracing mode new(1001), and mod level is 1", 1001, "Using AppList",
               false}}) {
        qlog.clearLines();
        if (m.text != nullptr)
            PropertyMgr::getInstance()->putProperty("internal.tracing.mode", m.text);
        probe_level = m.level;
        ProbeMgr::setTracingMode();
        ASSERT_EQ(qlog.messages(1018).size(), 1U);
        EXPECT_EQ(qlog.messages(1018)[0].text, m.message);
        EXPECT_EQ(cy_tracing_mode, m.mode);
        EXPECT_EQ(qlog.logged("Using AppList"), m.appList[0] != '\0') << m.message;
        EXPECT_EQ(Java_com_velora_probe_ProbeController_restartOnToFromL1(env, nullptr) == JNI_TRUE,
                  m.restart)
            << m.message;
    }
    PropertyMgr::getInstance()->putProperty("internal.use.applist", "no");
    ProbeMgr::setTracingMode();
    EXPECT_TRUE(qlog.logged("No App list created"));
}

TEST_F(ProbeMgrTest, AFlushWithoutAServiceDoesNothing) {
    Java_com_velora_probe_ProbeController_flushNativeProbe(env, nullptr, 1000);
    EXPECT_EQ(vm.waitedMs(), 0);
}

}  // namespace
