// The fakes themselves: a test double that overlooks a mistake lets every other test overlook it.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/FakeJni.h"
#include "support/FakeJvmpi.h"

namespace {

class FakeVmTest : public ::testing::Test {
protected:
    FakeJvmpi vm;
    FakeJni jni{vm};
    JNIEnv* env = jni.env();
    JVMPI_Interface& pi = *vm.interface();
};

using Texts = std::vector<std::string>;

TEST_F(FakeVmTest, MonitorMistakesAreNoticed) {
    char name[] = "m";
    JVMPI_RawMonitor const monitor = pi.RawMonitorCreate(name);
    pi.RawMonitorEnter(monitor);
    std::thread([&] {
        pi.RawMonitorExit(monitor);
        pi.RawMonitorWait(monitor, 5);
        pi.RawMonitorNotifyAll(monitor);
    }).join();
    EXPECT_EQ(vm.heldMonitors(), Texts{"m"});
    pi.RawMonitorDestroy(monitor);
    pi.RawMonitorEnter(monitor);
    pi.RawMonitorEnter(nullptr);
    EXPECT_EQ(
        vm.violations(),
        (Texts{"exit by a thread that does not hold m", "wait by a thread that does not hold m",
               "notify by a thread that does not hold m", "destroy of the held monitor m",
               "enter of the destroyed monitor m", "enter of a null monitor"}));
}

TEST_F(FakeVmTest, AWaitLetsOthersInAndComesBackAsDeepAsBefore) {
    char name[] = "m";
    JVMPI_RawMonitor const monitor = pi.RawMonitorCreate(name);
    vm.onWait = [&](const std::string&, jlong) {
        std::thread([&] {
            pi.RawMonitorEnter(monitor);
            pi.RawMonitorExit(monitor);
        }).join();
    };
    pi.RawMonitorEnter(monitor);
    pi.RawMonitorEnter(monitor);
    pi.RawMonitorWait(monitor, 30000);
    pi.RawMonitorExit(monitor);
    EXPECT_EQ(vm.heldMonitors(), Texts{"m"});
    pi.RawMonitorExit(monitor);
    EXPECT_EQ(vm.heldMonitors(), Texts());
    EXPECT_EQ(vm.waitedMs(), 30000);
    EXPECT_EQ(vm.violations(), Texts());
}

TEST_F(FakeVmTest, AnswersGetEnvLikeAVm) {
    void* answer = nullptr;
    EXPECT_EQ(vm.vm()->GetEnv(&answer, JVMPI_VERSION_1), JNI_OK);
    EXPECT_EQ(answer, &pi);
    EXPECT_EQ(vm.vm()->GetEnv(&answer, JNI_VERSION_1_6), JNI_OK);
    EXPECT_EQ(answer, env);
    std::thread([&] {
        void* none = nullptr;
        EXPECT_EQ(vm.vm()->GetEnv(&none, JNI_VERSION_1_6), JNI_EDETACHED);
    }).join();
    vm.refuseInterface = true;
    EXPECT_LT(vm.vm()->GetEnv(&answer, JVMPI_VERSION_1), 0);
}

TEST_F(FakeVmTest, EventsReachTheAgentOnlyWhenEnabled) {
    static int heard;
    heard = 0;
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_THREAD_START;
    pi.EnableEvent(JVMPI_EVENT_THREAD_START, nullptr);
    EXPECT_FALSE(vm.send(event));  // nobody listens
    pi.NotifyEvent = [](JVMPI_Event*) { ++heard; };
    EXPECT_TRUE(vm.send(event));
    EXPECT_EQ(pi.EnableEvent(2000, nullptr), JVMPI_NOT_AVAILABLE);
    pi.DisableEvent(JVMPI_EVENT_THREAD_START, nullptr);
    EXPECT_FALSE(vm.send(event));
    event.event_type |= JVMPI_REQUESTED_EVENT;
    EXPECT_TRUE(vm.send(event));
    EXPECT_EQ(heard, 2);
}

TEST_F(FakeVmTest, ReferencesAreCountedAndStaleOnesNoticed) {
    jclass const type = env->FindClass("java/lang/String");
    jobject const global = env->NewGlobalRef(type);
    EXPECT_EQ(jni.localRefs(env), 1);
    EXPECT_EQ(jni.globalRefs(), 1);
    EXPECT_EQ(jni.leaks(), Texts{"local reference to a java/lang/Class"});
    env->DeleteLocalRef(type);
    env->DeleteLocalRef(type);
    env->DeleteLocalRef(global);
    env->GetObjectClass(type);
    env->DeleteGlobalRef(global);
    EXPECT_EQ(jni.globalRefs(), 0);
    EXPECT_EQ(jni.leaks(), Texts());
    EXPECT_EQ(jni.violations(), (Texts{"DeleteLocalRef of a deleted reference",
                                       "DeleteLocalRef of another kind of reference",
                                       "GetObjectClass with a deleted reference",
                                       "GetObjectClass with a null object"}));
}

TEST_F(FakeVmTest, JniWithAPendingExceptionIsNoticed) {
    EXPECT_EQ(env->FindClass("no/Such"), nullptr);
    EXPECT_EQ(jni.pending(env), "java/lang/NoClassDefFoundError");
    EXPECT_EQ(jni.leaks(), Texts{"pending java/lang/NoClassDefFoundError: no/Such"});
    env->NewStringUTF("x");
    EXPECT_EQ(jni.violations(),
              Texts{"NewStringUTF with a pending java/lang/NoClassDefFoundError"});
    env->ExceptionDescribe();
    EXPECT_TRUE(env->ExceptionCheck());
    env->ExceptionClear();
    EXPECT_FALSE(env->ExceptionCheck());
    jni.returnToJava(env);
}

TEST_F(FakeVmTest, ArgumentsAndResultsArrive) {
    FakeJni::Args seen;
    jni.defineClass("a/B")
        .method("name", "(JLjava/lang/String;J)Ljava/lang/String;",
                [&](JNIEnv*, jobject, const FakeJni::Args& args) {
                    seen = args;
                    return FakeJni::of(jni.string("result"));
                })
        .method("fails", "()V", [&](JNIEnv* on, jobject, const FakeJni::Args&) {
            jni.throwNow(on, "java/io/IOException");
            return FakeJni::none();
        });
    jclass const type = jni.classRef("a/B");
    jobject const object = jni.object("a/B");
    jobject const text = jni.string("t");
    jobject const name = env->CallObjectMethod(
        object, env->GetMethodID(type, "name", "(JLjava/lang/String;J)Ljava/lang/String;"),
        jlong{1} << 50, text, jlong{-1});
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_EQ(seen[0].j, jlong{1} << 50);
    EXPECT_EQ(seen[1].l, text);
    EXPECT_EQ(seen[2].j, -1);
    EXPECT_EQ(jni.text(name), "result");
    EXPECT_EQ(jni.localRefs(env), 1);
    env->DeleteLocalRef(name);
    env->CallVoidMethod(object, env->GetMethodID(type, "fails", "()V"));
    EXPECT_EQ(jni.pending(env), "java/io/IOException");
    jni.clearPending(env);
    EXPECT_EQ(jni.violations(), Texts());
}

TEST_F(FakeVmTest, TextsAndArraysMindTheirBounds) {
    jstring const text = jni.string("a\xc3\xbc\xe6\x97\xa5");
    EXPECT_EQ(env->GetStringLength(text), 3);
    EXPECT_EQ(env->GetStringUTFLength(text), 6);
    char part[8] = {};
    env->GetStringUTFRegion(text, 1, 2, part);
    EXPECT_STREQ(part, "\xc3\xbc\xe6\x97\xa5");
    env->GetStringUTFRegion(text, 2, 2, part);
    EXPECT_EQ(jni.pending(env), "java/lang/StringIndexOutOfBoundsException");
    jni.clearPending(env);
    jintArray const ints = jni.intArray({1, 2, 3});
    const jint nine = 9;
    env->SetIntArrayRegion(ints, 1, 1, &nine);
    EXPECT_EQ(jni.ints(ints), (std::vector<jint>{1, 9, 3}));
    env->SetIntArrayRegion(ints, 3, 1, &nine);
    EXPECT_EQ(jni.pending(env), "java/lang/ArrayIndexOutOfBoundsException");
    jni.clearPending(env);
    env->GetObjectArrayElement(jni.stringArray({"x"}), 1);
    EXPECT_EQ(jni.pending(env), "java/lang/ArrayIndexOutOfBoundsException");
    jni.clearPending(env);
    jni.fail("GetStringUTFChars", 2);
    const char* const lent = env->GetStringUTFChars(text, nullptr);
    EXPECT_EQ(jni.leaks(), Texts{"unreleased GetStringUTFChars"});
    env->ReleaseStringUTFChars(text, lent);
    EXPECT_EQ(env->GetStringUTFChars(text, nullptr), nullptr);
    EXPECT_EQ(jni.pending(env), "java/lang/OutOfMemoryError");
    jni.clearPending(env);
    EXPECT_EQ(jni.leaks(), Texts());
    EXPECT_EQ(jni.violations(), Texts());
}

}  // namespace
