// The table of class ids.
#include "jvmpi/ClassIds.h"

#include <atomic>
#include <mutex>
#include <new>
#include <vector>

#include "jvmpi/ObjectIds.h"

namespace adapter {
namespace {

// Never destroyed: exit handlers may still ask.
struct Table {
    std::mutex
        lock;  // guards classes; also orders look and set of a tag, so that a class gets one id
    std::vector<SharedWeakRef> classes;  // by (id - kFirstClassId) / kIdStep; empty: unloaded
};

Table& table() {
    static Table& instance = *new Table;
    return instance;
}

// A stack without locks: pushed by the VM's callback, taken as a whole.
struct Freed {
    jlong tag;
    Freed* next;
};
std::atomic<Freed*> freed{nullptr};
std::atomic<void (*)()> freedListener{nullptr};

std::size_t indexOf(jlong tag) {
    return static_cast<std::size_t>((tag - kFirstClassId) / kIdStep);
}

jlong tagOf(jclass type) {
    jlong tag = 0;
    return vmti()->GetTag(type, &tag) == JVMTI_ERROR_NONE ? tag : 0;
}

// Unloads are followed once there is something to follow.
void followUnloads() {
    static const bool following = [] {
        return acquire(
                   [](jvmtiCapabilities& wanted) { wanted.can_generate_object_free_events = 1; }) &&
               setNotified(JVMTI_EVENT_OBJECT_FREE, true);
    }();
    (void)following;
}

}  // namespace

jobjectID idOfClass(JNIEnv* env, jclass type) {
    if (env == nullptr || type == nullptr) return nullptr;
    if (const jlong known = tagOf(type)) return toObjectId(known);
    const ExceptionAside aside(env);
    followUnloads();
    // Without an agent that listens, forgetting unloaded classes happens here, when the table
    // grows.
    if (freedListener.load(std::memory_order_acquire) == nullptr) drainUnloaded({});
    auto weak = std::make_shared<const WeakRef>(env, type);
    const std::lock_guard guard(table().lock);
    if (const jlong known = tagOf(type)) return toObjectId(known);
    auto& classes = table().classes;
    const jlong tag = kFirstClassId + static_cast<jlong>(classes.size()) * kIdStep;
    classes.push_back(std::move(weak));
    if (vmti()->SetTag(type, tag) == JVMTI_ERROR_NONE) return toObjectId(tag);
    classes.pop_back();
    return nullptr;
}

LocalRef<jclass> classOfId(JNIEnv* env, jobjectID id) {
    const jlong tag = toTag(id);
    SharedWeakRef weak;
    if (env != nullptr && tag >= kFirstClassId && tag < kFirstSingleId &&
        (tag - kFirstClassId) % kIdStep == 0) {
        const std::lock_guard guard(table().lock);
        if (indexOf(tag) < table().classes.size()) weak = table().classes[indexOf(tag)];
    }
    if (weak == nullptr) return LocalRef<jclass>(env);
    return LocalRef<jclass>(env, static_cast<jclass>(weak->get(env).release()));
}

void JNICALL onObjectFree(jvmtiEnv*, jlong tag) {
    auto* node = new (std::nothrow) Freed{tag, freed.load(std::memory_order_relaxed)};
    if (node == nullptr)
        return;  // the entry stays, its weak reference is dead: it costs a few bytes
    while (!freed.compare_exchange_weak(node->next, node, std::memory_order_release,
                                        std::memory_order_relaxed)) {
    }
    if (const auto listener = freedListener.load(std::memory_order_acquire)) listener();
}

void setFreedListener(void (*listener)()) {
    freedListener.store(listener, std::memory_order_release);
}

void drainUnloaded(const std::function<void(jobjectID)>& each) {
    Freed* newest = freed.exchange(nullptr, std::memory_order_acquire);
    Freed* oldest = nullptr;
    while (newest != nullptr) {
        Freed* next = newest->next;
        newest->next = oldest;
        oldest = newest;
        newest = next;
    }
    while (oldest != nullptr) {
        const std::unique_ptr<Freed> node(oldest);
        oldest = node->next;
        SharedWeakRef dropped;  // let go outside the lock
        {
            const std::lock_guard guard(table().lock);
            if (indexOf(node->tag) < table().classes.size()) {
                dropped.swap(table().classes[indexOf(node->tag)]);
            }
        }
        if (each) each(toObjectId(node->tag));
    }
}

}  // namespace adapter
