// Which VM event does what, while the probe is disabled and while it is enabled.
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "agent/velora.h"
#include "foundation/ThreadCpuClock.h"
#include "instrument/InstrumentJNI.h"
#include "instrument/class.h"
#include "jvmpi/gc_edge.h"
#include "support/CaptureFixture.h"
#include "support/ClassFileBuilder.h"

namespace {

jobjectID classId(std::uintptr_t id) {
    return reinterpret_cast<jobjectID>(id);
}

class DispatcherTest : public CaptureFixture {
protected:
    void SetUp() override {
        ProbeMgr::csInitialize(env);
        method_hash_size = 101;
        createMethodTable();
        createClassTable();
        loadClass("the/Oldest", 1);  // never found
        take();
    }
    void TearDown() override {
        deleteClassTable();
        deleteMethodTable();
        CaptureFixture::TearDown();
    }

    JVMPI_Event event(jint type) {
        JVMPI_Event made{};
        made.event_type = type;
        made.env_id = env;
        return made;
    }
    void send(jint type) {
        JVMPI_Event sent = event(type);
        EventDispatcher(&sent);
    }
    void loadClass(const char* name, std::uintptr_t id, jint type = JVMPI_EVENT_CLASS_LOAD,
                   std::uintptr_t methodId = 0) {
        JVMPI_Method method{const_cast<char*>("m"), const_cast<char*>("()V"), 1, 2,
                            reinterpret_cast<jmethodID>(methodId == 0 ? id * 8 : methodId)};
        JVMPI_Event sent = event(type);
        sent.u.class_load.class_name = name;
        sent.u.class_load.class_id = classId(id);
        sent.u.class_load.num_methods = 1;
        sent.u.class_load.methods = &method;
        EventDispatcher(&sent);
    }
    void expectHookAnswered() {
        Bytes bytes = ClassFileBuilder().name("a/B").build();
        JVMPI_Event hook = event(JVMPI_EVENT_CLASS_LOAD_HOOK);
        hook.u.class_load_hook.class_data = bytes.data();
        hook.u.class_load_hook.class_data_len = static_cast<jint>(bytes.size());
        EventDispatcher(&hook);
        EXPECT_EQ(hook.u.class_load_hook.new_class_data, bytes.data());
    }
    void unloadClass(std::uintptr_t id) {
        JVMPI_Event sent = event(JVMPI_EVENT_CLASS_UNLOAD);
        sent.u.class_unload.class_id = classId(id);
        EventDispatcher(&sent);
    }
};

TEST_F(DispatcherTest, ClassesAreRegistered) {
    traceFrom(kDebugMax);
    loadClass("org/acme/A", 0x100);
    jclass_t* const loaded = getClassEntry(classId(0x100));
    ASSERT_NE(loaded, nullptr);
    EXPECT_TRUE(qlog.logged("Class org/acme/A loaded"));
    EXPECT_TRUE(qlog.logged("Class org/acme/A (sequence " + std::to_string(loaded->sequenceID) +
                            ", exclude 0)"));
    loadClass("org/acme/B", 0x200, JVMPI_EVENT_CLASS_LOAD | JVMPI_REQUESTED_EVENT);
    EXPECT_NE(getClassEntry(classId(0x200)), nullptr);
    EXPECT_TRUE(take().empty()) << "a load makes no event";
}

TEST_F(DispatcherTest, AClassIsRegisteredOnceUntilItGoesOrGetsAMethod) {
    const auto requested = JVMPI_EVENT_CLASS_LOAD | JVMPI_REQUESTED_EVENT;
    const ULONG before = getCurrentClassSequence();
    loadClass("the/Oldest", 1, requested);
    EXPECT_EQ(getCurrentClassSequence(), before) << "known although no look-up finds it";
    loadClass("org/acme/A", 0x100);
    loadClass("org/acme/A", 0x100, requested);
    EXPECT_EQ(getCurrentClassSequence(), before + 1);
    loadClass("org/acme/A", 0x100, requested, 0x5000);
    EXPECT_EQ(getCurrentClassSequence(), before + 2);
    EXPECT_NE(getMethod(reinterpret_cast<jmethodID>(0x5000)), nullptr);
    loadClass("org/acme/B", 0x200);
    unloadClass(0x200);
    loadClass("org/acme/B", 0x200);
    EXPECT_EQ(getCurrentClassSequence(), before + 4) << "a dirty record does not count";
    take();
}

TEST_F(DispatcherTest, ArraysAndPrimitivesAreNot) {
    const ULONG before = getCurrentClassSequence();
    for (const char* name : {"[I", "[Lorg/acme/A;", "int", "void", "double"})
        loadClass(name, 0x100);
    loadClass(nullptr, 0x100);
    EXPECT_EQ(getCurrentClassSequence(), before);
}

TEST_F(DispatcherTest, ALoadIsDroppedAtTheMemoryLimit) {
    const ULONG before = getCurrentClassSequence();
    closeGate();
    loadClass("org/acme/A", 0x100);
    EXPECT_EQ(getCurrentClassSequence(), before);
    take();
}

TEST_F(DispatcherTest, AnUnloadIsReportedWithACopyAndMarked) {
    loadClass("org/acme/A", 0x100);
    const ULONG sequence = getClassEntry(classId(0x100))->sequenceID;
    unloadClass(0x100);
    const auto report = takeOne<ClassEvent>();
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->getSubType(), UNLOAD);
    EXPECT_EQ(report->threadId_, thread->getThreadIntId());
    EXPECT_EQ(report->classData->sequenceID, sequence);
    EXPECT_EQ(report->classData->delete_flag, 1);
    EXPECT_EQ(report->classData->class_id, classId(0x100)) << "as it was before it was marked";
    EXPECT_EQ(getClassEntry(classId(0x100)), nullptr);
    EXPECT_EQ(getMethod(reinterpret_cast<jmethodID>(0x800)), nullptr);
    EXPECT_EQ(cleanupCounter, 1U);
}

