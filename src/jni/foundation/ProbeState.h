// What the probe is doing, as every floor may ask: whether it captures at all, at which level, with
// which sampling rates; and the switch of the VM's class events.
//
// Threads: any. The flags are atomics that capture reads on every call: a reader that sees the old
// value for a moment behaves as if it had come a moment earlier.
#pragma once

#include <jni.h>

#include <atomic>

#include "jvmpi/jvmpi.h"

struct SamplingRates {
    jint rates[4] = {100, 100, 100, 100};  // per cent
    bool useDefault = true;                // the Publish Server's own default applies
};

class ProbeState {
public:
    ProbeState() = delete;

    // From the start until event agents and network agents are both ready, and from a stop on.
    static bool isDisabled() { return disabled_.load(std::memory_order_relaxed); }
    static void disable() { disabled_.store(true); }
    // Either may come first; the second enables the probe. Neither disables it again when it goes
    // down: capture goes on and the queues' limits hold.
    static void setEventMgrReady(bool ready);
    static void setNetworkMgrReady(bool ready);

    static int level() { return level_.load(std::memory_order_relaxed); }  // MOD level, 1 to 3
    static void setLevel(int level) { level_.store(level, std::memory_order_relaxed); }

    static SamplingRates samplingRates();
    static void setSamplingRates(const SamplingRates& rates);

    // The handler of the VM's events, told once while the library loads, and its installation in
    // the interface where nobody has installed one.
    static void setDispatcher(void (*dispatcher)(JVMPI_Event*)) { dispatcher_.store(dispatcher); }
    static void installDispatcher(JVMPI_Interface* interface);
    static void disableClassLoadHook();

private:
    friend class ProbeStateAccess;  // tests that start from another state

    static std::atomic<bool> disabled_;
    static std::atomic<bool> eventMgrReady_;
    static std::atomic<bool> netMgrReady_;
    static std::atomic<int> level_;
    static std::atomic<void (*)(JVMPI_Event*)> dispatcher_;
};
