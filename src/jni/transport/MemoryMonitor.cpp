#include "transport/MemoryMonitor.h"

#include <algorithm>
#include <climits>
#include <new>
#include <string>

#include "event/ControlEvents.h"
#include "event/GateBooks.h"
#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/ProbeState.h"
#include "foundation/PropertyMgr.h"
#include "transport/NetworkAgentMgr.h"

namespace {

constexpr long kMegabyte = 1000000;
constexpr int kAverageSamples = 254;
constexpr int kAverageFinal = 65535;  // a sample counter with this value or more is frozen

}  // namespace

std::atomic<bool> MemoryMonitor::uLimitReached_{false};
std::atomic<bool> MemoryMonitor::resetingCounters_{false};
std::atomic<int> MemoryMonitor::avgURLLimit_{100};
std::atomic<int> MemoryMonitor::urlLimitCntr_{0};
std::atomic<long> MemoryMonitor::urlBuffSize_{0};
std::atomic<int> MemoryMonitor::avgSQLLimit_{1000};
std::atomic<int> MemoryMonitor::sqlLimitCntr_{0};
std::atomic<long> MemoryMonitor::sqlBuffSize_{0};
std::atomic<int> MemoryMonitor::urlLimit_{300};
std::atomic<int> MemoryMonitor::sqlLimit_{5000};
long MemoryMonitor::resetTimerCount_ = 1800;
long MemoryMonitor::checkULimitCount_ = 0;
std::atomic<unsigned long> MemoryMonitor::bookKeepingDSSize_{4000000};
std::atomic<unsigned long> MemoryMonitor::userMemoryULimit_{60000000};
std::atomic<unsigned long> MemoryMonitor::memAcceptDelta_{2000000};
OncePerMinute MemoryMonitor::gatedPace_;
MemoryMonitor* MemoryMonitor::instance_ = nullptr;

MemoryMonitor* MemoryMonitor::getInstance() {
    if (instance_ == nullptr) {
        instance_ = new MemoryMonitor;
        memMon_.store(instance_, std::memory_order_release);
    }
    return instance_;
}

void MemoryMonitor::destroy() {
    memMon_.store(nullptr, std::memory_order_release);
    delete instance_;
    instance_ = nullptr;
}

MemoryMonitor::MemoryMonitor() : VeloraBase("MemoryMonitor"), lock_(std::make_unique<VelLock>()) {
    VEL_TRACE("MemoryMonitor()");
}

MemoryMonitor::~MemoryMonitor() = default;

void MemoryMonitor::start() {
    VEL_TRACE("start()");
    initializeSizes();
    readProperties();
    setResetTimer();
    VEL_DEBUG_MIN("start", "MemoryMonitor started");
}

void MemoryMonitor::stop() {
    VEL_TRACE("stop()");
    memoryTaken_.store(0, std::memory_order_relaxed);
    writeGatedCalls(true);
}

void MemoryMonitor::initializeSizes() {
    uLimitReached_ = false;
    resetingCounters_ = false;
    GateBooks::reset();
    gatedPace_.reset();
    resetTimerCount_ = 1800;
    checkULimitCount_ = 0;
    avgURLLimit_ = 100;
    urlLimitCntr_ = 0;
    urlBuffSize_ = 0;
    avgSQLLimit_ = 1000;
    sqlLimitCntr_ = 0;
    sqlBuffSize_ = 0;
    bookKeepingDSSize_ = 4 * kMegabyte;
    userMemoryULimit_ = 60 * kMegabyte;
    memAcceptDelta_ = 2 * kMegabyte;
    urlLimit_ = 300;
    sqlLimit_ = 5000;
}

