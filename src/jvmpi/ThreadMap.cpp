// The map from JNIEnv* to Java thread, and what is kept per thread.
#include "jvmpi/ThreadMap.h"

#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "jvmpi/NativeThreadField.h"

namespace adapter {
namespace {

struct Entry {
    SharedWeakRef thread;
    bool began = false;  // its start was seen, not only the thread itself
    void* local = nullptr;
    SuspendMarks marks;
};

// Never destroyed: threads end after the process's exit handlers have begun to run.
struct Map {
    std::mutex lock;  // guards everything here
    std::unordered_map<JNIEnv*, Entry> entries;
    bool following = false;
    int searches = 0;                            // running findRunningThreads()
    std::unordered_set<JNIEnv*> endedMeanwhile;  // since the first of them began
};

Map& map() {
    static Map& instance = *new Map;
    return instance;
}

LocalRef<jthread> find(JNIEnv* caller, JNIEnv* wanted) {
    SharedWeakRef thread;
    {
        const std::lock_guard guard(map().lock);
        const auto at = map().entries.find(wanted);
        if (at != map().entries.end()) thread = at->second.thread;
    }
    return thread == nullptr ? LocalRef<jthread>(caller) : thread->get(caller);
}

// A thread may end between being listed and being entered; its address must not stay behind as a
// living one.
void enterUnlessEnded(JNIEnv* caller, JNIEnv* env, jthread thread) {
    auto weak = std::make_shared<const WeakRef>(caller, thread);
    const std::lock_guard guard(map().lock);
    if (map().endedMeanwhile.count(env) == 0) {
        const auto [at, isNew] = map().entries.try_emplace(env);
        if (isNew) at->second.thread = std::move(weak);
    }
}

void findRunningThreads(JNIEnv* caller) {
    jint count = 0;
    VmMemory<jthread> threads;
    {
        const std::lock_guard guard(map().lock);
        ++map().searches;
    }
    if (vmti()->GetAllThreads(&count, threads.out()) == JVMTI_ERROR_NONE) {
        announceLocals(caller, count);
        for (jint i = 0; i < count; ++i) {
            const LocalRef<jthread> thread(caller, threads[i]);
            if (JNIEnv* env = nativeEnvOf(caller, thread.get())) {
                enterUnlessEnded(caller, env, thread.get());
            }
        }
    }
    const std::lock_guard guard(map().lock);
    if (--map().searches == 0) map().endedMeanwhile.clear();
}

bool isKnown(JNIEnv* wanted) {
    const std::lock_guard guard(map().lock);
    return map().entries.count(wanted) != 0;
}

// Enters a thread that started before the map followed them, if it can be found.
void makeKnown(JNIEnv* wanted) {
    JNIEnv* caller = currentEnv();
    if (caller == nullptr || wanted == nullptr || !isLive()) return;
    followThreads();
    if (isKnown(wanted)) return;
    const ExceptionAside aside(caller);
    findRunningThreads(caller);
    if (wanted == caller && !isKnown(wanted)) {
        LocalRef<jthread> self(caller);
        vmti()->GetCurrentThread(self.out());
        if (self) enterUnlessEnded(caller, caller, self.get());
    }
}

// Runs use on the thread's entry, under the lock; not at all for an unknown thread.
template <typename Use>
void withEntry(JNIEnv* wanted, Use&& use) {
    makeKnown(wanted);
    const std::lock_guard guard(map().lock);
    const auto at = map().entries.find(wanted);
    if (at != map().entries.end()) use(at->second);
}

}  // namespace

void followThreads() {
    {
        const std::lock_guard guard(map().lock);
        if (map().following) return;
        map().following = true;
    }
    setNotified(JVMTI_EVENT_THREAD_START, true);
    setNotified(JVMTI_EVENT_THREAD_END, true);
}

LocalRef<jthread> threadOf(JNIEnv* caller, JNIEnv* wanted) {
    LocalRef<jthread> self(caller);
    if (caller == nullptr || wanted == nullptr || !isLive()) return self;
    if (wanted == caller) {
        vmti()->GetCurrentThread(self.out());
        return self;
    }
    const ExceptionAside aside(caller);
    makeKnown(wanted);
    return find(caller, wanted);
}

JNIEnv* envOf(JNIEnv* caller, jthread thread) {
    const ExceptionAside aside(caller);
    return nativeEnvOf(caller, thread);
}

bool threadBegan(JNIEnv* env, jthread thread) {
    confirmNativeEnv(env, thread);
    auto weak = std::make_shared<const WeakRef>(env, thread);
    SharedWeakRef replaced;  // let go outside the lock
    const std::lock_guard guard(map().lock);
    Entry& entry = map().entries[env];
    replaced = std::exchange(entry.thread, std::move(weak));
    return !std::exchange(entry.began, true);
}

void threadEnded(JNIEnv* env) {
    SharedWeakRef dropped;  // let go outside the lock
    const std::lock_guard guard(map().lock);
    if (map().searches > 0) map().endedMeanwhile.insert(env);
    const auto at = map().entries.find(env);
    if (at == map().entries.end()) return;
    dropped = std::move(at->second.thread);
    map().entries.erase(at);
}

void setThreadLocal(JNIEnv* wanted, void* value) {
    withEntry(wanted, [&](Entry& entry) { entry.local = value; });
}

void* threadLocal(JNIEnv* wanted) {
    void* value = nullptr;
    withEntry(wanted, [&](const Entry& entry) { value = entry.local; });
    return value;
}

void noteSuspended(JNIEnv* wanted, jlong cpuNs) {
    withEntry(wanted, [&](Entry& entry) {
        entry.marks.before = entry.marks.last;
        entry.marks.last = cpuNs;
        entry.marks.suspended = true;
    });
}

void noteResumed(JNIEnv* wanted) {
    withEntry(wanted, [](Entry& entry) { entry.marks.suspended = false; });
}

SuspendMarks suspendMarks(JNIEnv* wanted) {
    SuspendMarks marks;
    withEntry(wanted, [&](const Entry& entry) { marks = entry.marks; });
    return marks;
}

}  // namespace adapter