TEST_F(DispatcherTest, WithTheSweepOffAnUnloadUnregistersAtOnce) {
    CLASSULOAD_CLEANUP = -1;
    loadClass("org/acme/A", 0x100);
    unloadClass(0x100);
    EXPECT_EQ(class_hash.load()[0]->next->next, nullptr) << "only the oldest is left";
    EXPECT_NE(takeOne<ClassEvent>(), nullptr);
}

TEST_F(DispatcherTest, UnknownAndNullUnloadsDoNothing) {
    loadClass("org/acme/A", 0x100);
    unloadClass(0x999);
    unloadClass(0);
    EXPECT_TRUE(take().empty());
    EXPECT_EQ(cleanupCounter, 0U);
}

TEST_F(DispatcherTest, AThreadStartNamesTheRecord) {
    char name[] = "worker-1";
    char group[] = "main";
    JVMPI_Event start = event(JVMPI_EVENT_THREAD_START);
    start.u.thread_start.thread_name = name;
    start.u.thread_start.group_name = group;
    EventDispatcher(&start);
    EXPECT_STREQ(thread->getThreadName(), "worker-1");
    EXPECT_STREQ(thread->getGroupName(), "main");
    EXPECT_EQ(thread->getPID(), getpid());
    EXPECT_EQ(thread->getPPID(), getppid());
}

TEST_F(DispatcherTest, ARequestedThreadStartNamesTheThreadMeant) {
    JNIEnv* const other = addThread();
    char name[] = "other";
    JVMPI_Event start = event(JVMPI_EVENT_THREAD_START | JVMPI_REQUESTED_EVENT);
    start.u.thread_start.thread_name = name;
    start.u.thread_start.thread_env_id = other;
    EventDispatcher(&start);
    EXPECT_STREQ(record(other)->getThreadName(), "other");
    EXPECT_EQ(thread->getThreadName(), nullptr);
}

