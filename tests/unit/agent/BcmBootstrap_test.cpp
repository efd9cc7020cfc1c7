// Natives bound at run time.
#include <string>

#include "agent/MethodLevelModule.h"
#include "agent/velora.h"
#include "diagnostics/LockAgentMgr.h"
#include "diagnostics/heapdump.h"
#include "support/VelFixture.h"

namespace {

constexpr char kHelper[] = "com/velora/bcm/bootstrap/BcmBootstrapDefineHelper";
constexpr char kCanNot[] =
    "Can not register defineNativeMethodsForClassNative for "
    "com.velora.bcm.bootstrap.BcmBootstrap.class";

class BcmBootstrapTest : public VelFixture {
protected:
    void initDone(JNIEnv* on) {
        JVMPI_Event event{};
        event.event_type = JVMPI_EVENT_JVM_INIT_DONE;
        event.env_id = on;
        isJVMInitializationDone = true;
        registerBcmBootstrapNative(&event);
    }
    void define(const char* className) {
        jni.defineClass("the/Class");
        Java_com_velora_bcm_bootstrap_BcmBootstrap_defineNativeMethodsForClassNative(
            env, nullptr, jni.classRef("the/Class"), jni.string(className));
    }
    std::string registered() {
        std::string all;
        for (const auto& one : jni.registrations()) all += one.name + one.signature + " ";
        return all;
    }
};

TEST_F(BcmBootstrapTest, BeforeTheVmIsUpNothingHappens) {
    JVMPI_Event event{};
    event.env_id = env;
    registerBcmBootstrapNative(&event);
    EXPECT_EQ(jni.calls("FindClass"), 0);
    EXPECT_FALSE(isBcmBootstrapNativeRegistered);
}

TEST_F(BcmBootstrapTest, TheHelpersNativeIsBoundSilently) {
    jni.defineClass(kHelper);
    initDone(env);
    ASSERT_EQ(jni.registrations().size(), 1U);
    const auto bound = jni.registrations()[0];
    EXPECT_EQ(bound.className, kHelper);
    EXPECT_EQ(registered(),
              "defineNativeMethodsForClassNative(Ljava/lang/Class;Ljava/lang/String;)V ");
    EXPECT_TRUE(isBcmBootstrapNativeRegistered);
    EXPECT_FALSE(inRegisterBcmBootstrapNative);
    EXPECT_TRUE(qlog.lines().empty());
}

TEST_F(BcmBootstrapTest, AFailureIsReportedTheWrongWayRound) {
    jni.defineClass(kHelper);
    jni.setRegisterNativesResult(JNI_ERR);
    initDone(env);
    EXPECT_TRUE(qlog.logged(kCanNot));
    EXPECT_TRUE(qlog.messages(1082).empty());
    EXPECT_TRUE(isBcmBootstrapNativeRegistered) << "tried is enough";
}

TEST_F(BcmBootstrapTest, AFailureWithoutTraceIsReportedAsSuccess) {
    jni.defineClass(kHelper);
    jni.setRegisterNativesResult(JNI_ERR);
    traceFrom(QLG_LEVEL_OFF);
    initDone(env);
    EXPECT_EQ(qlog.messages(1082).size(), 1U);
}

TEST_F(BcmBootstrapTest, AMissingHelperIsReported) {
    initDone(env);
    EXPECT_EQ(qlog.messages(1083).size(), 1U);
    EXPECT_EQ(jni.described().size(), 1U);
    EXPECT_TRUE(isBcmBootstrapNativeRegistered);
}

TEST_F(BcmBootstrapTest, WithoutAnEnvironmentALaterEventTriesAgain) {
    jni.defineClass(kHelper);
    initDone(nullptr);
    EXPECT_TRUE(qlog.logged("Can not obtain JNIEnv pointer"));
    EXPECT_TRUE(qlog.logged(kCanNot));
    EXPECT_FALSE(isBcmBootstrapNativeRegistered);
    EXPECT_FALSE(inRegisterBcmBootstrapNative);
    initDone(env);
    EXPECT_EQ(jni.registrations().size(), 1U);
}

TEST_F(BcmBootstrapTest, EachRuntimeClassGetsItsNatives) {
    define("com.velora.probe.l3trace.BcmRuntime");
    EXPECT_EQ(registered(),
              "appendL3Event(BI)Z "
              "sendClassEventNative(ILjava/lang/String;[I[Ljava/lang/String;[Ljava/lang/String;)Z "
              "sendClassUnloadEventNative(ILjava/lang/String;[I)Z ");
    EXPECT_EQ(jni.registrations()[0].function,
              reinterpret_cast<void*>(Java_com_velora_probe_l3trace_BcmRuntime_appendL3Event));
    EXPECT_TRUE(qlog.logged(
        "Successfully registered native methods for com.velora.probe.l3trace.BcmRuntime"));
    EXPECT_EQ(jni.calls("RegisterNatives"), 1);
}

TEST_F(BcmBootstrapTest, TheHeapAndLockClassesToo) {
    define("com.velora.probe.heap.HeapAnalysisRuntime");
    define("com.velora.probe.lock.LockAnalysisRuntime");
    EXPECT_EQ(registered(),
              "nativeHeapAllocationStart(IILjava/lang/String;)V "
              "nativeHeapAllocationEnd(IILjava/lang/String;)V "
              "appendEvent(BLjava/lang/String;IBLjava/lang/String;Ljava/lang/String;II)Z ");
    EXPECT_EQ(jni.registrations()[2].function,
              reinterpret_cast<void*>(Java_com_velora_probe_lock_LockAnalysisRuntime_appendEvent));
}

TEST_F(BcmBootstrapTest, AnyOtherClassGetsNone) {
    define("com/velora/probe/l3trace/BcmRuntime");
    EXPECT_TRUE(jni.registrations().empty());
    EXPECT_TRUE(
        qlog.logged("No native method registration for class com/velora/probe/l3trace/BcmRuntime"));
    EXPECT_TRUE(qlog.logged("Successfully registered native methods for com/velora")) << "as ever";
}

TEST_F(BcmBootstrapTest, FailuresAreCleared) {
    jni.setRegisterNativesResult(JNI_ERR);
    define("com.velora.probe.lock.LockAnalysisRuntime");
    EXPECT_TRUE(
        qlog.logged("Native methods registration for class "
                    "com.velora.probe.lock.LockAnalysisRuntime failed"));
    jni.fail("GetStringUTFChars");
    define("com.velora.probe.lock.LockAnalysisRuntime");
    Java_com_velora_bcm_bootstrap_BcmBootstrap_defineNativeMethodsForClassNative(
        env, nullptr, nullptr, jni.string("x"));
    Java_com_velora_bcm_bootstrap_BcmBootstrap_defineNativeMethodsForClassNative(
        env, nullptr, jni.classRef("the/Class"), nullptr);
    EXPECT_EQ(jni.pending(env), "");
}

}  // namespace
