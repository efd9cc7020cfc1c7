// A VM's profiler interface without a VM: what the collector uses of JVMPI, backed by plain C++.
// Any other function ends the test program with a message.
//
// Monitors are real (re-entrant, they exclude other threads), but a timed wait returns at once and
// only adds up the milliseconds asked for, so that a thirty-second rule is tested in microseconds.
//
// One at a time: JVMPI's functions carry no context, so they find the living FakeJvmpi through a
// static pointer. Monitor handles stay valid until the process ends, for singletons that outlive a
// test. Threads: every function from any thread. The public handlers are set before other threads
// start.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "jvmpi/jvmpi.h"
#include "jvmpi/virtual_threads.h"

class FakeJvmpi {
public:
    FakeJvmpi();
    ~FakeJvmpi();
    FakeJvmpi(const FakeJvmpi&) = delete;
    FakeJvmpi& operator=(const FakeJvmpi&) = delete;

    JVMPI_Interface* interface() { return &interface_; }
    // Its GetEnv answers with interface() for JVMPI versions and asks jniEnv for JNI versions.
    JavaVM* vm() { return &vm_; }

    // --- what the VM answers
    std::atomic<bool> refuseInterface{false};        // GetEnv for JVMPI fails
    std::atomic<int> getEnvCalls{0};                 // for JVMPI versions
    JVMPI_VirtualThreads* virtualThreads = nullptr;  // null: a VM that has none
    std::function<JNIEnv*()> jniEnv;                 // the calling thread's; null: not attached

    std::function<jint(jint type, void* arg)> onRequest;                  // null: requests fail
    std::function<void(JVMPI_CallTrace* trace, jint depth)> onCallTrace;  // null: no frames
    std::function<jint(JNIEnv* env)> onThreadStatus;                      // null: runnable
    std::function<jobjectID(jmethodID method)> onMethodClass;             // null: a null class
    std::function<jobjectID(JNIEnv* env)> onThreadObject;                 // null: a null object

    // --- monitors
    // Called in each wait, while the monitor is released and after its time was added up: the place
    // where a test lets the world move on (stops a worker, makes a connection fail).
    std::function<void(const std::string& monitor, jlong ms)> onWait;
    // Waits really wait, until the time is over or a notify comes.
    std::atomic<bool> realWaiting{false};

    void failCreate(int nth);  // the nth RawMonitorCreate from now on gives null (1: the next)

    struct Counts {
        long create = 0, destroy = 0, enter = 0, exit = 0, wait = 0, notify = 0;
    };
    [[nodiscard]] Counts counts() const { return locked(counts_); }
    void resetCounts();  // and the waited time
    [[nodiscard]] std::int64_t waitedMs() const { return locked(waitedMs_); }
    // Waits with 0 or less, which a VM would not end.
    [[nodiscard]] long endlessWaits() const { return locked(endlessWaits_); }
    [[nodiscard]] std::vector<std::string> heldMonitors() const;
    [[nodiscard]] std::vector<std::string> liveMonitors() const;  // made here and not destroyed

    // The order of monitor operations, as "create NAME", "enter NAME", "exit NAME", "wait NAME
    // 500"... while recording is on.
    void recordCalls(bool on);
    [[nodiscard]] std::vector<std::string> calls() const { return locked(calls_); }

    // --- events
    // Numbers outside 1..61, 37, 50 and 59 are not available, others succeed.
    // Everything asked for, as {"enable", 33}, {"disable", 42}, {"request", 37}, in order.
    [[nodiscard]] std::vector<std::pair<std::string, jint>> eventCalls() const {
        return locked(eventCalls_);
    }
    [[nodiscard]] bool isEnabled(jint type) const;
    // Hands the event to the agent's NotifyEvent as the VM does: only when it is set and the type
    // is enabled (or carries the requested bit). True when it was handed over.
    bool send(JVMPI_Event& event);

    // What no correct agent does: leaving a monitor of another thread, using a destroyed one ...
    [[nodiscard]] std::vector<std::string> violations() const { return locked(violations_); }

private:
    struct Monitor;
    struct Functions;
    friend struct Functions;

    template <typename T>
    T locked(const T& member) const {
        const std::lock_guard hold(lock_);
        return member;
    }
    void note(const std::string& call);
    void violation(const std::string& what);
    Monitor* checked(JVMPI_RawMonitor handle, const char* operation);

    JVMPI_RawMonitor create(const char* name);
    void enter(JVMPI_RawMonitor handle);
    void exit(JVMPI_RawMonitor handle);
    void wait(JVMPI_RawMonitor handle, jlong ms);
    void notifyAll(JVMPI_RawMonitor handle);
    void destroy(JVMPI_RawMonitor handle);
    jint enableEvent(jint type, void* arg);
    jint disableEvent(jint type, void* arg);
    jint requestEvent(jint type, void* arg);

    const long serial_;  // tells this fake's monitors from those of earlier ones
    JVMPI_Interface interface_{};
    JNIInvokeInterface_ vmFunctions_{};
    JavaVM vm_{};

    mutable std::mutex lock_;  // guards what follows; never held while a handler runs
    Counts counts_;
    std::int64_t waitedMs_ = 0;
    long endlessWaits_ = 0;
    int createsUntilFailure_ = 0;
    bool recording_ = false;
    std::vector<std::string> calls_;
    std::vector<std::pair<std::string, jint>> eventCalls_;
    std::set<jint> enabled_;
    std::vector<std::string> violations_;
};
