// See FakeJvmpi.h. Monitors are a mutex and a condition around an owner and a count.
#include "support/FakeJvmpi.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <thread>

namespace {

std::atomic<FakeJvmpi*> current{nullptr};
std::atomic<long> serials{0};

FakeJvmpi& living() {
    FakeJvmpi* const fake = current.load(std::memory_order_acquire);
    if (fake == nullptr) {
        std::fprintf(stderr, "a profiler function was called while no FakeJvmpi exists\n");
        std::abort();
    }
    return *fake;
}

}  // namespace

struct FakeJvmpi::Monitor {
    Monitor(std::string text, long fake) : name(std::move(text)), maker(fake) {}

    const std::string name;
    const long maker;  // serial number of the FakeJvmpi
    std::mutex lock;   // guards what follows
    std::condition_variable freed;
    std::condition_variable notified;
    std::thread::id owner;
    int depth = 0;  // entries of the owner; 0: free
    long notifies = 0;
    bool destroyed = false;

    // All that ever were, oldest first; kept for ever so that stale handles can be recognised.
    struct All {
        std::mutex lock;
        std::deque<std::unique_ptr<Monitor>> monitors;
    };
    static All& all() {
        static All* const list = new All;
        return *list;
    }
};

// The interface's slots: find the living fake and pass on.
struct FakeJvmpi::Functions {
    static jint enableEvent(jint type, void* arg) { return living().enableEvent(type, arg); }
    static jint disableEvent(jint type, void* arg) { return living().disableEvent(type, arg); }
    static jint requestEvent(jint type, void* arg) { return living().requestEvent(type, arg); }
    static void getCallTrace(JVMPI_CallTrace* trace, jint depth) {
        trace->num_frames = 0;
        if (living().onCallTrace) living().onCallTrace(trace, depth);
    }
    static JVMPI_RawMonitor create(char* name) { return living().create(name); }
    static void enter(JVMPI_RawMonitor handle) { living().enter(handle); }
    static void exit(JVMPI_RawMonitor handle) { living().exit(handle); }
    static void wait(JVMPI_RawMonitor handle, jlong ms) { living().wait(handle, ms); }
    static void notifyAll(JVMPI_RawMonitor handle) { living().notifyAll(handle); }
    static void destroy(JVMPI_RawMonitor handle) { living().destroy(handle); }
    static jint threadStatus(JNIEnv* env) {
        return living().onThreadStatus ? living().onThreadStatus(env) : JVMPI_THREAD_RUNNABLE;
    }
    static jobjectID threadObject(JNIEnv* env) {
        return living().onThreadObject ? living().onThreadObject(env) : nullptr;
    }
    static jobjectID methodClass(jmethodID method) {
        return living().onMethodClass ? living().onMethodClass(method) : nullptr;
    }
    static void missing() {
        std::fputs("a function was called that FakeJvmpi does not offer\n", stderr);
        std::abort();
    }

    static jint JNICALL getEnv(JavaVM*, void** answer, jint version) {
        FakeJvmpi& fake = living();
        *answer = nullptr;
        if (version == JVMPI_VERSION_ADAPTER)
            return JNI_EVERSION;  // a VM with an interface of its own
        if (version == JVMPI_VERSION_VIRTUAL_THREADS) {
            if (!fake.refuseInterface) *answer = fake.virtualThreads;
            return *answer == nullptr ? JNI_EVERSION : JNI_OK;
        }
        if ((version & 0x10000000) != 0) {
            ++fake.getEnvCalls;
            if (fake.refuseInterface) return JNI_EVERSION;
            *answer = &fake.interface_;
            return JNI_OK;
        }
        JNIEnv* const env = fake.jniEnv ? fake.jniEnv() : nullptr;
        *answer = env;
        return env == nullptr ? JNI_EDETACHED : JNI_OK;
    }
};

