#include "diagnostics/thread_natives.h"

#include <cstring>
#include <map>
#include <string>

#include "agent/ProbeMgr.h"
#include "agent/velora.h"
#include "instrument/class.h"
#include "support/CaptureFixture.h"

namespace {

jmethodID method(std::uintptr_t id) {
    return reinterpret_cast<jmethodID>(id);
}
jobjectID object(std::uintptr_t id) {
    return reinterpret_cast<jobjectID>(id);
}

class ThreadNativesTest : public CaptureFixture {
protected:
    ThreadNativesTest() {
        initMethodTableLock();
        initClassTableLock();
        initClassSequenceLock();
        createMethodTable();
        createClassTable();
        other = addThread();
        vm.interface()->NotifyEvent = EventDispatcher;
        vm.onCallTrace = [this](JVMPI_CallTrace* trace, jint depth) {
            askedDepth = depth;
            askedEnv = trace->env_id;
            trace->num_frames = std::min<jint>(depth, static_cast<jint>(stack.size()));
            for (jint i = 0; i < trace->num_frames; ++i)
                trace->frames[i] = {1, stack[static_cast<std::size_t>(i)]};
        };
        vm.onMethodClass = [](jmethodID id) {
            return object(reinterpret_cast<std::uintptr_t>(id) & ~std::uintptr_t{0xFF});
        };
        vm.onRequest = [this](jint type, void* arg) { return sendClass(type, arg); };
    }

    // Class 0x<n>00 has the methods 0x<n>08 "m1" and 0x<n>10 "m2".
    jint sendClass(jint type, void* arg) {
        requested.push_back(static_cast<jobjectID>(arg));
        const auto id = reinterpret_cast<std::uintptr_t>(arg);
        if (type != JVMPI_EVENT_CLASS_LOAD || id >= 0x900) return JVMPI_FAIL;
        std::string name = "p/C" + std::to_string(id >> 8);
        char m1[] = "m1", m2[] = "m2", s1[] = "()V", s2[] = "(I)I";
        JVMPI_Method methods[2] = {{m1, s1, 1, 2, method(id + 8)}, {m2, s2, 3, 4, method(id + 16)}};
        JVMPI_Event event{};
        event.event_type = type | JVMPI_REQUESTED_EVENT;
        event.env_id = env;
        event.u.class_load.class_name = name.c_str();
        event.u.class_load.num_methods = 2;
        event.u.class_load.methods = methods;
        event.u.class_load.class_id = static_cast<jobjectID>(arg);
        vm.send(event);
        return JVMPI_SUCCESS;
    }

    jint idOf(JNIEnv* e) { return static_cast<jint>(record(e)->getThreadIntId()); }
    jobjectArray trace(jint depth) {
        return Java_com_velora_probe_ThreadManager_getStackTrace(env, nullptr, idOf(other), depth,
                                                                 0);
    }
    jint status() {
        return Java_com_velora_probe_ThreadManager_getNativeThreadStatus(env, nullptr, idOf(other));
    }
    void setStatus(jint value) {
        Java_com_velora_probe_ThreadManager_setThreadStatus(env, nullptr, idOf(other), value);
    }

