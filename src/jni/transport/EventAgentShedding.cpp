// What an event agent drops: beyond a queue's limit, while the server is away, and at the end.
#include <algorithm>
#include <climits>
#include <string>

#include "event/ControlEvents.h"
#include "event/ThreadData.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "transport/EventAgent.h"
#include "transport/EventBatch.h"

namespace {

constexpr int kPsDownQueueLimit = 1000;  // events of a thread, once the server is away for long
constexpr int kPsDownLoggedPasses = 5;

}  // namespace

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
    if (!addEventToBuffer(&drop, buff)) {
        LossBook::add(Loss::notEncodable, events);
        return false;
    }
    noteRecord(events, *buff);
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
    ended_.clear();
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
        ended_.push_back(thread);
    }
    removeEnded();
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