void MemoryMonitor::readProperties() {
    VEL_TRACE("readProperties()");
    const PropertyMgr* settings = PropertyMgr::getInstance();
    // A record's text holds at most 65535 bytes; one byte is room for the terminator alone.
    urlLimit_ =
        static_cast<int>(settings->getBoundedProperty("internal.url.limit", 1000, 1, 65535));
    sqlLimit_ =
        static_cast<int>(settings->getBoundedProperty("internal.sql.limit", 5000, 1, 65535));

    // Too low a limit has a rule and a message of its own, so only the top is bounded here.
    const long limit =
        settings->getBoundedProperty("internal.memory.limit", 60, INT_MIN, 1000000) * kMegabyte;
    const long lowest = static_cast<long>(bookKeepingDSSize_.load());
    if (limit <= lowest) {
        userMemoryULimit_ = static_cast<unsigned long>(lowest);
        logMessage(msg::kMemoryLimitTooLow, lowest);  // bytes, though the text says MB: wanted so
        const char* const told = settings->getStringProperty("internal.memory.limit", "");
        logMessage(msg::kBadSetting, "internal.memory.limit", told,
                   std::to_string(lowest / kMegabyte).c_str());
    } else {
        userMemoryULimit_ = static_cast<unsigned long>(limit);
    }

    const auto span = static_cast<long>(userMemoryULimit_.load()) - lowest;
    long delta =
        settings->getBoundedProperty("internal.memory.accept.threshold", 2, 0, 1000000) * kMegabyte;
    if (delta > span) {
        delta = span / 2;
        VEL_DEBUG_MIN("readProperties",
                      "Accept threshold is greater than Max Limit - Min Limit, using %d", delta);
    }
    memAcceptDelta_ = static_cast<unsigned long>(delta);

    resetTimerCount_ = settings->getLongProperty("internal.counter.resettime", 3600);  // s
    logMessage(msg::kMemoryProperties, static_cast<long>(userMemoryULimit_.load()), delta,
               urlLimit_.load(), sqlLimit_.load());
}

void MemoryMonitor::setResetTimer() {
    VEL_TRACE("setResetTimer()");
    const long periodMs =
        PropertyMgr::getInstance()->getLongProperty("internal.probe.publishing.frequency", 2000);
    const long periodSec = std::max(periodMs / 1000, 1L);
    const long resetSec = std::max(resetTimerCount_, 0L);
    resetTimerCount_ =
        static_cast<long>(static_cast<float>(resetSec) / static_cast<float>(periodSec));
    logMessage(msg::kCounterResets, resetTimerCount_);
}

// --- the gate ------------------------------------------------------------------------------------

bool MemoryMonitor::reachedULimit(JNIEnv* env) {
    if (ProbeState::isDisabled()) return true;
    if (uLimitReached_.load(std::memory_order_relaxed)) [[unlikely]] {
        passClosedGate(env);
        return true;
    }
    if (resetingCounters_.load(std::memory_order_relaxed)) [[unlikely]]
        if (MemoryMonitor* const monitor = memMon_.load(std::memory_order_acquire))
            monitor->doLock(env);
    if (GateBooks::anyMarked()) [[unlikely]]
        reopenFor(env);
    return false;
}

// A thread without a record gets none while memory is short; its calls are counted for all.
void MemoryMonitor::passClosedGate(JNIEnv* env) {
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    ThreadData* const thread = threads != nullptr ? threads->getThreadDataIfPresent(env) : nullptr;
    if (thread == nullptr) {
        GateBooks::noteCalls(1);
        return;
    }
    thread->countGatedCall();
    if (!GateBooks::mark(*thread)) return;
    try {
        auto* const marker = new DroppedEvent(NOSTYPE);
        marker->threadId_ = thread->getThreadIntId();
        thread->appendEvent(marker);
    } catch (const std::bad_alloc&) {
        // Without a marker; the call has been counted.
    }
}

void MemoryMonitor::reopenFor(JNIEnv* env) {
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    ThreadData* const thread = threads != nullptr ? threads->getThreadDataIfPresent(env) : nullptr;
    if (thread != nullptr) GateBooks::forget(*thread);
}

void MemoryMonitor::doLock(JNIEnv* env) {
    if (env == nullptr) return;
    if (lock_->enterLock()) lock_->exitLock();
}

void MemoryMonitor::writeGatedCalls(bool everything) {
    const long calls = GateBooks::takeCalls();
    if (calls == 0) return;
    if (!everything && !gatedPace_.due()) return GateBooks::noteCalls(calls);
    logMessage(msg::kGatedCalls, calls);
}

// --- the limit -----------------------------------------------------------------------------------

