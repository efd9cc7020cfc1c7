// Queues garbage-collection events in the VM's thread and sends them from ours.
#include "jvmpi/GcEvents.h"

#include <semaphore.h>
#include <sys/time.h>

#include <array>
#include <atomic>
#include <cstdint>

#include "jvmpi/Edge.h"
#include "jvmpi/EventSwitch.h"
#include "jvmpi/HeapMeter.h"
#include "jvmpi/ThreadControl.h"
#include "jvmpi/gc_edge.h"

namespace adapter {
namespace {

// The queue is the semaphore's count: starts and finishes alternate strictly, so the n-th post is a
// start for even n and a finish for odd n, and no burst can lose or reorder one.
sem_t posts;

// Pauses are announced one at a time, in a stopped world. The flag keeps the alternation should the
// VM break it. The event's mode cannot change within a pause, because changing it needs the world
// to move.
std::atomic<bool> inPause{false};

// When the posts came, as many as are remembered of those that wait; written in a stopped world, so
// by one thread at a time. A burst beyond that costs times, never events.
std::array<std::atomic<std::uint64_t>, 256> edgeTimes{};  // us since the epoch
std::atomic<std::uint64_t> edges{0};

void postEdge() {
    timeval now{};
    gettimeofday(&now, nullptr);
    const std::uint64_t number = edges.load(std::memory_order_relaxed);
    edgeTimes[number % edgeTimes.size()].store(
        static_cast<std::uint64_t>(now.tv_sec) * 1000000 + static_cast<std::uint64_t>(now.tv_usec),
        std::memory_order_release);
    edges.store(number + 1, std::memory_order_release);
    sem_post(&posts);
}

// The time of the n-th post; unknown when it has been written over.
GcEdge edgeOf(std::uint64_t number) {
    const std::uint64_t time = edgeTimes[number % edgeTimes.size()].load(std::memory_order_acquire);
    GcEdge edge;
    if (edges.load(std::memory_order_acquire) - number >= edgeTimes.size()) return edge;
    edge.mark = GcEdge::kMark;
    edge.sec = static_cast<std::uint32_t>(time / 1000000);
    edge.usec = static_cast<std::uint32_t>(time % 1000000);
    return edge;
}

std::atomic<bool> ending{false};
std::atomic<bool> prepared{false};  // posts is usable

void sendStart(JNIEnv* env, const GcEdge& edge) {
    if (!isEventOn(JVMPI_EVENT_GC_START)) return;
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_GC_START;
    event.env_id = env;
    edge.putInto(&event);
    sendEvent(event);
}

void sendFinish(JNIEnv* env, const HeapMeter& heap, const GcEdge& edge) {
    if (!isEventOn(JVMPI_EVENT_GC_FINISH)) return;
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_GC_FINISH;
    event.env_id = env;
    event.u.gc_info.used_objects = -1;  // unknown: today's collectors do not count objects
    heap.read(event.u.gc_info.used_object_space, event.u.gc_info.total_object_space);
    edge.putInto(&event);
    sendEvent(event);
}

void JNICALL sendGcEvents(jvmtiEnv*, JNIEnv* env, void*) {
    const HeapMeter heap(env);
    std::uint64_t number = 0;
    for (bool start = true;; start = !start, ++number) {
        while (sem_wait(&posts) != 0) {
        }
        if (ending.load(std::memory_order_acquire)) return;
        // The start is sent before any JNI call: that would block until the pause is over.
        atEdge([&] {
            if (start) {
                sendStart(env, edgeOf(number));
            } else {
                sendFinish(env, heap, edgeOf(number));
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
    if (!inPause.exchange(true)) postEdge();
}

void JNICALL onGcFinish(jvmtiEnv*) {
    if (inPause.exchange(false)) postEdge();
}

}  // namespace adapter
