// The functions behind the interface structure: each a thin skin over the subject that does the
// work.
#include <stdlib.h>
#include <time.h>

#include "jvmpi/CallTrace.h"
#include "jvmpi/ClassEvents.h"
#include "jvmpi/ClassIds.h"
#include "jvmpi/Edge.h"
#include "jvmpi/EventSwitch.h"
#include "jvmpi/HeapDump.h"
#include "jvmpi/Jvmti.h"
#include "jvmpi/Monitor.h"
#include "jvmpi/ObjectIds.h"
#include "jvmpi/ThreadControl.h"
#include "jvmpi/ThreadEvents.h"
#include "jvmpi/ThreadMap.h"

namespace adapter {
namespace {

Monitor* monitorOf(JVMPI_RawMonitor handle) {
    return reinterpret_cast<Monitor*>(handle);
}

jobjectID idOf(JNIEnv* env, jobject object) {
    if (env == nullptr) return nullptr;
    const ExceptionAside aside(env);
    return idOfObject(env, object);
}

jint enable(jint type, void*) {
    return enableEvent(type);
}

jint disable(jint type, void*) {
    return disableEvent(type);
}

void profilerExit(jint code) {
    exit(code);
}

JVMPI_RawMonitor rawMonitorCreate(char* name) {
    return reinterpret_cast<JVMPI_RawMonitor>(Monitor::create(name));
}

void rawMonitorEnter(JVMPI_RawMonitor monitor) {
    if (monitor != nullptr) monitorOf(monitor)->enter();
}

void rawMonitorExit(JVMPI_RawMonitor monitor) {
    if (monitor != nullptr) monitorOf(monitor)->exit();
}

void rawMonitorWait(JVMPI_RawMonitor monitor, jlong ms) {
    if (monitor != nullptr) monitorOf(monitor)->wait(ms);
}

void rawMonitorNotifyAll(JVMPI_RawMonitor monitor) {
    if (monitor != nullptr) monitorOf(monitor)->notifyAll();
}

void rawMonitorDestroy(JVMPI_RawMonitor monitor) {
    delete monitorOf(monitor);
}

// The clock answers in every phase, on unattached threads and inside virtual threads, where JVMTI
// refuses.
jlong currentThreadCpuTime() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<jlong>(used.tv_sec) * 1000000000 + used.tv_nsec;
}

jint requestEvent(jint type, void* argument) {
    return atEdge(jint{JVMPI_FAIL}, [&]() -> jint {
        switch (type) {
            case JVMPI_EVENT_THREAD_START:
                return requestThreadStart(static_cast<JNIEnv*>(argument));
            case JVMPI_EVENT_CLASS_LOAD:
                return requestClassLoad(static_cast<jobjectID>(argument));
            case JVMPI_EVENT_HEAP_DUMP:
                return requestHeapDump(static_cast<const JVMPI_HeapDumpArg*>(argument));
            default:
                return JVMPI_NOT_AVAILABLE;
        }
    });
}

void getCallTrace(JVMPI_CallTrace* trace, jint depth) {
    atEdge([&] { fillCallTrace(trace, depth); });
}

void suspend(JNIEnv* env) {
    atEdge([&] { suspendThread(env); });
}

void resume(JNIEnv* env) {
    atEdge([&] { resumeThread(env); });
}

void suspendList(jint count, JNIEnv** list, jint* results) {
    atEdge([&] { suspendThreads(count, list, results); });
}

void resumeList(jint count, JNIEnv** list, jint* results) {
    atEdge([&] { resumeThreads(count, list, results); });
}

jint getThreadStatus(JNIEnv* env) {
    return atEdge(jint{0}, [&] { return threadStatus(env); });
}

jboolean hasRun(JNIEnv* env) {
    return atEdge(true, [&] { return threadHasRun(env); }) ? JNI_TRUE : JNI_FALSE;
}

jint createThread(char* name, jint priority, void (*body)(void*)) {
    return atEdge(jint{JNI_ERR}, [&] { return createSystemThread(name, priority, body); });
}

void setLocalStorage(JNIEnv* env, void* value) {
    atEdge([&] { setThreadLocal(env, value); });
}

void* getLocalStorage(JNIEnv* env) {
    return atEdge(static_cast<void*>(nullptr), [&] { return threadLocal(env); });
}

// Ids do not depend on where objects lie, so there is no need to keep the collector of garbage from
// running.
void disableGc() {
}

void enableGc() {
}

void runGc() {
    if (isLive()) vmti()->ForceGarbageCollection();
}

jobjectID getThreadObject(JNIEnv* wanted) {
    return atEdge(jobjectID{nullptr}, [&]() -> jobjectID {
        JNIEnv* env = currentEnv();
        const LocalRef<jthread> thread = threadOf(env, wanted);
        return thread ? idOf(env, thread.get()) : nullptr;
    });
}

jobjectID getMethodClass(jmethodID method) {
    return atEdge(jobjectID{nullptr}, [&]() -> jobjectID {
        JNIEnv* env = currentEnv();
        if (env == nullptr || method == nullptr) return nullptr;
        LocalRef<jclass> type(env);
        const bool known = vmti()->GetMethodDeclaringClass(method, type.out()) == JVMTI_ERROR_NONE;
        return known ? idOfClass(env, type.get()) : nullptr;
    });
}

jobject idToObject(jobjectID id) {
    return atEdge(jobject{nullptr}, [&]() -> jobject {
        JNIEnv* env = currentEnv();
        if (env == nullptr) return nullptr;
        const ExceptionAside aside(env);
        return objectOfId(env, id);
    });
}

jobjectID objectToId(jobject object) {
    return atEdge(jobjectID{nullptr}, [&] { return idOf(currentEnv(), object); });
}

}  // namespace

JVMPI_Interface& interfaceTable() noexcept {
    static JVMPI_Interface table = {
        .version = JVMPI_VERSION_1_2,
        .NotifyEvent = nullptr,  // the agent's
        .EnableEvent = enable,
        .DisableEvent = disable,
        .RequestEvent = requestEvent,
        .GetCallTrace = getCallTrace,
        .ProfilerExit = profilerExit,
        .RawMonitorCreate = rawMonitorCreate,
        .RawMonitorEnter = rawMonitorEnter,
        .RawMonitorExit = rawMonitorExit,
        .RawMonitorWait = rawMonitorWait,
        .RawMonitorNotifyAll = rawMonitorNotifyAll,
        .RawMonitorDestroy = rawMonitorDestroy,
        .GetCurrentThreadCpuTime = currentThreadCpuTime,
        .SuspendThread = suspend,
        .ResumeThread = resume,
        .GetThreadStatus = getThreadStatus,
        .ThreadHasRun = hasRun,
        .CreateSystemThread = createThread,
        .SetThreadLocalStorage = setLocalStorage,
        .GetThreadLocalStorage = getLocalStorage,
        .DisableGC = disableGc,
        .EnableGC = enableGc,
        .RunGC = runGc,
        .GetThreadObject = getThreadObject,
        .GetMethodClass = getMethodClass,
        .jobjectID2jobject = idToObject,
        .jobject2jobjectID = objectToId,
        .SuspendThreadList = suspendList,
        .ResumeThreadList = resumeList,
    };
    return table;
}

}  // namespace adapter