void MemoryMonitor::checkForULimit(unsigned long queuedBytes, EvtAgentMgr*,
                                   unsigned long heldBeyond) {
    VEL_TRACE("checkForULimit(unsigned long)");
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    NetworkAgentMgr* const network = naMgr_.load(std::memory_order_acquire);
    const auto threadCount =
        static_cast<unsigned long>(threads != nullptr ? threads->getThreadCount() : 0);
    const auto unsent =
        static_cast<unsigned long>(network != nullptr ? network->getTotalDataSize() : 0);
    const unsigned long limit = userMemoryULimit_;
    const unsigned long estimate =
        threadCount * THREAD_DATA + bookKeepingDSSize_ + unsent + queuedBytes;
    memoryTaken_.store(estimate, std::memory_order_relaxed);

    const unsigned long held = estimate + heldBeyond;
    const bool stopped = uLimitReached_.load(std::memory_order_relaxed);
    if (held >= limit && !stopped) {
        logMessage(msg::kMemoryLimitReached, static_cast<long>(limit), static_cast<long>(estimate));
        if (estimate < limit) logMessage(msg::kReallyHeld, static_cast<long>(held));
        uLimitReached_.store(true, std::memory_order_relaxed);
    } else if (stopped && held < limit && held <= limit - memAcceptDelta_) {
        uLimitReached_.store(false, std::memory_order_relaxed);
        logMessage(msg::kMemoryBelowLimit, static_cast<long>(limit), static_cast<long>(estimate));
    }
    writeGatedCalls(false);
}

// --- the averages --------------------------------------------------------------------------------

namespace {

// Threads may feed at once: a sample or two more may slip into the sum, which the average bears.
void feedAverage(int length, std::atomic<int>& samples, std::atomic<long>& bytes,
                 std::atomic<int>& average) {
    if (samples.load(std::memory_order_relaxed) >= kAverageFinal) return;
    bytes.fetch_add(std::max(length, 0), std::memory_order_relaxed);
    if (samples.fetch_add(1, std::memory_order_relaxed) + 1 != kAverageSamples) return;
    average.store(static_cast<int>(bytes.load(std::memory_order_relaxed) / kAverageSamples),
                  std::memory_order_relaxed);
    samples.store(kAverageFinal, std::memory_order_relaxed);
}

std::int16_t charge(const std::atomic<int>& average, std::int16_t kind) {
    return static_cast<std::int16_t>(
        std::min(average.load(std::memory_order_relaxed) + kind, INT16_MAX));
}

}  // namespace

std::int16_t MemoryMonitor::getRequestSize() {
    return charge(avgURLLimit_, REQUEST);
}

std::int16_t MemoryMonitor::getSQLSize() {
    return charge(avgSQLLimit_, SQL);
}

void MemoryMonitor::httpEJBRequest(int length) {
    feedAverage(length, urlLimitCntr_, urlBuffSize_, avgURLLimit_);
}

void MemoryMonitor::sqlRequest(int length) {
    feedAverage(length, sqlLimitCntr_, sqlBuffSize_, avgSQLLimit_);
}

bool MemoryMonitor::avgURLCalculated() {
    return urlLimitCntr_.load(std::memory_order_relaxed) >= kAverageFinal;
}

bool MemoryMonitor::avgSQLCalculated() {
    return sqlLimitCntr_.load(std::memory_order_relaxed) >= kAverageFinal;
}

// --- a thread's books ----------------------------------------------------------------------------

void MemoryMonitor::jniAddCntr(ThreadData* thread, std::int16_t size) {
    thread->charge(::REQUEST, size);
}

void MemoryMonitor::jniDeleteCntr(ThreadData* thread, std::int16_t size) {
    thread->credit(::REQUEST, size);
}

void MemoryMonitor::jvmpiAddCntr(ThreadData* thread, std::int16_t size) {
    thread->charge(::METHOD, size);
}

void MemoryMonitor::jvmpiDeleteCntr(ThreadData* thread, std::int16_t size) {
    thread->credit(::METHOD, size);
}

void MemoryMonitor::addToMemCntr(EventType type, std::int16_t size, ThreadData* thread) {
    thread->charge(type, size);
}

void MemoryMonitor::delFromMemCntr(EventType type, std::int16_t size, ThreadData* thread) {
    thread->credit(type, size);
}
