// An agent written against jvmpi.h alone: what it can do, any agent for the interface can. Java
// drives it through the natives of the class TestAgent.
//
// Options: event numbers to enable at load, separated by '+'; "exit" checks monitors from an exit
// handler.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "DumpReader.h"
#include "EventLog.h"
#include "HookEdit.h"
#include "jvmpi/jvmpi.h"

namespace {

JVMPI_Interface* jvmpi = nullptr;
JVMPI_RawMonitor earlyMonitor = nullptr;

void fail(const char* text) {
    printf("FAILED: %s\n", text);
}

bool readingDump = false;

jlong measuredBytes = -1;  // not -1: only the size of the next dump is wanted

void onHeapDump(JVMPI_Event* event) {
    if (measuredBytes >= 0) {
        measuredBytes = event->u.heap_dump.end - event->u.heap_dump.begin;
        return;
    }
    delete dumpReader;
    dumpReader = new DumpReader;
    readingDump = true;
    dumpReader->read(*event, *jvmpi);
    readingDump = false;
    if (jvmpi->RequestEvent(JVMPI_EVENT_HEAP_DUMP, nullptr) != JVMPI_FAIL)
        fail("a dump inside a dump");
}

void onEvent(JVMPI_Event* event) {
    if (event->event_type == (JVMPI_EVENT_HEAP_DUMP | JVMPI_REQUESTED_EVENT)) {
        onHeapDump(event);
        return;
    }
    if (readingDump && event->event_type == (JVMPI_EVENT_CLASS_LOAD | JVMPI_REQUESTED_EVENT)) {
        dumpReader->learnClass(*event);
        return;
    }
    if (event->event_type == JVMPI_EVENT_CLASS_LOAD_HOOK) {
        editClass(*event, *jvmpi);
        return;
    }
    logEvent(*event);
    if (event->event_type == JVMPI_EVENT_JVM_SHUT_DOWN) puts("agent: shut-down");
}

// Long after the VM has died: no phase and no thread of the VM is left to lean on.
void atExit() {
    jvmpi->RawMonitorEnter(earlyMonitor);
    jvmpi->RawMonitorWait(earlyMonitor, 10);
    jvmpi->RawMonitorNotifyAll(earlyMonitor);
    jvmpi->RawMonitorExit(earlyMonitor);
    jvmpi->RawMonitorDestroy(earlyMonitor);
    if (jvmpi->RequestEvent(JVMPI_EVENT_CLASS_LOAD, nullptr) == JVMPI_SUCCESS)
        fail("request at exit");
    if (jvmpi->RequestEvent(JVMPI_EVENT_HEAP_DUMP, nullptr) == JVMPI_FAIL)
        fail("a dump at exit: it is taken, or there is no VM to take one");
    puts("agent: exit handler done");
    fflush(stdout);
}

// What an agent may do before the VM is up.
void useEarly() {
    char name[] = "_early";
    earlyMonitor = jvmpi->RawMonitorCreate(name);
    jvmpi->RawMonitorEnter(earlyMonitor);
    jvmpi->RawMonitorEnter(earlyMonitor);
    jvmpi->RawMonitorWait(earlyMonitor, 20);
    jvmpi->RawMonitorExit(earlyMonitor);
    jvmpi->RawMonitorExit(earlyMonitor);
    if (jvmpi->GetCurrentThreadCpuTime() <= 0) fail("no CPU time at load");
    JVMPI_CallFrame frame;
    JVMPI_CallTrace trace{reinterpret_cast<JNIEnv*>(&frame), 7, &frame};
    jvmpi->GetCallTrace(&trace, 1);
    if (trace.num_frames != 0) fail("a trace of an unknown thread");
}

void enableFrom(const char* options) {
    for (const char* at = options; at != nullptr && *at != 0;) {
        if (strncmp(at, "exit", 4) == 0) {
            atexit(atExit);
        } else if (jvmpi->EnableEvent(atoi(at), nullptr) != JVMPI_SUCCESS) {
            fail(at);
        }
        at = strchr(at, '+');
        if (at != nullptr) ++at;
    }
}

void checkInterfaces(JavaVM* vm) {
    for (jint version : {JVMPI_VERSION_1, JVMPI_VERSION_1_1, JVMPI_VERSION_1_2}) {
        void* found = nullptr;
        if (vm->GetEnv(&found, version) != JNI_OK || found != jvmpi) fail("not one interface");
    }
    void* found = jvmpi;
    if (vm->GetEnv(&found, 0x1FFFFFFF) >= 0 || found != nullptr) fail("an unknown version");
    const auto* slots = reinterpret_cast<void* const*>(jvmpi);
    for (std::size_t i = 2; i < sizeof *jvmpi / sizeof *slots; ++i) {
        if (slots[i] == nullptr) fail("an empty slot");
    }
}

JNIEnv* envFrom(jlong env) {
    return reinterpret_cast<JNIEnv*>(env);
}
JVMPI_RawMonitor monitorFrom(jlong monitor) {
    return reinterpret_cast<JVMPI_RawMonitor>(monitor);
}

jobjectArray toJava(JNIEnv* env, const std::vector<std::string>& lines) {
    jclass type = env->FindClass("java/lang/String");
    jobjectArray array = env->NewObjectArray(static_cast<jsize>(lines.size()), type, nullptr);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        jstring line = env->NewStringUTF(lines[i].c_str());
        env->SetObjectArrayElement(array, static_cast<jsize>(i), line);
        env->DeleteLocalRef(line);
    }
    return array;
}

