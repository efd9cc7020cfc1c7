// The loop of an event agent, and its threads.
#include "transport/EventAgent.h"

#include <algorithm>
#include <climits>
#include <exception>

#include "event/CommonEvent.h"
#include "event/GateBooks.h"
#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Platform.h"
#include "foundation/PropertyMgr.h"
#include "qlog/qlog.h"
#include "transport/EvtAgentMgr.h"
#include "transport/NetworkAgentMgr.h"

namespace {

constexpr int kStopStepMs = 1000;
constexpr int kFlushStepMs = 5;
constexpr long kLongestPeriodMs = 3600000;
constexpr int kPsDownCutMs = 30000;  // the queues are cut after so long without a server

}  // namespace

EventAgent::EventAgent(int id)
    : VeloraBase("EventAgent"),
      thrList_(std::make_unique<VelList<ThreadData*>>(true)),
      id_(id),
      keepList_(std::make_unique<VelList<Event*>>(false)),
      queueLimitOnPSDown_(LONG_MAX) {
    VEL_TRACE("EventAgent(int)");
    const PropertyMgr* settings = PropertyMgr::getInstance();
    queueLimit_ =
        settings->getBoundedProperty("internal.probe.event.queue.size.limit", 5000, 1, 100000000);
    publishFreq_ = settings->getBoundedProperty("internal.probe.publishing.frequency", 2000, 1,
                                                kLongestPeriodMs);
    eventPacketSize_ =
        settings->getBoundedProperty("internal.probe.event.packet.size", 5000, 4, 512L * 1024);
    psDownThreshold_ = std::max(static_cast<int>(kPsDownCutMs / publishFreq_), 1);
    buffer_ = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(packetBytes()));
    VEL_DEBUG_MIN("EventAgent", "Event Agent creation is successful");
}

EventAgent::~EventAgent() = default;

// --- the loop ------------------------------------------------------------------------------------

bool EventAgent::beginRun() {
    bool idle = false;
    if (!alive_.compare_exchange_strong(idle, true)) return false;
    start_ = true;
    return true;
}

void EventAgent::startThread(JNIEnv* env) {
    VEL_TRACE("startThread(JNIEnv*)");
    if (beginRun())
        runBegun(env);
    else
        VEL_DEBUG_MIN("startThread", "Event Agent Thread is running already");
}

void EventAgent::runBegun(JNIEnv* env) {
    EvtAgentMgr* const manager = evtMgr_.load(std::memory_order_acquire);
    while (start_ && !trySetUp(env)) pause();
    if (manager != nullptr) manager->notifyEventAgentStatus(this, true);
    VEL_DEBUG_MIN("startThread", "Event Agent Thread Started...");
    while (start_) {
        try {
            onePass(manager);
        } catch (const std::exception& e) {  // out of memory: a packet half built is lost
            LossBook::add(Loss::packetRefused, packetEvents_);
            packetEvents_ = 0;
            busy_ = false;
            noteNativeFailure("EventAgent.startThread", e.what());
            pause();
        }
    }
    tearDown();
    VEL_DEBUG_MIN("startThread", "Event Agent Thread Stopped..");
    alive_ = false;  // the agent may be deleted from here on
}

// False when there was no memory for it.
bool EventAgent::trySetUp(JNIEnv* env) {
    try {
        setUp(env);
        return true;
    } catch (const std::exception& e) {
        noteNativeFailure("EventAgent.startThread", e.what());
        return false;
    }
}

void EventAgent::setUp(JNIEnv* env) {
    env_ = env;
    psDownCnt_ = 0;
    queueLimitOnPSDown_ = LONG_MAX;  // as the count: a new loop gives the server its time again
    CommonEvent::resetMethodIDMap();
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    specialQueue_ = threads != nullptr ? threads->createSpecialEventQueue(env) : nullptr;
    EvtAgentMgr* const manager = evtMgr_.load(std::memory_order_acquire);
    if (specialQueue_ == nullptr)
        VEL_DEBUG_MIN("startThread", "Special Queue was not created.");
    else if (!manages(specialQueue_) && (manager == nullptr || !manager->isManaged(specialQueue_)))
        thrList_->append(specialQueue_);
    resetDropRecordCounters();
}

void EventAgent::tearDown() {
    start_ = false;
    specialQueue_ = nullptr;
    memUsed_ = 0;
    heldBeyond_ = 0;
    if (EvtAgentMgr* const manager = evtMgr_.load(std::memory_order_acquire); manager != nullptr) {
        manager->notifyEventAgentStatus(this, false);
        if (EvtAgentMgr::isDiscarding()) discardQueued(Loss::exit);
        manager->leaveOrphans(this);
    } else {
        thrList_->clear();
    }
    tellOverflow(true);
    LossBook::write(true);
}