    JNIEnv* other;
    std::vector<jmethodID> stack;
    std::vector<jobjectID> requested;
    jint askedDepth = 0;
    JNIEnv* askedEnv = nullptr;
};

// --- stack traces
// ---------------------------------------------------------------------------------

TEST_F(ThreadNativesTest, StackTraceNamesFramesAndAsksOncePerClass) {
    stack = {method(0x108), method(0x110), method(0x208)};
    const jobjectArray frames = trace(4);
    EXPECT_EQ(jni.texts(frames),
              (std::vector<std::string>{"p/C1", "m1", "()V", "p/C1", "m2", "(I)I", "p/C2", "m1",
                                        "()V", "<null>", "<null>", "<null>"}));
    EXPECT_EQ(requested, (std::vector<jobjectID>{object(0x100), object(0x200)}));
    EXPECT_EQ(askedDepth, 4);
    EXPECT_EQ(askedEnv, other);
    EXPECT_EQ(jni.localRefs(env), 1);
    EXPECT_LE(jni.peakLocalRefs(env), 3);
    jni.returnToJava(env);
}

TEST_F(ThreadNativesTest, StackTraceStopsAtTheFirstUnknownFrame) {
    stack = {method(0x108), method(0x908), method(0x110)};
    EXPECT_EQ(jni.texts(trace(3)),
              (std::vector<std::string>{"p/C1", "m1", "()V", "<null>", "<null>", "<null>", "<null>",
                                        "<null>", "<null>"}));
    stack = {nullptr, method(0x108)};
    EXPECT_EQ(jni.texts(trace(1))[0], "<null>");
    jni.returnToJava(env);
}

// After a redefinition a frame may run a method that its class does not list any more.
TEST_F(ThreadNativesTest, AMethodThatItsClassDoesNotListGrowsNoTable) {
    stack = {method(0x108), method(0x118)};
    const auto classes = [] {
        int count = 0;
        for (jclass_t* at = class_hash.load()[0]->next; at != nullptr; at = at->next) ++count;
        return count;
    };
    for (int i = 0; i < 3; ++i) {
        const auto texts = jni.texts(trace(2));
        EXPECT_EQ(texts[0], "p/C1");
        EXPECT_EQ(texts[3], "<null>");
        EXPECT_EQ(classes(), 1);
    }
    EXPECT_EQ(requested.size(), 4U) << "it may be listed again by the next request";
    jni.returnToJava(env);
}

TEST_F(ThreadNativesTest, StackTraceStopsWhereJavaHasNoMemory) {
    stack = {method(0x108), method(0x110)};
    jni.fail("NewStringUTF", 5);
    const auto texts = jni.texts(trace(2));
    EXPECT_EQ(texts[3], "p/C1");
    EXPECT_EQ(texts[4], "<null>");
    jni.fail("NewObjectArray");
    EXPECT_EQ(trace(2), nullptr);
    jni.returnToJava(env);
}

TEST_F(ThreadNativesTest, StackTraceWithoutFramesIsAnEmptyArray) {
    jobjectID asked = nullptr;
    vm.onThreadObject = [&](JNIEnv*) { return asked = object(0x7000); };
    EXPECT_EQ(jni.texts(trace(1)), std::vector<std::string>(3, "<null>"));
    EXPECT_EQ(asked, object(0x7000));  // the thread dump was asked, and is inert
    jni.returnToJava(env);
}

TEST_F(ThreadNativesTest, AbsurdDepthsAreCut) {
    stack = {method(0x108)};
    for (const jint depth : {0, -1, -2147483647 - 1}) EXPECT_EQ(trace(depth), nullptr) << depth;
    EXPECT_EQ(jni.texts(trace(2147483647)).size(), 3U * 32768);
    EXPECT_EQ(askedDepth, 32768);
    jni.returnToJava(env);
}

TEST_F(ThreadNativesTest, NoStackTraceOfUnknownEndedOrCancelledThreads) {
    stack = {method(0x108)};
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_getStackTrace(env, nullptr, 1, 5, 0), nullptr);
    record(other)->cancelled_ = true;
    EXPECT_EQ(trace(5), nullptr);
    record(other)->cancelled_ = false;
    record(other)->alive_ = false;
    EXPECT_EQ(trace(5), nullptr);
    record(other)->alive_ = true;
    EXPECT_EQ(jni.localRefs(env), 0);
    EXPECT_NE(trace(5), nullptr);
    jni.returnToJava(env);
}

TEST_F(ThreadNativesTest, NoStackTraceWhileTheProbeIsDisabled) {
    disableProbe();
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_getStackTrace(env, nullptr, 1, 5, 0), nullptr);
    EXPECT_EQ(qlog.messages(1077).size(), 1U);
}

TEST_F(ThreadNativesTest, StringClassIsLookedUpOnceAndAgainAfterAFailure) {
    jni.fail("FindClass");
    EXPECT_EQ(trace(1), nullptr);
    jni.fail("NewGlobalRef");
    EXPECT_EQ(trace(1), nullptr);
    EXPECT_NE(trace(1), nullptr);
    EXPECT_NE(trace(1), nullptr);
    EXPECT_EQ(jni.globalRefs(), 1);
    jni.returnToJava(env);
}

// --- status
// ---------------------------------------------------------------------------------------

struct StatusCase {
    const char* name;
    jint fromVm;
    jint expected;
    bool suspended = false;
};
class Status : public ThreadNativesTest, public ::testing::WithParamInterface<StatusCase> {};