TEST_F(DispatcherTest, AThreadEndEndsTheRecordAndMakesNone) {
    JNIEnv* const other = addThread();
    ThreadData* const ending = record(other);
    JVMPI_Event end = event(JVMPI_EVENT_THREAD_END);
    end.env_id = other;
    EventDispatcher(&end);
    EXPECT_FALSE(ending->isAlive());
    EXPECT_EQ(record(other), nullptr);
    EventDispatcher(&end);
    EXPECT_EQ(record(other), nullptr);
    ThreadMgr::getInstance()->deleteThreadData(ending);
}

TEST_F(DispatcherTest, CollectionsBecomeEvents) {
    traceFrom(kDebugMax);
    send(JVMPI_EVENT_GC_START);
    JVMPI_Event finish = event(JVMPI_EVENT_GC_FINISH);
    finish.u.gc_info = {5, 5000000000, 6000000000};
    GcEdge{GcEdge::kMark, 1000000000, 7}.putInto(&finish);
    EventDispatcher(&finish);
    const auto events = take();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0]->getSubType(), START);
    const auto* const end = dynamic_cast<GCEvent*>(events[1].get());
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(end->getSubType(), END);
    EXPECT_EQ(end->threadId_, thread->getThreadIntId());
    EXPECT_EQ(end->used_objects, 5);
    EXPECT_EQ(end->timeSec_, 1000000000U) << "when the pause ended, not when we heard of it";
    EXPECT_EQ(end->timeUSec_, 7U);
    EXPECT_GT(events[0]->timeSec_, 1000000000U) << "the VM did not tell";
    EXPECT_EQ(end->used_object_space, 5000000000);
    EXPECT_EQ(end->total_object_space, 6000000000);
    EXPECT_TRUE(
        qlog.logged("GC Statistics (Used Object Count: 5, Used Space: 5000000000, Total "
                    "Space: 6000000000)"));
}

TEST_F(DispatcherTest, EventsWithoutAnEnvironmentAreIgnoredAndToldOnce) {
    const ULONG before = getCurrentClassSequence();
    for (const jint type : {JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH, JVMPI_EVENT_CLASS_LOAD,
                            JVMPI_EVENT_THREAD_START, JVMPI_EVENT_THREAD_END}) {
        JVMPI_Event without = event(type);
        without.env_id = nullptr;
        without.u.class_load.class_name = type == JVMPI_EVENT_CLASS_LOAD ? "a/A" : nullptr;
        EventDispatcher(&without);
    }
    EXPECT_TRUE(take().empty());
    EXPECT_EQ(getCurrentClassSequence(), before);
    int told = 0;
    for (const FakeQlog::Line& line : qlog.lines())
        told += line.text.find("without a JNI environment") != std::string::npos ? 1 : 0;
    EXPECT_EQ(told, 1);
    EventDispatcher(nullptr);
}

TEST_F(DispatcherTest, DuringAHeapDumpAClassLoadOnlyFillsTheScratchRecord) {
    std::vector<JVMPI_Field> statics;
    for (const char* signature :
         {"Z", "B", "C", "S", "I", "F", "J", "D", "Ljava/lang/String;", "[I", "V"})
        statics.push_back({const_cast<char*>("f"), const_cast<char*>(signature)});
    statics.push_back({const_cast<char*>("broken"), nullptr});
    JVMPI_Event load = event(JVMPI_EVENT_CLASS_LOAD | JVMPI_REQUESTED_EVENT);
    auto& data = load.u.class_load;
    const std::string longName(600, 'n');
    data.class_name = longName.c_str();
    data.num_interfaces = 3;
    data.num_methods = 4;
    data.class_id = classId(0x100);
    data.num_static_fields = static_cast<jint>(statics.size());
    data.statics = statics.data();
    const ULONG before = getCurrentClassSequence();
    doingHeapDump = true;
    EventDispatcher(&load);
    doingHeapDump = false;
    EXPECT_EQ(std::string(class_load.class_name), std::string(511, 'n'));
    EXPECT_EQ(class_load.num_interfaces, 3);
    EXPECT_EQ(class_load.num_methods, 4);
    EXPECT_EQ(class_load.class_id, classId(0x100));
    EXPECT_EQ(class_load.static_fields_size, 1U + 1 + 2 + 2 + 4 + 4 + 8 + 8 + 8 + 8);
    EXPECT_EQ(getCurrentClassSequence(), before) << "nothing is registered";
}