void EventAgent::onePass(EvtAgentMgr* manager) {
    const auto takeStock = [&] {
        QlgCheckConfiguration();  // a level that was edited takes effect on a silent server, too
        if (manager != nullptr) manager->takeOrphans(this);
        computeMemoryTaken();
        if (manager != nullptr) manager->checkForMemory(this);
        ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
        if (threads != nullptr && manager != nullptr && manager->isLeader(this))
            threads->endUnusedSpares();
    };
    const auto canSend = [&] { return manager != nullptr && manager->canSendData(this); };

    takeStock();
    pause();
    if (EvtAgentMgr::isDiscarding()) {
        discardQueued(Loss::exit);
        return;
    }
    if (canSend()) sendPass(manager);
    LossBook::write(false);
    while (start_ && !EvtAgentMgr::isDiscarding() && !canSend()) {
        takeStock();
        if (serverIsAway()) dropRecordsOnPSDown();
        LossBook::write(false);
        pause();
    }
}

// Not in a reset of our own, nor while the leading agent has yet to open the connection.
bool EventAgent::serverIsAway() {
    NetworkAgentMgr* const network = naMgr_.load(std::memory_order_acquire);
    if (network == nullptr) return true;
    const NetworkAgentMgr::Line line = network->lineOf(this);
    return !line.ready && !line.renewing;
}

void EventAgent::pause() {
    const int ms = EvtAgentMgr::isFlushing() ? kFlushStepMs : static_cast<int>(publishFreq_);
    if (!waitLock_.wait(ms)) thread_sleep(ms);  // no monitor: still no spinning
}

void EventAgent::wake() {
    waitLock_.notifyAll();
}

void EventAgent::stopThread() {
    VEL_TRACE("stopThread()");
    VEL_DEBUG_MIN("stopThread", "Event Agent Thread being Stopped...");
    askToEnd();
    VelLock pauses;
    while (alive_)
        if (!pauses.wait(kStopStepMs)) thread_sleep(kStopStepMs);
}

void EventAgent::takeSnapshot() {
    pass_.clear();
    const VelLockGuard hold(thrList_->lock());
    for (VelListIter<ThreadData*> it(thrList_.get()); it.hasNext();) pass_.push_back(it.next());
}

// Has the records of ended threads deleted, those that still are this agent's. In one walk of the
// list: thousands of virtual threads may have ended since the last pass.
void EventAgent::removeEnded() {
    if (ended_.empty()) return;
    std::sort(ended_.begin(), ended_.end());
    VelList<ThreadData*> gone(false);
    thrList_->moveEach(
        [this](ThreadData* thread) {
            return std::binary_search(ended_.begin(), ended_.end(), thread);
        },
        &gone);
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    while (ThreadData* const thread = gone.pop()) {
        GateBooks::noteCalls(thread->takeGatedCalls());
        GateBooks::forget(*thread);
        if (threads != nullptr) threads->deleteThreadData(thread);
    }
}

// --- the threads ---------------------------------------------------------------------------------

int EventAgent::manageThreadData(ThreadData* thread) {
    VEL_TRACE("manageThreadData(ThreadData*)");
    if (thread == nullptr || !thrList_->lock()->makeLock()) return RC_FAIL;
    // Under the list's lock, so that an ending loop either finds the thread here or has it refused.
    bool taken = false;
    {
        const VelLockGuard hold(thrList_->lock());
        taken = start_ && thrList_->append(thread);
    }
    if (!taken) logMessage(msg::kEventAgentNotStarted);
    return taken ? RC_SUCCESS : RC_FAIL;
}

void EventAgent::adopt(VelList<ThreadData*>* threads) {
    threads->moveFirst(LONG_MAX, thrList_.get());
}

bool EventAgent::manages(const ThreadData* thread) {
    const VelLockGuard hold(thrList_->lock());
    for (VelListIter<ThreadData*> it(thrList_.get()); it.hasNext();)
        if (it.next() == thread) return true;
    return false;
}

void EventAgent::computeMemoryTaken() {
    std::uint64_t bytes = 0;
    std::uint64_t beyond = 0;
    takeSnapshot();
    for (ThreadData* const thread : pass_) {
        // Wraps per thread: the counters run on for ever, their difference is what is queued.
        const std::uint32_t added = thread->jniAddCounter_ + thread->jvmpiAddCounter_;
        const std::uint32_t deleted = thread->jniDeleteCounter_ + thread->jvmpiDeleteCounter_;
        bytes += static_cast<std::uint32_t>(added - deleted);
        beyond += thread->getHeldBeyond();
        GateBooks::noteCalls(thread->takeGatedCalls());
    }
    memUsed_.store(bytes, std::memory_order_relaxed);
    heldBeyond_.store(beyond, std::memory_order_relaxed);
}

void EventAgent::collectGatedCalls(VelList<ThreadData*>* threads) {
    const VelLockGuard hold(threads->lock());  // a listed record is not deleted
    for (VelListIter<ThreadData*> it(threads); it.hasNext();)
        GateBooks::noteCalls(it.next()->takeGatedCalls());
}

long EventAgent::queuedEvents(VelList<ThreadData*>* threads) {
    long events = 0;
    const VelLockGuard hold(threads->lock());  // a listed record is not deleted
    for (VelListIter<ThreadData*> it(threads); it.hasNext();) {
        const ThreadData* const thread = it.next();
        if (thread->getEvtQueue() != nullptr) events += thread->getEvtQueue()->size();
        if (thread->hasRefusedCounts()) ++events;
    }
    return events;
}