FakeJvmpi::FakeJvmpi() : serial_(++serials) {
    auto* const slots = reinterpret_cast<char*>(&interface_);
    for (std::size_t i = 0; i < sizeof interface_ / sizeof(void*); ++i) {
        void (*const entry)() = Functions::missing;
        std::memcpy(slots + i * sizeof(void*), &entry, sizeof entry);
    }
    interface_.version = JVMPI_VERSION_1;
    interface_.NotifyEvent = nullptr;
    interface_.EnableEvent = Functions::enableEvent;
    interface_.DisableEvent = Functions::disableEvent;
    interface_.RequestEvent = Functions::requestEvent;
    interface_.GetCallTrace = Functions::getCallTrace;
    interface_.RawMonitorCreate = Functions::create;
    interface_.RawMonitorEnter = Functions::enter;
    interface_.RawMonitorExit = Functions::exit;
    interface_.RawMonitorWait = Functions::wait;
    interface_.RawMonitorNotifyAll = Functions::notifyAll;
    interface_.RawMonitorDestroy = Functions::destroy;
    interface_.GetThreadStatus = Functions::threadStatus;
    interface_.GetThreadObject = Functions::threadObject;
    interface_.GetMethodClass = Functions::methodClass;
    vmFunctions_.GetEnv = Functions::getEnv;
    vm_.functions = &vmFunctions_;

    FakeJvmpi* none = nullptr;
    if (!current.compare_exchange_strong(none, this)) {
        std::fprintf(stderr, "two FakeJvmpi at a time\n");
        std::abort();
    }
}

FakeJvmpi::~FakeJvmpi() {
    current.store(nullptr, std::memory_order_release);
}

void FakeJvmpi::note(const std::string& call) {  // caller holds lock_
    if (recording_) calls_.push_back(call);
}

void FakeJvmpi::violation(const std::string& what) {
    const std::lock_guard hold(lock_);
    violations_.push_back(what);
}

// The monitor behind a handle; null and a violation when there is none or it was destroyed.
FakeJvmpi::Monitor* FakeJvmpi::checked(JVMPI_RawMonitor handle, const char* operation) {
    auto* const monitor = reinterpret_cast<Monitor*>(handle);
    if (monitor == nullptr) {
        violation(std::string(operation) + " of a null monitor");
        return nullptr;
    }
    bool destroyed = false;
    {
        const std::lock_guard hold(monitor->lock);
        destroyed = monitor->destroyed;
    }
    if (!destroyed) return monitor;
    violation(std::string(operation) + " of the destroyed monitor " + monitor->name);
    return nullptr;
}

JVMPI_RawMonitor FakeJvmpi::create(const char* name) {
    {
        const std::lock_guard hold(lock_);
        ++counts_.create;
        note("create " + std::string(name));
        if (createsUntilFailure_ > 0 && --createsUntilFailure_ == 0) return nullptr;
    }
    auto& all = Monitor::all();
    const std::lock_guard hold(all.lock);
    all.monitors.push_back(std::make_unique<Monitor>(name, serial_));
    return reinterpret_cast<JVMPI_RawMonitor>(all.monitors.back().get());
}

void FakeJvmpi::enter(JVMPI_RawMonitor handle) {
    Monitor* const monitor = checked(handle, "enter");
    if (monitor == nullptr) return;
    {
        std::unique_lock hold(monitor->lock);
        const auto self = std::this_thread::get_id();
        monitor->freed.wait(hold, [&] { return monitor->depth == 0 || monitor->owner == self; });
        monitor->owner = self;
        ++monitor->depth;
    }
    const std::lock_guard hold(lock_);
    ++counts_.enter;
    note("enter " + monitor->name);
}

void FakeJvmpi::exit(JVMPI_RawMonitor handle) {
    Monitor* const monitor = checked(handle, "exit");
    if (monitor == nullptr) return;
    {
        const std::lock_guard hold(lock_);
        ++counts_.exit;
        note("exit " + monitor->name);
    }
    bool owned = false;
    {
        const std::lock_guard hold(monitor->lock);
        owned = monitor->depth > 0 && monitor->owner == std::this_thread::get_id();
        if (owned && --monitor->depth == 0) monitor->freed.notify_all();
    }
    if (!owned) violation("exit by a thread that does not hold " + monitor->name);
}

void FakeJvmpi::wait(JVMPI_RawMonitor handle, jlong ms) {
    Monitor* const monitor = checked(handle, "wait");
    if (monitor == nullptr) return;
    {
        const std::lock_guard hold(lock_);
        ++counts_.wait;
        note("wait " + monitor->name + " " + std::to_string(ms));
        if (ms > 0)
            waitedMs_ += ms;
        else
            ++endlessWaits_;
    }
    const auto self = std::this_thread::get_id();
    int depth = 0;
    long notifies = 0;
    {
        const std::lock_guard hold(monitor->lock);
        if (monitor->depth > 0 && monitor->owner == self) {
            depth = std::exchange(monitor->depth, 0);
            notifies = monitor->notifies;
            monitor->freed.notify_all();
        }
    }
    if (depth == 0) {
        violation("wait by a thread that does not hold " + monitor->name);
        return;
    }
    if (onWait) onWait(monitor->name, ms);

    std::unique_lock hold(monitor->lock);
    const auto wasNotified = [&] { return monitor->notifies != notifies; };
    if (realWaiting) {
        if (ms > 0)
            monitor->notified.wait_for(hold, std::chrono::milliseconds(ms), wasNotified);
        else
            monitor->notified.wait(hold, wasNotified);
    }
    monitor->freed.wait(hold, [&] { return monitor->depth == 0; });
    monitor->owner = self;
    monitor->depth = depth;
}

