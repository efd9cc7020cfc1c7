#include "transport/EventAgent.h"

#include <algorithm>
#include <climits>
#include <exception>
#include <string>
#include <utility>

#include "event/CommonEvent.h"
#include "event/ControlEvents.h"
#include "event/GPSTokenUtils.h"
#include "event/GateBooks.h"
#include "event/ProtocolVisitor.h"
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
#include "transport/InitialRecords.h"
#include "transport/MemoryMonitor.h"
#include "transport/NetworkAgentMgr.h"
#include "transport/ResendListener.h"

namespace {

constexpr int kStopStepMs = 1000;
constexpr int kFlushStepMs = 5;
constexpr long kLongestPeriodMs = 3600000;
constexpr int kPsDownCutMs = 30000;      // the queues are cut after so long without a server
constexpr int kPsDownQueueLimit = 1000;  // to so many events
constexpr int kPsDownLoggedPasses = 5;
// Events taken from a queue under one lock. Small, because the queue's thread waits meanwhile.
constexpr long kBatch = 64;

// The first element of a list that only the caller knows; null when it is empty.
Event* first(VelList<Event*>& list) {
    return VelListIter<Event*>(&list).next();
}

// Puts what is left of a batch back to the front of its queue, also when memory runs out on the
// way: it must never end up with another thread's events.
class PutBack {
public:
    PutBack(VelList<Event*>* queue, VelList<Event*>* batch) : queue_(queue), batch_(batch) {}
    ~PutBack() { queue_->prependAll(batch_); }
    PutBack(const PutBack&) = delete;
    PutBack& operator=(const PutBack&) = delete;

private:
    VelList<Event*>* queue_;
    VelList<Event*>* batch_;
};

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

// --- sending -------------------------------------------------------------------------------------

void EventAgent::sendPass(EvtAgentMgr* manager) {
    busy_ = true;
    sendPacket(manager);
    busy_ = false;
}

void EventAgent::sendPacket(EvtAgentMgr* manager) {
    NetworkAgentMgr* const network = naMgr_.load(std::memory_order_acquire);
    if (network == nullptr) return;  // destroyed since the manager said that we can send
    NetworkAgentMgr::Line line = network->lineOf(this);
    // A network agent that was stopped and started again tells nobody; its new connection does.
    if (line.needsInit && manager->isLeader(this) && !resendInitRecord_)
        manager->notifySocketStatus();
    const bool opens =
        resendInitRecord_ || (line.needsInit && manager->mayOpenConnection(this, line.agent));
    if (opens) sendInitRecords();
    if (claimResendData()) {
        try {
            resendInitialData();
        } catch (const std::exception& e) {  // the other agents wait for the word below
            noteNativeFailure("EventAgent.resendInitialData", e.what());
        }
        if (!resendInitRecord_) manager->resendDataDone(true);
    }
    line = network->lineOf(this);
    if (!line.ready || line.needsInit) return;  // nothing goes ahead of the initial records
    // What has no chance of being taken stays in the threads' queues while our own initial records
    // fill the network queue, and while a flush asks again in a moment.
    const bool asksAgainSoon = EvtAgentMgr::isFlushing() || EvtAgentMgr::isDiscarding();
    if ((opens || asksAgainSoon) && !line.hasRoom) return;

    const int length = prepare2send();
    PacketInfo info{line.connection, false, std::move(packetEnds_)};
    GPSTokenUtils::saveNotedTokens();  // before the server can know them
    if (network->sendData(this, buffer_.get(), length, std::move(info)) == RC_SUCCESS) {
        VEL_DEBUG_MIN("startThread", "Buffer size sent to PS: %d", length);
    } else {
        logMessage(msg::kSendFailed);
        LossBook::add(Loss::packetRefused, packetEvents_);
    }
    packetEvents_ = 0;
}

int EventAgent::sendInitRecords() {
    VEL_TRACE("sendInitRecords()");
    NetworkAgentMgr* const network = naMgr_.load(std::memory_order_acquire);
    const NetworkAgentMgr::Line line =
        network != nullptr ? network->lineOf(this) : NetworkAgentMgr::Line{};
    if (!line.ready) return RC_FAIL;
    // Cleared first: a connection that breaks while we are at it sets it again.
    const bool asked = resendInitRecord_.exchange(false);
    CommonEvent::resetMethodIDMap();  // a new server knows no names
    char* cursor = buffer_.get();
    ProtocolVisitor::addInitRecord(&cursor);
    ProtocolVisitor::addJ2EEInitRecord(&cursor, env_);
    const auto length = static_cast<int>(cursor - buffer_.get());
    if (network->sendData(this, buffer_.get(), length, {line.connection, true, {}}) != RC_SUCCESS) {
        if (asked) resendInitRecord_ = true;
        return RC_FAIL;
    }
    ResendListener* const listener = ResendListener::current();
    if (specialQueue_ != nullptr && listener != nullptr)
        listener->initialRecordsSent(env_, specialQueue_);
    VEL_DEBUG_MIN("sendInitRecords", "Sent Init records successfully");
    return RC_SUCCESS;
}

void EventAgent::resendInitialData() {
    VEL_TRACE("resendInitialData()");
    // The request has been claimed and is not made again if it fails: without the Java class every
    // pass would fail the same way.
    if (specialQueue_ == nullptr)
        VEL_DEBUG_MIN("resendInitialData",
                      "The special event queue is NULL, cannot resendInitData");
    else if (specialQueue_->getEvtQueue() == nullptr)
        VEL_DEBUG_MIN("resendInitialData",
                      "Event Queue NULL for Special Event Queue Thread, TID: %d",
                      specialQueue_->getThreadIntId());
    else
        requestClassEvents(env_);  // they arrive in the special queue, which is this thread's own
}

void EventAgent::notifyPSReconnect() {
    const std::lock_guard hold(resendLock_);
    resendInitRecord_ = true;
    resendInitData_ = true;
}

// True once per request, and only when no initial records are due before the data.
bool EventAgent::claimResendData() {
    const std::lock_guard hold(resendLock_);
    return !resendInitRecord_ && resendInitData_.exchange(false);
}

int EventAgent::prepare2send() {
    VEL_TRACE("prepare2send()");
    char* cursor = buffer_.get() + ProtocolVisitor::kPacketHeaderBytes;
    packetRecords_ = 0;
    packetEvents_ = 0;
    packetEnds_ = {};
    packetEnds_.reserve(lastRecords_);
    ended_.clear();
    takeSnapshot();
    for (ThreadData* const thread : pass_) {
        // Whoever is not reached keeps everything, the drop count included, for the next packet.
        if (isFull(cursor)) break;
        VelList<Event*>* const queue = thread->getEvtQueue();
        if (queue == nullptr) {
            logMessage(msg::kEventQueueNull, thread->getThreadIntId());
            continue;
        }
        const bool ended = !thread->isAlive();  // before draining: what it queued last is seen then
        shedOverflow(thread, &cursor);
        drain(thread, &cursor);
        if (queue->size() != 0 || isFull(cursor)) continue;
        tellRefused(thread, &cursor);
        if (ended && queue->size() == 0) ended_.push_back(thread);
    }
    for (ThreadData* const thread : ended_) remove(thread);
    tellOverflow(false);
    VEL_DEBUG_MIN("prepare2send", "OverAll Events sent/dropped %d", packetEvents_);
    lastRecords_ = packetEnds_.size();
    if (packetRecords_ == 0) return 0;
    char* start = buffer_.get();
    ProtocolVisitor::addPacketHeaderRecord(packetRecords_, &start);
    return static_cast<int>(cursor - buffer_.get());
}

void EventAgent::takeSnapshot() {
    pass_.clear();
    const VelLockGuard hold(thrList_->lock());
    for (VelListIter<ThreadData*> it(thrList_.get()); it.hasNext();) pass_.push_back(it.next());
}

// Deletes what a full queue holds beyond its limit, and tells the log of what was refused as well.
void EventAgent::shedOverflow(ThreadData* thread, char** buff) {
    int dropped = 0;
    if (thread->getEvtQueue()->size() > queueLimit_)
        dropped = dropRecordsFromQueue(thread, true, buff);
    else if (thread->droppedEventCounter_.load(std::memory_order_relaxed) == 0)
        return;
    noteOverflow(thread, dropped,
                 thread->droppedEventCounter_.exchange(0, std::memory_order_relaxed));
}

// One thread a minute is named; two hundred of them would fill the log.
void EventAgent::noteOverflow(ThreadData* thread, int dropped, int refused) {
    overflowed_ += dropped + refused;
    const std::string id = std::to_string(thread->getThreadIntId());  // most threads have no name
    const char* const name =
        thread->getThreadName() != nullptr ? thread->getThreadName() : id.c_str();
    if (dropped > 0 && threadPace_.due())
        logMessage(msg::kEventsDropped, dropped + refused, name, queueLimit_);
    else if (dropped + refused > 0)
        VEL_DEBUG_MIN("prepare2send", msg::kEventsDropped.text, dropped + refused, name,
                      queueLimit_);
}

void EventAgent::tellOverflow(bool everything) {
    if (overflowed_ == 0 || (!everything && !overflowPace_.due())) return;
    logMessage(msg::kQueuesOverflowed, overflowed_, queueLimit_);
    overflowed_ = 0;
}

void EventAgent::drain(ThreadData* thread, char** buff) {
    VelList<Event*>* const queue = thread->getEvtQueue();
    const PutBack rest(queue, &batch_);
    while (!isFull(*buff) && !EvtAgentMgr::isDiscarding() &&
           queue->moveFirst(kBatch, &batch_) > 0) {
        while (Event* const event = first(batch_)) {
            if (isFull(*buff)) return;
            // A marker says what was refused up to the moment that it is told.
            if (event->getType() == DROPPED)
                thread->takeRefusedCounts(static_cast<DroppedEvent*>(event));
            const auto room = static_cast<std::size_t>(buffer_.get() + packetBytes() - *buff);
            const bool fits = event->fits(room);
            if (!fits && event->fits(largestRecord())) return;  // it waits for the next packet
            batch_.pop();
            takeEvent(thread, event, fits, buff);
        }
    }
}

// Encodes, credits and deletes one event.
void EventAgent::takeEvent(ThreadData* thread, Event* event, bool fits, char** buff) {
    const std::unique_ptr<Event> taken(event);
    const long events = LossBook::eventsIn(event);
    if (!fits) {
        LossBook::add(Loss::tooLarge, events);
        credit(thread, event);
        noteTooLarge(event);
        return;
    }
    if (!addEventToBuffer(event, events, buff)) {
        LossBook::add(Loss::notEncodable, events);
    }
    credit(thread, event);
}

// Encodes a record that accounts for so many captured events. Nothing is thrown: whoever asks has
// taken the event from its queue and must book it.
bool EventAgent::addEventToBuffer(Event* event, long events, char** buff) noexcept {
    char* const before = *buff;
    try {
        if (event->addToBuffer(buff)) {
            packetEnds_.add(static_cast<std::size_t>(*buff - buffer_.get()), events);
            ++packetRecords_;
            packetEvents_ += events;
            return true;
        }
    } catch (const std::exception& e) {
        noteNativeFailure("EventAgent.addEventToBuffer", e.what());
    }
    *buff = before;
    return false;
}

void EventAgent::noteTooLarge(const Event* event) {
    if (tooLargeKinds_.insert(event->getType()).second)
        logMessage(msg::kRecordTooLarge, static_cast<int>(event->getType()),
                   static_cast<long>(event->encodedSize()), packetBytes());
}

void EventAgent::credit(ThreadData* thread, const Event* event) {
    MemoryMonitor::delFromMemCntr(event->getType(), event->size_, thread);
    thread->takeHeld(*event);
}

// --- dropping ------------------------------------------------------------------------------------

int EventAgent::dropRecordsFromQueue(ThreadData* thread, bool addDropRec, char** buff) {
    VEL_TRACE("dropRecordsFromQueue(ThreadData*, bool, char**)");
    VelList<Event*>* const queue = thread->getEvtQueue();
    if (queue == nullptr) {
        logMessage(msg::kEventQueueNull, thread->getThreadIntId());
        return 0;
    }
    resetDropRecordCounters();
    long excess = queue->size() - (addDropRec ? queueLimit_ : queueLimitOnPSDown_);
    int dropped = 0;
    {
        const PutBack kept(queue, keepList_.get());
        const PutBack rest(queue, &batch_);
        for (long taken = 1; excess > 0 && taken > 0; excess -= taken) {
            taken = queue->moveFirst(std::min(excess, kBatch), &batch_);
            dropped += dropFromBatch(thread, addDropRec);
        }
    }
    if (!addDropRec)
        LossBook::add(Loss::serverAway, dropped);
    else if (buff != nullptr)
        tellRefused(thread, buff);
    return dropped;
}

// Leaves the batch empty: what may be dropped is deleted, the rest waits in keepList_.
int EventAgent::dropFromBatch(ThreadData* thread, bool addDropRec) {
    int dropped = 0;
    while (Event* const event = first(batch_)) {
        if (!event->isDroppable()) {
            batch_.moveFirst(1, keepList_.get());
            continue;
        }
        batch_.pop();
        if (addDropRec) updateDropRecordCounters(event);
        credit(thread, event);
        delete event;
        ++dropped;
    }
    return dropped;
}

// Writes the drop counters, and what the queue has refused meanwhile, as one record.
void EventAgent::tellRefused(ThreadData* thread, char** buff) {
    if (thread->hasRefusedCounts()) thread->takeRefusedCounts(&dropped_);
    addDropEvent(thread->getThreadIntId(), buff);
    resetDropRecordCounters();
}

bool EventAgent::addDropEvent(unsigned threadId, char** buff) {
    DroppedEvent drop(NOSTYPE);
    drop.threadId_ = threadId;
    drop.add(dropped_);
    const long events = LossBook::eventsIn(&drop);
    if (events == 0) return false;
    if (!addEventToBuffer(&drop, events, buff)) {
        LossBook::add(Loss::notEncodable, events);
        return false;
    }
    return true;
}

void EventAgent::updateDropRecordCounters(Event* event) {
    dropped_.add(LostCounts::lostClass(*event), 1);
}

void EventAgent::resetDropRecordCounters() {
    dropped_ = {};
}

void EventAgent::adjustDropQueueLimit() {
    // Counted for the life of the loop, over all outages.
    if (psDownCnt_ < INT_MAX) ++psDownCnt_;
    if (psDownCnt_ >= psDownThreshold_) queueLimitOnPSDown_ = kPsDownQueueLimit;
}

void EventAgent::dropRecordsOnPSDown() {
    VEL_TRACE("dropRecordsOnPSDown()");
    adjustDropQueueLimit();
    int sum = 0;
    takeSnapshot();
    for (ThreadData* const thread : pass_) {
        if (thread->isAlive()) {
            if (thread->getEvtQueue() != nullptr &&
                thread->getEvtQueue()->size() > queueLimitOnPSDown_)
                sum += dropRecordsFromQueue(thread, false, nullptr);
            continue;
        }
        const long deleted = discardEvents(thread);
        LossBook::add(Loss::threadEnded, deleted);
        sum += static_cast<int>(deleted);
        if (psDownCnt_ <= kPsDownLoggedPasses)
            VEL_DEBUG_MIN("dropRecordsOnPSDown", "Deleted %d (all) events in dead thread TID: %d",
                          deleted, thread->getThreadIntId());
        remove(thread);
    }
    if (psDownCnt_ < kPsDownLoggedPasses)
        VEL_DEBUG_MIN("dropRecordsOnPSDown", "OverAll events dropped/deleted when PS down: %d",
                      sum);
    else if (psDownCnt_ == kPsDownLoggedPasses)
        logMessage(msg::kDroppedPsDownLast, sum);
}

// How many captured events went, those included that the queue had refused.
long EventAgent::discardEvents(ThreadData* thread) {
    LostCounts refused;
    thread->takeRefusedCounts(&refused);
    long events = refused.sum();
    VelList<Event*>* const queue = thread->getEvtQueue();
    if (queue == nullptr) return events;
    while (Event* const event = queue->pop()) {
        events += LossBook::eventsIn(event);
        credit(thread, event);
        delete event;
    }
    return events;
}

void EventAgent::discardQueued(Loss reason) {
    takeSnapshot();
    for (ThreadData* const thread : pass_) LossBook::add(reason, discardEvents(thread));
}

// Has an ended thread's record deleted, if it still is this agent's.
void EventAgent::remove(ThreadData* thread) {
    if (!thrList_->remove(thread)) return;
    GateBooks::noteCalls(thread->takeGatedCalls());
    GateBooks::forget(*thread);
    if (ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire); threads != nullptr)
        threads->deleteThreadData(thread);
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
