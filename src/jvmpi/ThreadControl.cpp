// Thread status, suspension and the agent's threads.
#include "jvmpi/ThreadControl.h"

#include <algorithm>
#include <vector>

#include "jvmpi/ThreadMap.h"

namespace adapter {
namespace {

bool maySuspend() {
    static const bool may = acquire([](jvmtiCapabilities& wanted) { wanted.can_suspend = 1; });
    return may;
}

// CPU time of any thread, ns; -1 when the VM does not tell.
jlong cpuTimeOf(jthread thread) {
    static const bool may =
        acquire([](jvmtiCapabilities& wanted) { wanted.can_get_thread_cpu_time = 1; });
    jlong ns = -1;
    if (!may || vmti()->GetThreadCpuTime(thread, &ns) != JVMTI_ERROR_NONE) return -1;
    return ns;
}

jint baseStatus(jint state) {
    if ((state & JVMTI_THREAD_STATE_ALIVE) == 0) return 0;
    if (state & JVMTI_THREAD_STATE_BLOCKED_ON_MONITOR_ENTER) return JVMPI_THREAD_MONITOR_WAIT;
    if (state & JVMTI_THREAD_STATE_WAITING) return JVMPI_THREAD_CONDVAR_WAIT;
    return JVMPI_THREAD_RUNNABLE;
}

using ListFunction = jvmtiError (jvmtiEnv::*)(jint, const jthread*, jvmtiError*);

// Applies a list function to those threads of the list that are known; all others fail.
template <typename Note>
void applyToList(ListFunction function, jint count, JNIEnv** list, jint* results, Note&& note) {
    std::fill_n(results, count, JVMPI_FAIL);
    JNIEnv* env = currentEnv();
    if (env == nullptr || !maySuspend()) return;
    const ExceptionAside aside(env);
    announceLocals(env, count);
    std::vector<LocalRef<jthread>> held;
    std::vector<jthread> threads;
    std::vector<jint> places;
    for (jint i = 0; i < count; ++i) {
        LocalRef<jthread> thread = threadOf(env, list[i]);
        if (!thread) continue;
        threads.push_back(thread.get());
        held.push_back(std::move(thread));
        places.push_back(i);
    }
    if (threads.empty()) return;
    std::vector<jvmtiError> errors(threads.size(), JVMTI_ERROR_INTERNAL);
    (vmti()->*function)(static_cast<jint>(threads.size()), threads.data(), errors.data());
    for (std::size_t n = 0; n < threads.size(); ++n) {
        if (errors[n] != JVMTI_ERROR_NONE) continue;
        results[places[n]] = JVMPI_SUCCESS;
        note(list[places[n]], threads[n]);
    }
}

void noteStopped(JNIEnv* env, jthread thread) {
    noteSuspended(env, cpuTimeOf(thread));
}

void noteGoingOn(JNIEnv* env, jthread) {
    noteResumed(env);
}

// The topmost group, so that no application's group is held.
LocalRef<jthreadGroup> systemGroup(JNIEnv* env) {
    jint count = 0;
    VmMemory<jthreadGroup> groups;
    LocalRef<jthreadGroup> top(env);
    if (vmti()->GetTopThreadGroups(&count, groups.out()) != JVMTI_ERROR_NONE) return top;
    for (jint i = 1; i < count; ++i) env->DeleteLocalRef(groups[i]);
    if (count > 0) *top.out() = groups[0];
    return top;
}

// Empty, with the exception left to the caller, when the VM refuses.
LocalRef<jthread> newThreadObject(JNIEnv* env, const char* name) {
    LocalRef<jthread> thread(env);
    const LocalRef<jclass> type(env, env->FindClass("java/lang/Thread"));
    if (!type) return thread;
    const jmethodID make = env->GetMethodID(
        type.get(), "<init>", "(Ljava/lang/ThreadGroup;Ljava/lang/Runnable;Ljava/lang/String;JZ)V");
    if (make == nullptr) return thread;
    const jmethodID setLoader =
        env->GetMethodID(type.get(), "setContextClassLoader", "(Ljava/lang/ClassLoader;)V");
    if (setLoader == nullptr) return thread;
    const LocalRef<jstring> text(env, env->NewStringUTF(name));
    if (!text) return thread;
    const LocalRef<jthreadGroup> group = systemGroup(env);
    const jboolean inheritLocals = JNI_FALSE;
    LocalRef<jthread> made(env, env->NewObject(type.get(), make, group.get(), nullptr, text.get(),
                                               jlong{0}, inheritLocals));
    if (env->ExceptionCheck() || !made) return thread;
    env->CallVoidMethod(made.get(), setLoader, nullptr);
    if (env->ExceptionCheck()) return thread;
    return made;
}

void JNICALL runAgentBody(jvmtiEnv*, JNIEnv*, void* body) {
    reinterpret_cast<void (*)(void*)>(body)(nullptr);
}

}  // namespace

jint threadStatus(JNIEnv* wanted) {
    const LocalRef<jthread> thread = threadOf(currentEnv(), wanted);
    jint state = 0;
    if (!thread || vmti()->GetThreadState(thread.get(), &state) != JVMTI_ERROR_NONE) return 0;
    jint status = baseStatus(state);
    if (status == 0) return 0;
    if (state & JVMTI_THREAD_STATE_SUSPENDED) status |= JVMPI_THREAD_SUSPENDED;
    if (state & JVMTI_THREAD_STATE_INTERRUPTED) status |= JVMPI_THREAD_INTERRUPTED;
    return status;
}

void suspendThread(JNIEnv* wanted) {
    jint result = 0;
    suspendThreads(1, &wanted, &result);
}

void resumeThread(JNIEnv* wanted) {
    jint result = 0;
    resumeThreads(1, &wanted, &result);
}

void suspendThreads(jint count, JNIEnv** list, jint* results) {
    applyToList(&jvmtiEnv::SuspendThreadList, count, list, results, noteStopped);
}

void resumeThreads(jint count, JNIEnv** list, jint* results) {
    applyToList(&jvmtiEnv::ResumeThreadList, count, list, results, noteGoingOn);
}

bool threadHasRun(JNIEnv* wanted) {
    const LocalRef<jthread> thread = threadOf(currentEnv(), wanted);
    if (!thread) return true;
    const SuspendMarks marks = suspendMarks(wanted);
    const jlong since = marks.suspended ? marks.before : marks.last;
    const jlong now = cpuTimeOf(thread.get());
    return since < 0 || now < 0 || now > since;
}

bool startAgentThread(JNIEnv* env, const char* name, jint priority, jvmtiStartFunction body,
                      void* argument) {
    if (env == nullptr || !isLive()) return false;
    const ExceptionAside aside(env);
    const LocalRef<jthread> thread = newThreadObject(env, name);
    if (!thread) return false;
    const jint fit =
        std::clamp<jint>(priority, JVMTI_THREAD_MIN_PRIORITY, JVMTI_THREAD_MAX_PRIORITY);
    return vmti()->RunAgentThread(thread.get(), body, argument, fit) == JVMTI_ERROR_NONE;
}

jint createSystemThread(const char* name, jint priority, void (*body)(void*)) {
    const char* known = name == nullptr ? "JVMPI agent thread" : name;
    const bool started = startAgentThread(currentEnv(), known, priority, runAgentBody,
                                          reinterpret_cast<void*>(body));
    return started ? JNI_OK : JNI_ERR;
}

}  // namespace adapter