TEST_F(DispatcherTest, ARequestedHeapDumpIsProcessedWithTheFlagSet) {
    JVMPI_Event dump = event(JVMPI_EVENT_HEAP_DUMP | JVMPI_REQUESTED_EVENT);
    char nothing[1] = {};
    dump.u.heap_dump.begin = nothing;
    dump.u.heap_dump.end = nothing;
    EventDispatcher(&dump);
    EXPECT_TRUE(qlog.logged("Total Objects count=0 size=0"));
    EXPECT_FALSE(doingHeapDump);
    qlog.clearLines();
    dump.event_type = JVMPI_EVENT_HEAP_DUMP;
    EventDispatcher(&dump);
    EXPECT_TRUE(qlog.lines().empty()) << "only the requested one";
}

TEST_F(DispatcherTest, WhileDisabledOnlyHookAndInitDoneAreActedOn) {
    disableProbe();
    qlog.clearLines();
    const ULONG before = getCurrentClassSequence();
    loadClass("org/acme/A", 0x100);
    send(JVMPI_EVENT_GC_START);
    send(JVMPI_EVENT_HEAP_DUMP | JVMPI_REQUESTED_EVENT);
    EXPECT_EQ(getCurrentClassSequence(), before);
    EXPECT_TRUE(qlog.lines().empty());

    expectHookAnswered();
    EXPECT_FALSE(isJVMInitializationDone);
    send(JVMPI_EVENT_JVM_INIT_DONE);
    EXPECT_TRUE(isJVMInitializationDone);
}

TEST_F(DispatcherTest, WhileEnabledTheHookIsAnsweredToo) {
    expectHookAnswered();
}

TEST_F(DispatcherTest, MethodEventsAreStampedAndTheirCpuTimeNeverGoesBack) {
    const jlong future = ThreadCpuClock::now() + 1000000000000;
    thread->saveAndTestCPUTime(future);
    for (const bool start : {true, false}) {
        MethodEvent method(start ? START : END);
        getClocks(&method, start, env);
        EXPECT_GT(method.timeSec_, 0U);
        EXPECT_EQ(method.cpuTime_, future);
    }
    MethodEvent unknown(START);
    getClocks(&unknown, true, nullptr);
    EXPECT_LT(unknown.cpuTime_, future);
}

TEST_F(DispatcherTest, SetClassTypeMarksTheMethodsClass) {
    loadClass("org/acme/A", 0x100);
    jclass_t* const loaded = getClassEntry(classId(0x100));
    EXPECT_EQ(loaded->type, -1);
    setClassType(env, &loaded->methods[0], nullptr, nullptr);
    EXPECT_EQ(loaded->type, 0);
    setClassType(env, nullptr, nullptr, nullptr);
}

TEST_F(DispatcherTest, TheServersOwnClassInstrumentsItself) {
    int calls = 0;
    JVMPI_Event sent = event(JVMPI_EVENT_CLASS_LOAD);
    setWLBCM(&sent);
    jni.defineClass("com/velora/weblogic/CustomCLWS")
        .staticMethod("InstrumentBcm", "()V", [&](JNIEnv*, jobject, const FakeJni::Args&) {
            ++calls;
            return FakeJni::none();
        });
    vm.interface()->EnableEvent(JVMPI_EVENT_CLASS_LOAD, nullptr);
    setWLBCM(&sent);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(vm.isEnabled(JVMPI_EVENT_CLASS_LOAD));
}

}  // namespace