TEST_P(Status, IsNormalised) {
    vm.onThreadStatus = [](JNIEnv*) { return GetParam().fromVm; };
    record(other)->setSuspended(GetParam().suspended);
    EXPECT_EQ(status(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Words, Status,
                         ::testing::Values(StatusCase{"runnable", 1, 1},
                                           StatusCase{"monitorWait", 2, 2},
                                           StatusCase{"conditionWait", 3, 3},
                                           StatusCase{"otherBase", 4, 0}, StatusCase{"none", 0, 0},
                                           StatusCase{"suspendedBit", 0x8001, 0x8001},
                                           StatusCase{"interruptedBit", 0x4003, 0x4003},
                                           StatusCase{"bothBits", 0xC002, 0xC002},
                                           StatusCase{"otherBitsSpoilTheBase", 0x2001, 0},
                                           StatusCase{"suspendedByUs", 1, 0x8001, true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ThreadNativesTest, StatusOfUnknownEndedAndCancelledThreads) {
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_getNativeThreadStatus(env, nullptr, 1), -1);
    record(other)->alive_ = false;
    EXPECT_EQ(status(), 4);
    record(other)->alive_ = true;
    setStatus(32768);
    EXPECT_EQ(status(), 0x8001);
    setStatus(4);  // cancelling ends the suspension
    EXPECT_EQ(status(), 4);
    EXPECT_FALSE(record(other)->isSuspended());
}

struct SetCase {
    const char* name;
    jint value;
    bool suspendedBefore;
    bool suspended;
    bool cancelled;
};
class SetStatus : public ThreadNativesTest, public ::testing::WithParamInterface<SetCase> {};

TEST_P(SetStatus, ChangesTheFlags) {
    record(other)->setSuspended(GetParam().suspendedBefore);
    setStatus(GetParam().value);
    EXPECT_EQ(record(other)->isSuspended(), GetParam().suspended);
    EXPECT_EQ(record(other)->isCancelled(), GetParam().cancelled);
}
INSTANTIATE_TEST_SUITE_P(Values, SetStatus,
                         ::testing::Values(SetCase{"cancel", 4, true, false, true},
                                           SetCase{"resume", 8192, true, false, false},
                                           SetCase{"suspend", 32768, false, true, false},
                                           SetCase{"otherKeepsSuspended", 1, true, true, false},
                                           SetCase{"bothBitsChangeNothing", 40960, true, true,
                                                   false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ThreadNativesTest, AnEndedThreadsFlagsStay) {
    record(other)->alive_ = false;
    setStatus(4);
    EXPECT_FALSE(record(other)->isCancelled());
    record(other)->alive_ = true;
}

// --- thread dump
// ----------------------------------------------------------------------------------

class ThreadDumpTest : public CaptureFixture {
protected:
    static int generate(JNIEnv*, char* filename, long* offset) {
        std::strcpy(filename, "/tmp/dump.txt");
        *offset = 12345678901;
        return 0;
    }
    FakeJni::Class defineInfo() { return jni.defineClass("com/velora/command/ThreadDumpInfo"); }
    void defineSetters(bool throwing = false) {
        defineInfo()
            .method("setFileName", "(Ljava/lang/String;)V",
                    [this, throwing](JNIEnv* e, jobject, const FakeJni::Args& args) {
                        told += jni.text(args[0].l);
                        if (throwing) jni.throwNow(e, "java/lang/RuntimeException");
                        return FakeJni::none();
                    })
            .method("setOffSet", "(J)V", [this](JNIEnv*, jobject, const FakeJni::Args& args) {
                told += "@" + std::to_string(args[0].j);
                return FakeJni::none();
            });
    }
    jobject info() { return jni.object("com/velora/command/ThreadDumpInfo"); }
    std::string told;
};

TEST_F(ThreadDumpTest, NativeAnswersThatNoneWasMade) {
    defineSetters();
    EXPECT_EQ(Java_com_velora_command_CommandAgent_generateThreadDump(env, nullptr, info()), -1);
    EXPECT_EQ(told, "");
    EXPECT_EQ(Java_com_velora_command_CommandAgent_generateThreadDump(env, nullptr, nullptr), -1);
    EXPECT_EQ(qlog.messages(1077).size(), 1U);
}

TEST_F(ThreadDumpTest, TellsFileAndOffset) {
    defineSetters();
    EXPECT_EQ(dumpThreads(env, info(), generate), 0);
    EXPECT_EQ(told, "/tmp/dump.txt@12345678901");
    EXPECT_EQ(dumpThreads(env, info(), [](JNIEnv*, char*, long*) { return -3; }), -3);
}

TEST_F(ThreadDumpTest, AThrowingSetterLeavesNothingPending) {
    defineSetters(true);
    EXPECT_EQ(dumpThreads(env, info(), generate), 0);
    EXPECT_EQ(told, "/tmp/dump.txt@12345678901");
}

TEST_F(ThreadDumpTest, MissingPartsOfTheInfoObject) {
    defineInfo();
    EXPECT_EQ(dumpThreads(env, info(), generate), -1);
    EXPECT_TRUE(qlog.logged("Can't find method setFileName(String)"));
    defineInfo().method("setFileName", "(Ljava/lang/String;)V",
                        [](JNIEnv*, jobject, const FakeJni::Args&) { return FakeJni::none(); });
    EXPECT_EQ(dumpThreads(env, info(), generate), -1);
    EXPECT_TRUE(qlog.logged("Can't find method setOffSet(long)"));
    defineSetters();
    jni.fail("NewStringUTF");
    EXPECT_EQ(dumpThreads(env, info(), generate), -1);
    EXPECT_TRUE(qlog.logged("Can't construct a String object"));
}

}  // namespace