void systemThreadBody(void* argument) {
    printf("agent: system thread %s\n", argument == nullptr ? "runs" : "FAILED: argument");
    fflush(stdout);
}

}  // namespace

extern "C" {

jint JNICALL JVM_OnLoad(JavaVM* vm, char* options, void*) {
    void* found = nullptr;
    if (vm->GetEnv(&found, JVMPI_VERSION_1) != JNI_OK) return JNI_ERR;
    jvmpi = static_cast<JVMPI_Interface*>(found);
    if (jvmpi->NotifyEvent != nullptr) fail("NotifyEvent is not free");
    checkInterfaces(vm);
    useEarly();
    if (jvmpi->EnableEvent(2000, nullptr) != JVMPI_NOT_AVAILABLE) fail("event 2000");
    enableFrom(options == nullptr ? "46" : options);
    jvmpi->NotifyEvent = onEvent;
    return JNI_OK;
}

JNIEXPORT jint JNICALL Java_TestAgent_enable(JNIEnv*, jclass, jint type) {
    return jvmpi->EnableEvent(type, nullptr);
}

JNIEXPORT jint JNICALL Java_TestAgent_disable(JNIEnv*, jclass, jint type) {
    return jvmpi->DisableEvent(type, nullptr);
}

JNIEXPORT jint JNICALL Java_TestAgent_request(JNIEnv*, jclass, jint type, jlong argument) {
    return jvmpi->RequestEvent(type, reinterpret_cast<void*>(argument));
}

JNIEXPORT void JNICALL Java_TestAgent_listen(JNIEnv*, jclass, jboolean on) {
    jvmpi->NotifyEvent = on ? onEvent : nullptr;
}

JNIEXPORT jobjectArray JNICALL Java_TestAgent_takeEvents(JNIEnv* env, jclass, jint type,
                                                         jint orType) {
    return toJava(env, takeEvents(type, orType));
}

JNIEXPORT jlong JNICALL Java_TestAgent_env(JNIEnv* env, jclass) {
    return reinterpret_cast<jlong>(env);
}

JNIEXPORT jlong JNICALL Java_TestAgent_tid(JNIEnv*, jclass) {
    return syscall(SYS_gettid);
}

JNIEXPORT jint JNICALL Java_TestAgent_status(JNIEnv*, jclass, jlong env) {
    return jvmpi->GetThreadStatus(envFrom(env));
}

// "lineno declaring-class-id method-id" per frame.
JNIEXPORT jobjectArray JNICALL Java_TestAgent_trace(JNIEnv* env, jclass, jlong thread, jint depth) {
    std::vector<JVMPI_CallFrame> frames(static_cast<std::size_t>(depth) + 1);
    JVMPI_CallTrace trace{envFrom(thread), -1, frames.data()};
    jvmpi->GetCallTrace(&trace, depth);
    std::vector<std::string> lines;
    for (jint i = 0; i < trace.num_frames; ++i) {
        const auto type = reinterpret_cast<jlong>(jvmpi->GetMethodClass(frames[i].method_id));
        lines.push_back(std::to_string(frames[i].lineno) + " " + std::to_string(type));
    }
    return toJava(env, lines);
}

// Many traces from one native that does not return: what it leaves behind would pile up.
JNIEXPORT void JNICALL Java_TestAgent_traceOften(JNIEnv*, jclass, jlong thread, jlong type,
                                                 jint n) {
    JVMPI_CallFrame frames[16];
    for (jint i = 0; i < n; ++i) {
        JVMPI_CallTrace trace{envFrom(thread), 0, frames};
        jvmpi->GetCallTrace(&trace, 16);
        for (jint f = 0; f < trace.num_frames; ++f) jvmpi->GetMethodClass(frames[f].method_id);
        jvmpi->GetThreadStatus(envFrom(thread));
        jvmpi->GetThreadObject(envFrom(thread));
        jvmpi->ThreadHasRun(envFrom(thread));
        jvmpi->SetThreadLocalStorage(envFrom(thread), frames);
        if (i % 64 == 0) jvmpi->RequestEvent(JVMPI_EVENT_CLASS_LOAD, reinterpret_cast<void*>(type));
        if (i % 64 == 0) jvmpi->RequestEvent(JVMPI_EVENT_THREAD_START, envFrom(thread));
    }
}

JNIEXPORT jlong JNICALL Java_TestAgent_threadObject(JNIEnv*, jclass, jlong env) {
    return reinterpret_cast<jlong>(jvmpi->GetThreadObject(envFrom(env)));
}

JNIEXPORT jlong JNICALL Java_TestAgent_idOf(JNIEnv*, jclass, jobject object) {
    return reinterpret_cast<jlong>(jvmpi->jobject2jobjectID(object));
}

JNIEXPORT jobject JNICALL Java_TestAgent_objectOf(JNIEnv*, jclass, jlong id) {
    return jvmpi->jobjectID2jobject(reinterpret_cast<jobjectID>(id));
}

JNIEXPORT jlong JNICALL Java_TestAgent_methodId(JNIEnv* env, jclass, jobject method) {
    return reinterpret_cast<jlong>(env->FromReflectedMethod(method));
}

JNIEXPORT jlong JNICALL Java_TestAgent_methodClass(JNIEnv*, jclass, jlong method) {
    return reinterpret_cast<jlong>(jvmpi->GetMethodClass(reinterpret_cast<jmethodID>(method)));
}

// Class id of a method, asked while a Java exception is pending, which stays pending.
JNIEXPORT jlong JNICALL Java_TestAgent_askWhileThrowing(JNIEnv* env, jclass, jlong method,
                                                        jthrowable thrown) {
    env->Throw(thrown);
    const auto id = jvmpi->GetMethodClass(reinterpret_cast<jmethodID>(method));
    jvmpi->RequestEvent(JVMPI_EVENT_CLASS_LOAD, id);
    jvmpi->GetThreadStatus(env);
    return reinterpret_cast<jlong>(id);
}

JNIEXPORT jlong JNICALL Java_TestAgent_cpuTime(JNIEnv*, jclass) {
    return jvmpi->GetCurrentThreadCpuTime();
}

JNIEXPORT void JNICALL Java_TestAgent_runGC(JNIEnv*, jclass) {
    jvmpi->RunGC();
}

JNIEXPORT void JNICALL Java_TestAgent_suspend(JNIEnv*, jclass, jlong env) {
    jvmpi->SuspendThread(envFrom(env));
}

JNIEXPORT void JNICALL Java_TestAgent_resume(JNIEnv*, jclass, jlong env) {
    jvmpi->ResumeThread(envFrom(env));
}

JNIEXPORT jboolean JNICALL Java_TestAgent_hasRun(JNIEnv*, jclass, jlong env) {
    return jvmpi->ThreadHasRun(envFrom(env));
}

// The results, joined by blanks.
JNIEXPORT jstring JNICALL Java_TestAgent_suspendTwo(JNIEnv* env, jclass, jlong one, jlong two,
                                                    jboolean suspend) {
    JNIEnv* list[] = {envFrom(one), envFrom(two)};
    jint results[] = {99, 99};
    (suspend ? jvmpi->SuspendThreadList : jvmpi->ResumeThreadList)(2, list, results);
    return env->NewStringUTF(
        (std::to_string(results[0]) + " " + std::to_string(results[1])).c_str());
}

JNIEXPORT jint JNICALL Java_TestAgent_createThread(JNIEnv*, jclass) {
    char name[] = "made by the agent";
    return jvmpi->CreateSystemThread(name, JVMPI_NORMAL_PRIORITY, systemThreadBody);
}

JNIEXPORT void JNICALL Java_TestAgent_setLocal(JNIEnv*, jclass, jlong env, jlong value) {
    jvmpi->SetThreadLocalStorage(envFrom(env), reinterpret_cast<void*>(value));
}

JNIEXPORT jlong JNICALL Java_TestAgent_getLocal(JNIEnv*, jclass, jlong env) {
    return reinterpret_cast<jlong>(jvmpi->GetThreadLocalStorage(envFrom(env)));
}

JNIEXPORT jlong JNICALL Java_TestAgent_monitorCreate(JNIEnv*, jclass) {
    char name[] = "_test";
    return reinterpret_cast<jlong>(jvmpi->RawMonitorCreate(name));
}

JNIEXPORT void JNICALL Java_TestAgent_monitorEnter(JNIEnv*, jclass, jlong monitor) {
    jvmpi->RawMonitorEnter(monitorFrom(monitor));
}

JNIEXPORT void JNICALL Java_TestAgent_monitorExit(JNIEnv*, jclass, jlong monitor) {
    jvmpi->RawMonitorExit(monitorFrom(monitor));
}

JNIEXPORT void JNICALL Java_TestAgent_monitorWait(JNIEnv*, jclass, jlong monitor, jlong ms) {
    jvmpi->RawMonitorWait(monitorFrom(monitor), ms);
}

JNIEXPORT void JNICALL Java_TestAgent_monitorNotifyAll(JNIEnv*, jclass, jlong monitor) {
    jvmpi->RawMonitorNotifyAll(monitorFrom(monitor));
}

JNIEXPORT void JNICALL Java_TestAgent_monitorDestroy(JNIEnv*, jclass, jlong monitor) {
    jvmpi->RawMonitorDestroy(monitorFrom(monitor));
}

// Holds a raw monitor across a JNI call that allocates, as agents do.
JNIEXPORT void JNICALL Java_TestAgent_holdAcrossJni(JNIEnv* env, jclass, jlong monitor,
                                                    jint bytes) {
    jvmpi->RawMonitorEnter(monitorFrom(monitor));
    env->DeleteLocalRef(env->NewByteArray(bytes));
    jvmpi->RawMonitorExit(monitorFrom(monitor));
}

JNIEXPORT void JNICALL Java_TestAgent_profilerExit(JNIEnv*, jclass, jint code) {
    jvmpi->ProfilerExit(code);
}

JNIEXPORT jint JNICALL Java_TestAgent_dump(JNIEnv*, jclass, jint level) {
    JVMPI_HeapDumpArg argument{level};
    return jvmpi->RequestEvent(JVMPI_EVENT_HEAP_DUMP, level == 2 ? nullptr : &argument);
}

// Bytes of a level-2 dump that nobody reads; -1 when it is refused.
JNIEXPORT jlong JNICALL Java_TestAgent_dumpUnread(JNIEnv*, jclass) {
    measuredBytes = 0;
    const bool done = jvmpi->RequestEvent(JVMPI_EVENT_HEAP_DUMP, nullptr) == JVMPI_SUCCESS;
    const jlong bytes = measuredBytes;
    measuredBytes = -1;
    return done ? bytes : -1;
}

// Limits the address space to what is used now plus so many bytes; -1: no limit.
JNIEXPORT void JNICALL Java_TestAgent_limitMemory(JNIEnv*, jclass, jlong more) {
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = limit.rlim_max;
    if (more >= 0) {
        long pages = 0;
        FILE* file = fopen("/proc/self/statm", "r");
        if (file == nullptr || fscanf(file, "%ld", &pages) != 1) fail("statm");
        if (file != nullptr) fclose(file);
        limit.rlim_cur = static_cast<rlim_t>(pages) * 4096 + static_cast<rlim_t>(more);
    }
    if (setrlimit(RLIMIT_AS, &limit) != 0) fail("setrlimit");
}

JNIEXPORT jstring JNICALL Java_TestAgent_dumpSummary(JNIEnv* env, jclass) {
    return env->NewStringUTF(dumpReader->summary().c_str());
}

JNIEXPORT jstring JNICALL Java_TestAgent_dumpKind(JNIEnv* env, jclass, jlong object) {
    return env->NewStringUTF(dumpReader->kind(object).c_str());
}

JNIEXPORT jstring JNICALL Java_TestAgent_dumpField(JNIEnv* env, jclass, jlong object, jlong type,
                                                   jstring name) {
    const char* text = env->GetStringUTFChars(name, nullptr);
    const std::string value = dumpReader->field(object, type, text);
    env->ReleaseStringUTFChars(name, text);
    return env->NewStringUTF(value.c_str());
}

JNIEXPORT jstring JNICALL Java_TestAgent_dumpStatic(JNIEnv* env, jclass, jlong type, jstring name) {
    const char* text = env->GetStringUTFChars(name, nullptr);
    const std::string value = dumpReader->staticField(type, text);
    env->ReleaseStringUTFChars(name, text);
    return env->NewStringUTF(value.c_str());
}

JNIEXPORT jstring JNICALL Java_TestAgent_dumpElement(JNIEnv* env, jclass, jlong array,
                                                     jlong index) {
    return env->NewStringUTF(dumpReader->element(array, index).c_str());
}

JNIEXPORT jobjectArray JNICALL Java_TestAgent_dumpCounts(JNIEnv* env, jclass) {
    return toJava(env, dumpReader->instanceCounts());
}

JNIEXPORT jobjectArray JNICALL Java_TestAgent_dumpRoots(JNIEnv* env, jclass, jlong object) {
    return toJava(env, dumpReader->roots(object));
}
}
