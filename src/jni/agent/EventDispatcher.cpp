// The handler through which every VM event comes in, and what it does with each kind.
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

#include "agent/ProbeMgr.h"
#include "agent/velora.h"
#include "capture/CaptureEdge.h"
#include "capture/EventUtils.h"
#include "diagnostics/heapdump.h"
#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "event/VmEvents.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/JniScope.h"
#include "foundation/Log.h"
#include "foundation/Platform.h"
#include "foundation/ThreadCpuClock.h"
#include "foundation/Utils.h"
#include "instrument/InstrumentJNI.h"
#include "instrument/RukaDelegate.h"
#include "instrument/class.h"
#include "instrument/classfilter.h"
#include "transport/MemoryMonitor.h"

std::atomic<bool> doingHeapDump{false};
thread_local ClassLoadRecord class_load;

namespace {

ThreadMgr* threadManager() {
    return thrMgr_.load(std::memory_order_acquire);
}

ThreadData* recordOf(JNIEnv* env) {
    ThreadMgr* const threads = threadManager();
    return threads == nullptr || env == nullptr ? nullptr : threads->getThreadData(env);
}

// A VM may report collections and class loads from threads of its own that have no environment;
// such events have no thread to be booked on. Told once, because they may come by the thousand.
bool hasEnvironment(const JVMPI_Event* event) {
    if (event->env_id != nullptr) return true;
    static std::atomic<bool> told{false};
    if (!told.exchange(true))
        VEL_DEBUG_MIN("EventDispatcher(JVMPI_Event*)",
                      "Events without a JNI environment are ignored, the first was of type %d",
                      event->event_type);
    return false;
}

// A copy as the thread's record keeps it; null when there is no memory or no name.
char* copyName(const char* name) {
    const std::size_t size = std::strlen(name) + 1;
    auto* const copy = new (std::nothrow) char[size];
    if (copy == nullptr) {
        VEL_DEBUG_MIN("ThreadStartEventHandler(JVMPI_Event*)", "Failed to allocate memory");
        return nullptr;
    }
    std::memcpy(copy, name, size);
    return copy;
}

void ThreadStartEventHandler(JVMPI_Event* event) {
    VEL_TRACE("ThreadStartEventHandler(JVMPI_Event*)");
    const auto& start = event->u.thread_start;
    // A requested event comes on the requester's thread and names the thread that is meant.
    const bool requested = (event->event_type & JVMPI_REQUESTED_EVENT) != 0;
    JNIEnv* const meant =
        requested && start.thread_env_id != nullptr ? start.thread_env_id : event->env_id;
    ThreadData* const thread = recordOf(meant);
    if (thread == nullptr) return;
    const int pid = getpid();
    const int ppid = getppid();
    thread->pid_ = pid;
    thread->ppid_ = ppid;
    threadManager()->setLinuxThreadingModel(pid);
    VEL_DEBUG_MAX("ThreadStartEventHandler(JVMPI_Event*)", "New thread created pid = %i  ppid = %i",
                  pid, ppid);
    if (start.thread_name != nullptr)
        if (char* const name = copyName(start.thread_name); name != nullptr)
            thread->setThreadName(name);
    if (start.group_name != nullptr)
        if (char* const name = copyName(start.group_name); name != nullptr)
            thread->setGroupName(name);
}

void ThreadEndEventHandler(JVMPI_Event* event) {
    VEL_TRACE("ThreadEndEventHandler(JVMPI_Event*)");
    ThreadMgr* const threads = threadManager();
    if (threads == nullptr) return;
    ThreadData* const thread = threads->getThreadDataIfPresent(event->env_id);
    if (thread != nullptr) thread->resetOnThreadEnd();
}

void fillClassLoadRecord(const JVMPI_Event* event) {
    const auto& load = event->u.class_load;
    std::snprintf(class_load.class_name, sizeof class_load.class_name, "%s",
                  load.class_name != nullptr ? load.class_name : "");
    class_load.num_interfaces = load.num_interfaces;
    class_load.num_methods = load.num_methods;
    class_load.class_id = load.class_id;
    class_load.static_fields_size = 0;
    if (load.statics == nullptr) return;
    for (jint i = 0; i < load.num_static_fields; ++i)
        if (const char* const signature = load.statics[i].field_signature; signature != nullptr)
            class_load.static_fields_size += getSignatureTypeSize(signature[0]);
}

void ClassLoadEventHandler(JVMPI_Event* event) {
    constexpr char kSignature[] = "ClassLoadEventHandler(JVMPI_Event*)";
    VEL_TRACE(kSignature);
    if (ThreadMgr* const threads = threadManager(); threads != nullptr)
        threads->getThreadLocalStorage(event->env_id);  // makes the thread's record
    const char* const name = event->u.class_load.class_name;
    if (name == nullptr || name[0] == '[' || isPrimitiveName(name)) return;
    if (class_hash.load(std::memory_order_acquire) == nullptr) return;
    // One at a time, so that a class is registered once. Every stack request asks again for the
    // class of a method that is listed nowhere, as an obsolete one is after a redefinition.
    static constinit std::mutex registering;
    const std::lock_guard guard(registering);
    if (isKnownClass(event)) return;
    VEL_DEBUG_MAX(kSignature, "Class %s loaded", name);
    auto* const loaded = new jclass_t(event);  // the table's from now on
    const ULONG sequence = loaded->sequenceID;
    const int filtered = loaded->is_filtered;
    loaded->doRegister();
    VEL_DEBUG_MAX(kSignature, "Class %s (sequence %d, exclude %d)", name, sequence, filtered);
}

void ClassUnloadEventHandler(JVMPI_Event* event) {
    VEL_TRACE("ClassUnloadEventHandler(JVMPI_Event*)");
    const jobjectID id = event->u.class_unload.class_id;
    if (id == nullptr) return;  // a null id would find the table's sentinel
    ThreadData* const thread = recordOf(event->env_id);
    jclass_t* const unloaded = getClassEntry(id);
    if (unloaded == nullptr) return;
    if (event->env_id != nullptr) {
        auto* const report = new ClassEvent(UNLOAD);
        report->classData = unloaded->clone();
        report->classData->delete_flag = 1;
        if (thread != nullptr) report->threadId_ = thread->getThreadIntId();
        EventUtils::appendRequestEvent(event->env_id, thread, report);
    }
    forgetClass(unloaded);
}

void ShutDownEventHandler(JVMPI_Event*) {
    VEL_TRACE("ShutDownEventHandler(JVMPI_Event*)");
}

void JVMInitDoneEventHandler(JVMPI_Event* event) {
    VEL_TRACE("JVMInitDoneEventHandler(JVMPI_Event*)");
    isJVMInitializationDone.store(true);
    if (!isBcmBootstrapNativeRegistered.load()) registerBcmBootstrapNative(event);
    notifyJVMInitDone(event);
}

void onClassLoad(JVMPI_Event* event) {
    if (doingHeapDump.load(std::memory_order_acquire)) {
        fillClassLoadRecord(event);
    } else if (hasEnvironment(event) && !MemoryMonitor::reachedULimit(event->env_id)) {
        ClassLoadEventHandler(event);
    }
}

void onGcFinish(const JVMPI_Event* event) {
    const auto& gc = event->u.gc_info;
    capture::counted([&] {
        EventUtils::appendGCEndEvent(event->env_id, gc.used_objects, gc.used_object_space,
                                     gc.total_object_space, GcEdge::of(event));
    });
    VEL_DEBUG_MAX("EventDispatcher(JVMPI_Event*)",
                  "GC Statistics (Used Object Count: %lld, Used Space: %lld, Total Space: %lld)",
                  gc.used_objects, gc.used_object_space, gc.total_object_space);
}

void onHeapDump(const JVMPI_Event* event) {
    struct Scope {
        Scope() { doingHeapDump.store(true, std::memory_order_release); }
        ~Scope() { doingHeapDump.store(false, std::memory_order_release); }
    } const scope;
    processHeapDump(event->u.heap_dump.begin, event->u.heap_dump.end);
}

void dispatchWhileDisabled(JVMPI_Event* event) {
    if (event->event_type == JVMPI_EVENT_CLASS_LOAD_HOOK) {
        if (RukaDelegate::isRukaEnabled()) {
            RukaDelegate::notifyEvent(event);
        } else {
            notifyClassLoadHookEvent(event);
        }
    } else if (event->event_type == JVMPI_EVENT_JVM_INIT_DONE) {
        JVMInitDoneEventHandler(event);
    }
}

void dispatch(JVMPI_Event* event) {
    switch (event->event_type) {
        case JVMPI_EVENT_THREAD_START:
        case JVMPI_EVENT_THREAD_START | JVMPI_REQUESTED_EVENT:
            ThreadStartEventHandler(event);
            break;
        case JVMPI_EVENT_THREAD_END:
            ThreadEndEventHandler(event);
            break;
        case JVMPI_EVENT_CLASS_LOAD_HOOK:
            notifyClassLoadHookEvent(event);
            RukaDelegate::notifyEvent(event);
            break;
        case JVMPI_EVENT_CLASS_LOAD:
        case JVMPI_EVENT_CLASS_LOAD | JVMPI_REQUESTED_EVENT:
            onClassLoad(event);
            break;
        case JVMPI_EVENT_CLASS_UNLOAD:
        case JVMPI_EVENT_CLASS_UNLOAD | JVMPI_REQUESTED_EVENT:
            ClassUnloadEventHandler(event);
            break;
        case JVMPI_EVENT_JVM_INIT_DONE:
            JVMInitDoneEventHandler(event);
            break;
        case JVMPI_EVENT_JVM_SHUT_DOWN:
            ShutDownEventHandler(event);
            break;
        case JVMPI_EVENT_GC_START:
            if (hasEnvironment(event))
                capture::counted(
                    [event] { EventUtils::appendGCStartEvent(event->env_id, GcEdge::of(event)); });
            break;
        case JVMPI_EVENT_GC_FINISH:
            if (hasEnvironment(event)) onGcFinish(event);
            break;
        case JVMPI_EVENT_HEAP_DUMP | JVMPI_REQUESTED_EVENT:
            onHeapDump(event);
            break;
        default:
            break;
    }
}

}  // namespace

