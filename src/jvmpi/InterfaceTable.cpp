// The functions behind the interface structure: each a thin skin over the subject that does the
// work.
#include <stdlib.h>
#include <time.h>

#include "jvmpi/EventSwitch.h"
#include "jvmpi/Jvmti.h"
#include "jvmpi/Monitor.h"

namespace adapter {
namespace {

Monitor* monitorOf(JVMPI_RawMonitor handle) {
    return reinterpret_cast<Monitor*>(handle);
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

void runGc() {
    if (isLive()) vmti()->ForceGarbageCollection();
}

}  // namespace

JVMPI_Interface& interfaceTable() noexcept {
    static JVMPI_Interface table = {
        .version = JVMPI_VERSION_1_2,
        .NotifyEvent = nullptr,  // the agent's
        .EnableEvent = enable,
        .DisableEvent = disable,
        .RequestEvent = nullptr,
        .GetCallTrace = nullptr,
        .ProfilerExit = profilerExit,
        .RawMonitorCreate = rawMonitorCreate,
        .RawMonitorEnter = rawMonitorEnter,
        .RawMonitorExit = rawMonitorExit,
        .RawMonitorWait = rawMonitorWait,
        .RawMonitorNotifyAll = rawMonitorNotifyAll,
        .RawMonitorDestroy = rawMonitorDestroy,
        .GetCurrentThreadCpuTime = currentThreadCpuTime,
        .SuspendThread = nullptr,
        .ResumeThread = nullptr,
        .GetThreadStatus = nullptr,
        .ThreadHasRun = nullptr,
        .CreateSystemThread = nullptr,
        .SetThreadLocalStorage = nullptr,
        .GetThreadLocalStorage = nullptr,
        .DisableGC = nullptr,
        .EnableGC = nullptr,
        .RunGC = runGc,
        .GetThreadObject = nullptr,
        .GetMethodClass = nullptr,
        .jobjectID2jobject = nullptr,
        .jobject2jobjectID = nullptr,
        .SuspendThreadList = nullptr,
        .ResumeThreadList = nullptr,
    };
    return table;
}

}  // namespace adapter
