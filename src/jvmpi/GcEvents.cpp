// Queues garbage-collection events in the VM's thread and sends them from ours.
#include "jvmpi/GcEvents.h"

#include <semaphore.h>

#include <atomic>

#include "jvmpi/Edge.h"
#include "jvmpi/EventSwitch.h"
#include "jvmpi/HeapMeter.h"
#include "jvmpi/ThreadControl.h"

namespace adapter {
namespace {

// The queue is the semaphore's count: starts and finishes alternate strictly, so the n-th post is a
// start for even n and a finish for odd n, and no burst can lose or reorder one.
sem_t posts;

// Pauses are announced one at a time, in a stopped world. The flag keeps the alternation should the
// VM break it. The event's mode cannot change within a pause, because changing it needs the world
// to move.
std::atomic<bool> inPause{false};

std::atomic<bool> ending{false};
std::atomic<bool> prepared{false};  // posts is usable

void sendFinish(JNIEnv* env, const HeapMeter& heap) {
    if (!isEventOn(JVMPI_EVENT_GC_FINISH)) return;
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_GC_FINISH;
    event.env_id = env;
    event.u.gc_info.used_objects = 0;  // today's collectors do not count objects
    heap.read(event.u.gc_info.used_object_space, event.u.gc_info.total_object_space);
    sendEvent(event);
}

void JNICALL sendGcEvents(jvmtiEnv*, JNIEnv* env, void*) {
    const HeapMeter heap(env);
    for (bool start = true;; start = !start) {
        while (sem_wait(&posts) != 0) {
        }
        if (ending.load(std::memory_order_acquire)) return;
        // The start is sent before any JNI call: that would block until the pause is over.
        atEdge([&] {
            if (start) {
                sendPlainEvent(JVMPI_EVENT_GC_START, env);
            } else {
                sendFinish(env, heap);
            }
        });
    }
}

bool isWanted() {
    return isEventOn(JVMPI_EVENT_GC_START) || isEventOn(JVMPI_EVENT_GC_FINISH);
}

// Once; false when the VM refuses.
bool prepareQueue() {
    if (!prepared.load()) {  // changed under the switch's lock only
        prepared = sem_init(&posts, 0, 0) == 0 && acquire([](jvmtiCapabilities& wanted) {
                       wanted.can_generate_garbage_collection_events = 1;
                   });
    }
    return prepared.load();
}

bool startSender() {
    static bool started = false;  // changed under the switch's lock only
    started = started || startAgentThread(currentEnv(), "JVMPI garbage collection events",
                                          JVMTI_THREAD_MAX_PRIORITY, sendGcEvents, nullptr);
    return started;
}

}  // namespace

bool followGc() {
    const bool on = isWanted();
    if (on && !prepareQueue()) return false;
    if (on && isLive() && !startSender()) return false;  // before that the queue just fills
    return setNotified(JVMTI_EVENT_GARBAGE_COLLECTION_START, on) &&
           setNotified(JVMTI_EVENT_GARBAGE_COLLECTION_FINISH, on);
}

void endGcSender() {
    ending.store(true, std::memory_order_release);
    if (prepared.load()) sem_post(&posts);
}

void JNICALL onGcStart(jvmtiEnv*) {
    if (!inPause.exchange(true)) sem_post(&posts);
}

void JNICALL onGcFinish(jvmtiEnv*) {
    if (inPause.exchange(false)) sem_post(&posts);
}

}  // namespace adapter