void FakeJvmpi::notifyAll(JVMPI_RawMonitor handle) {
    Monitor* const monitor = checked(handle, "notify");
    if (monitor == nullptr) return;
    {
        const std::lock_guard hold(lock_);
        ++counts_.notify;
        note("notifyAll " + monitor->name);
    }
    bool owned = false;
    {
        const std::lock_guard hold(monitor->lock);
        owned = monitor->depth > 0 && monitor->owner == std::this_thread::get_id();
        if (owned) {
            ++monitor->notifies;
            monitor->notified.notify_all();
        }
    }
    if (!owned) violation("notify by a thread that does not hold " + monitor->name);
}

void FakeJvmpi::destroy(JVMPI_RawMonitor handle) {
    Monitor* const monitor = checked(handle, "destroy");
    if (monitor == nullptr) return;
    {
        const std::lock_guard hold(lock_);
        ++counts_.destroy;
        note("destroy " + monitor->name);
    }
    bool held = false;
    {
        const std::lock_guard hold(monitor->lock);
        held = monitor->depth > 0;
        monitor->destroyed = true;
        monitor->depth = 0;
    }
    if (held) violation("destroy of the held monitor " + monitor->name);
}

namespace {

jint availability(jint type) {
    const bool offered = type >= 1 && type <= JVMPI_MAX_EVENT_TYPE_VAL &&
                         type != JVMPI_EVENT_HEAP_DUMP && type != JVMPI_EVENT_OBJECT_DUMP &&
                         type != JVMPI_EVENT_MONITOR_DUMP;
    return offered ? JVMPI_SUCCESS : JVMPI_NOT_AVAILABLE;
}

}  // namespace

jint FakeJvmpi::enableEvent(jint type, void*) {
    const std::lock_guard hold(lock_);
    eventCalls_.emplace_back("enable", type);
    const jint result = availability(type);
    if (result == JVMPI_SUCCESS) enabled_.insert(type);
    return result;
}

jint FakeJvmpi::disableEvent(jint type, void*) {
    const std::lock_guard hold(lock_);
    eventCalls_.emplace_back("disable", type);
    const jint result = availability(type);
    if (result == JVMPI_SUCCESS) enabled_.erase(type);
    return result;
}

jint FakeJvmpi::requestEvent(jint type, void* arg) {
    {
        const std::lock_guard hold(lock_);
        eventCalls_.emplace_back("request", type);
    }
    return onRequest ? onRequest(type, arg) : JVMPI_FAIL;
}

bool FakeJvmpi::send(JVMPI_Event& event) {
    const bool requested = (event.event_type & JVMPI_REQUESTED_EVENT) != 0;
    if (interface_.NotifyEvent == nullptr || (!requested && !isEnabled(event.event_type)))
        return false;
    interface_.NotifyEvent(&event);
    return true;
}

bool FakeJvmpi::isEnabled(jint type) const {
    const std::lock_guard hold(lock_);
    return enabled_.count(type) != 0;
}

void FakeJvmpi::failCreate(int nth) {
    const std::lock_guard hold(lock_);
    createsUntilFailure_ = nth;
}

void FakeJvmpi::resetCounts() {
    const std::lock_guard hold(lock_);
    counts_ = {};
    waitedMs_ = 0;
    endlessWaits_ = 0;
}

std::vector<std::string> FakeJvmpi::heldMonitors() const {
    std::vector<std::string> names;
    auto& all = Monitor::all();
    const std::lock_guard hold(all.lock);
    for (const auto& monitor : all.monitors) {
        const std::lock_guard holdOne(monitor->lock);
        if (monitor->depth > 0) names.push_back(monitor->name);
    }
    return names;
}

std::vector<std::string> FakeJvmpi::liveMonitors() const {
    std::vector<std::string> names;
    auto& all = Monitor::all();
    const std::lock_guard hold(all.lock);
    for (const auto& monitor : all.monitors) {
        const std::lock_guard holdOne(monitor->lock);
        if (monitor->maker == serial_ && !monitor->destroyed) names.push_back(monitor->name);
    }
    return names;
}

void FakeJvmpi::recordCalls(bool on) {
    const std::lock_guard hold(lock_);
    recording_ = on;
    if (on) calls_.clear();
}
