// The handlers of the VM's mount events, and what each carrier knows.
#include "event/VirtualThreads.h"

#include <strings.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "event/RecordPins.h"
#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/PropertyMgr.h"
#include "foundation/ThreadCpuClock.h"
#include "jvmpi/virtual_threads.h"

namespace {

// What is followed: dormant until a virtual thread makes its first capture call.
enum Following : int {
    kDormant = -1,
    kNothing = JVMPI_FOLLOWS_NOTHING,
    kEnds = JVMPI_FOLLOWS_ENDS,
    kMounts = JVMPI_FOLLOWS_MOUNTS,
};

std::atomic<const JVMPI_VirtualThreads*> source{nullptr};  // null: no virtual threads in this VM
std::atomic<int> following{kDormant};
std::mutex startLock;  // guards the step from dormant; held across the VM's switching on of events

// What is known of one thread of the system.
struct Seat {
    JNIEnv* env = nullptr;         // its own
    ThreadData* record = nullptr;  // of the mounted virtual thread; null: none yet
    bool taken = false;            // a virtual thread is mounted
    bool sure = false;             // this stays true until an event says otherwise
    jlong left = -1;               // the clock when a thread with a record was unmounted last, ns
};
constinit thread_local Seat seat;

// A carrier that goes from one thread to the next without leaving its processor is read once: what
// the change takes counts for the thread that comes.
jlong clockAtMount(Seat& here) {
    const jlong left = std::exchange(here.left, -1);
    return left >= 0 && ThreadCpuClock::undisturbed() ? left : ThreadCpuClock::now();
}

void onMounted(JNIEnv* carrier, void* stored) {
    Seat& here = seat;
    here.env = carrier;
    here.record = static_cast<ThreadData*>(stored);
    here.taken = here.sure = true;
    RecordPins::forgetOwn();
    if (here.record != nullptr) here.record->mounted(clockAtMount(here));
}

// Counts what the mounted thread has used, which gives the seat up.
void leave(Seat& here) {
    here.left = -1;
    if (here.record != nullptr && here.taken) {
        here.left = ThreadCpuClock::now();
        here.record->unmounted(here.left);
    }
    here.record = nullptr;
    here.taken = false;
    RecordPins::forgetOwn();
}

void onUnmounted(JNIEnv* carrier) {
    Seat& here = seat;
    leave(here);
    here.env = carrier;
    here.sure = true;
}

void onEnded(JNIEnv*, void* stored) {
    auto* const record = static_cast<ThreadData*>(stored);
    if (record == nullptr) return;
    if (seat.record == record) leave(seat);
    atJniEdge("VirtualThreadEnd", [record] { ThreadMgr::virtualThreadEnded(record); });
}

constexpr JVMPI_VirtualThreadHandlers kHandlers = {onMounted, onUnmounted, onEnded};

bool cpuTimeIsWanted() {
    const char* const wish =
        PropertyMgr::getInstance()->getProperty("internal.virtualthread.cputime");
    return wish == nullptr || strcasecmp(wish, "NO") != 0;
}

void startFollowing(const JVMPI_VirtualThreads& vm) {
    const std::lock_guard hold(startLock);
    if (following.load(std::memory_order_relaxed) != kDormant) return;
    const jint what = vm.Follow(&kHandlers, cpuTimeIsWanted() ? JNI_TRUE : JNI_FALSE);
    following.store(what, std::memory_order_release);
    if (what == kNothing) logMessage(msg::kVirtualThreadsUnknown);
}

// Asks the VM who runs here. While mounts are followed that holds until the next event.
void look(const JVMPI_VirtualThreads& vm) {
    bool eventsTell = following.load(std::memory_order_acquire) == kMounts;
    void* stored = nullptr;
    const jint kind = vm.GetCurrentThread(&seat.env, &stored);
    seat.taken = kind == JVMPI_VIRTUAL_THREAD;
    seat.record = static_cast<ThreadData*>(stored);
    if (seat.taken && following.load(std::memory_order_acquire) == kDormant) {
        startFollowing(vm);
        // It is we who are mounted, and stay so while this call lasts.
        eventsTell = following.load(std::memory_order_acquire) == kMounts;
    }
    seat.sure = kind == JVMPI_PLATFORM_THREAD || (kind != JVMPI_FAIL && eventsTell);
}

}  // namespace

void VirtualThreads::introduce(JavaVM* vm) {
    void* table = nullptr;
    if (vm == nullptr || source.load(std::memory_order_relaxed) != nullptr) return;
    if (vm->GetEnv(&table, JVMPI_VERSION_VIRTUAL_THREADS) == JNI_OK)
        source.store(static_cast<const JVMPI_VirtualThreads*>(table), std::memory_order_release);
}

void VirtualThreads::forget() {
    source = nullptr;
    following = kDormant;
    seat = {};
}

bool VirtualThreads::mountedOn(JNIEnv* env) {
    const JVMPI_VirtualThreads* const vm = source.load(std::memory_order_acquire);
    if (vm == nullptr) return false;
    if (!seat.sure) look(*vm);
    return seat.taken && seat.env == env;
}

ThreadData* VirtualThreads::record() {
    return seat.record;
}

bool VirtualThreads::keep(ThreadData* record) {
    const JVMPI_VirtualThreads* const vm = source.load(std::memory_order_acquire);
    if (vm == nullptr || vm->Store(record) != JVMPI_SUCCESS) return false;
    if (seat.record != nullptr) ThreadMgr::virtualThreadEnded(seat.record);
    seat.record = record;
    record->mounted(ThreadCpuClock::now());
    return true;
}

bool VirtualThreads::areFollowed() {
    return following.load(std::memory_order_acquire) > kNothing;
}

bool VirtualThreads::cpuIsMeasured() {
    return following.load(std::memory_order_acquire) == kMounts;
}

bool VirtualThreads::recordIsSteady() {
    return seat.sure || source.load(std::memory_order_acquire) == nullptr;
}
