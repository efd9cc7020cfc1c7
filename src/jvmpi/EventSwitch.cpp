// Event types on and off, and the door to the agent's handler.
#include "jvmpi/EventSwitch.h"

#include <atomic>
#include <mutex>

#include "jvmpi/ClassEvents.h"
#include "jvmpi/ClassHook.h"
#include "jvmpi/Edge.h"
#include "jvmpi/GcEvents.h"
#include "jvmpi/ThreadEvents.h"

namespace adapter {
namespace {

// An event type that agents can switch on. follow() brings the VM's notifications in line with what
// isEventOn says; false: the VM refuses. Null: nothing to switch.
struct Offer {
    jint type;
    bool (*follow)();
};

constexpr Offer kOffers[] = {
    {JVMPI_EVENT_THREAD_START, followThreadEvents},
    {JVMPI_EVENT_THREAD_END, followThreadEvents},
    {JVMPI_EVENT_CLASS_LOAD_HOOK, followClassHook},
    {JVMPI_EVENT_CLASS_LOAD, followClassLoad},
    {JVMPI_EVENT_CLASS_UNLOAD, followClassUnload},
    {JVMPI_EVENT_JVM_INIT_DONE, nullptr},
    {JVMPI_EVENT_JVM_SHUT_DOWN, nullptr},
    {JVMPI_EVENT_GC_START, followGc},
    {JVMPI_EVENT_GC_FINISH, followGc},
};

std::atomic<std::uint64_t> enabledTypes{0};  // bit n: type n; read on every VM event
static_assert(JVMPI_MAX_EVENT_TYPE_VAL < 64);

// Orders switches, so that the VM's notifications end up as the last one wanted. Held across JVMTI
// calls, which may wait for a safepoint; no event handler runs under it.
std::mutex switchLock;

std::atomic<bool> initDoneSent{false};
std::atomic<bool> doorShut{false};  // the VM has died

const Offer* findOffer(jint type) {
    for (const Offer& offer : kOffers) {
        if (offer.type == type) return &offer;
    }
    return nullptr;
}

std::uint64_t bitOf(jint type) {
    return std::uint64_t{1} << type;
}

bool follow(const Offer& offer) {
    return offer.follow == nullptr || atEdge(false, [&] { return offer.follow(); });
}

}  // namespace

jint enableEvent(jint type) noexcept {
    const Offer* offer = findOffer(type);
    if (offer == nullptr) return JVMPI_NOT_AVAILABLE;
    const std::lock_guard guard(switchLock);
    enabledTypes.fetch_or(bitOf(type), std::memory_order_acq_rel);
    if (follow(*offer)) return JVMPI_SUCCESS;
    enabledTypes.fetch_and(~bitOf(type), std::memory_order_acq_rel);
    follow(*offer);
    return JVMPI_FAIL;
}

jint disableEvent(jint type) noexcept {
    const Offer* offer = findOffer(type);
    if (offer == nullptr) return JVMPI_NOT_AVAILABLE;
    const std::lock_guard guard(switchLock);
    enabledTypes.fetch_and(~bitOf(type), std::memory_order_acq_rel);
    follow(*offer);
    return JVMPI_SUCCESS;
}

void catchUpWithVm() noexcept {
    const std::lock_guard guard(switchLock);
    for (const Offer& offer : kOffers) {
        if (isEventOn(offer.type)) follow(offer);
    }
}

bool isEventOn(jint type) noexcept {
    return (enabledTypes.load(std::memory_order_acquire) & bitOf(type)) != 0;
}

void sendEvent(JVMPI_Event& event) noexcept {
    if (doorShut.load(std::memory_order_acquire)) return;
    // The agent fills the slot by a plain store, at a moment of its choosing.
    const std::atomic_ref slot(interfaceTable().NotifyEvent);
    if (const auto handler = slot.load(std::memory_order_acquire)) handler(&event);
}

void sendPlainEvent(jint type, JNIEnv* env) noexcept {
    if (!isEventOn(type)) return;
    JVMPI_Event event{};
    event.event_type = type;
    event.env_id = env;
    sendEvent(event);
}

void sendInitDone(JNIEnv* env) noexcept {
    if (!initDoneSent.exchange(true)) sendPlainEvent(JVMPI_EVENT_JVM_INIT_DONE, env);
}

void sendShutDown(JNIEnv* env) noexcept {
    sendPlainEvent(JVMPI_EVENT_JVM_SHUT_DOWN, env);
    doorShut.store(true, std::memory_order_release);
}

void sealEvents() noexcept {
    doorShut.store(true, std::memory_order_release);
    for (const Offer& offer : kOffers) disableEvent(offer.type);
}

}  // namespace adapter
