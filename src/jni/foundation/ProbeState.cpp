#include "foundation/ProbeState.h"

#include <mutex>

#include "foundation/Globals.h"
#include "foundation/Log.h"

std::atomic<bool> ProbeState::disabled_{true};
std::atomic<bool> ProbeState::eventMgrReady_{false};
std::atomic<bool> ProbeState::netMgrReady_{false};
std::atomic<int> ProbeState::level_{2};
std::atomic<void (*)(JVMPI_Event*)> ProbeState::dispatcher_{nullptr};

namespace {

std::mutex ratesLock;  // guards rates
SamplingRates rates;

}  // namespace

// The stores and loads are sequentially consistent: of two managers that become ready at the same
// moment at least one sees both flags.
void ProbeState::setEventMgrReady(bool ready) {
    VEL_TRACE("setEventMgrReady(bool)");
    if (eventMgrReady_.exchange(ready) == ready) return;
    if (eventMgrReady_ && netMgrReady_) disabled_.store(false);
}

void ProbeState::setNetworkMgrReady(bool ready) {
    VEL_TRACE("setNetworkMgrReady(bool)");
    if (netMgrReady_.exchange(ready) == ready) return;
    if (eventMgrReady_ && netMgrReady_) disabled_.store(false);
}

SamplingRates ProbeState::samplingRates() {
    const std::lock_guard guard(ratesLock);
    return rates;
}

void ProbeState::setSamplingRates(const SamplingRates& changed) {
    const std::lock_guard guard(ratesLock);
    rates = changed;
}

void ProbeState::installDispatcher(JVMPI_Interface* interface) {
    if (interface != nullptr && interface->NotifyEvent == nullptr)
        interface->NotifyEvent = dispatcher_.load();
}

void ProbeState::disableClassLoadHook() {
    VEL_TRACE("disableClassLoadHook()");
    if (JVMPI_Interface* const interface = jvmpi.load(std::memory_order_acquire);
        interface != nullptr)
        interface->DisableEvent(JVMPI_EVENT_CLASS_LOAD_HOOK, nullptr);
}