extern "C" JNIEXPORT void EventDispatcher(JVMPI_Event* event) {
    VEL_TRACE("EventDispatcher(JVMPI_Event*)");
    if (event == nullptr) return;
    atJniEdge("EventDispatcher", [event] {
        if (ProbeMgr::isProbeDisabled()) {
            dispatchWhileDisabled(event);
        } else {
            dispatch(event);
        }
    });
}

void forgetClass(jclass_t* unloaded) {
    VEL_TRACE("forgetClass(jclass_t*)");
    if (CLASSULOAD_CLEANUP == -1) {
        unloaded->unregister();
        jclass_t::retire(unloaded);
    } else {
        unloaded->markDirty();
        jclass_t::cleanupDirtyClasses();
    }
}

void getClocks(MethodEvent* m, bool start, JNIEnv* env) {
    if (m == nullptr) return;
    ThreadData* const thread = recordOf(env);
    const auto wallTime = [m] { getCurrentTime(&m->timeSec_, &m->timeUSec_); };
    if (start) wallTime();
    const jlong cpuTime = ThreadCpuClock::now();
    m->cpuTime_ = thread == nullptr ? cpuTime : thread->cpuTime(cpuTime);
    if (!start) wallTime();
}

void setClassType(JNIEnv*, jmethod_t* method, jobject, jclass) {
    VEL_TRACE("setClassType(JNIEnv*, jmethod_t*, jobject, jclass)");
    if (method != nullptr && method->clazz != nullptr) method->clazz->type = 0;
}

void setWLBCM(JVMPI_Event* event) {
    VEL_TRACE("setWLBCM(JVMPI_Event*)");
    JNIEnv* const env = event == nullptr ? nullptr : event->env_id;
    if (env == nullptr) return;
    const LocalRef custom(env, env->FindClass("com/velora/weblogic/CustomCLWS"));
    if (handleJavaException(env) || !custom) return;
    const jmethodID instrument = env->GetStaticMethodID(custom.get(), "InstrumentBcm", "()V");
    if (handleJavaException(env) || instrument == nullptr) return;
    env->CallStaticVoidMethod(custom.get(), instrument);
    handleJavaException(env);
    if (JVMPI_Interface* const interface = ProbeMgr::getJVMPI(); interface != nullptr)
        interface->DisableEvent(JVMPI_EVENT_CLASS_LOAD, nullptr);
}
