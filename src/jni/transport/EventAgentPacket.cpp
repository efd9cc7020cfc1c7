// The packet half of EventAgent: draining the threads' queues into one packet a pass.
#include <exception>
#include <utility>

#include "event/ControlEvents.h"
#include "event/GPSTokenUtils.h"
#include "event/ProtocolVisitor.h"
#include "event/ThreadData.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "transport/EventAgent.h"
#include "transport/EventBatch.h"
#include "transport/EvtAgentMgr.h"
#include "transport/MemoryMonitor.h"
#include "transport/NetworkAgentMgr.h"

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
    // or what a reset of our own has left fill the network queue, and while a flush asks again in a
    // moment.
    const bool asksAgainSoon = EvtAgentMgr::isFlushing() || EvtAgentMgr::isDiscarding();
    if ((opens || line.carriesOver || asksAgainSoon) && !line.hasRoom) return;

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
    removeEnded();
    tellOverflow(false);
    VEL_DEBUG_MIN("prepare2send", "OverAll Events sent/dropped %d", packetEvents_);
    lastRecords_ = packetEnds_.size();
    if (packetRecords_ == 0) return 0;
    char* start = buffer_.get();
    ProtocolVisitor::addPacketHeaderRecord(packetRecords_, &start);
    return static_cast<int>(cursor - buffer_.get());
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
    if (addEventToBuffer(event, buff)) {
        noteRecord(events, *buff);
    } else {
        LossBook::add(Loss::notEncodable, events);
    }
    credit(thread, event);
}

// A record for so many captured events is in the packet, which reaches up to the cursor.
void EventAgent::noteRecord(long events, const char* cursor) noexcept {
    ++packetRecords_;
    packetEvents_ += events;
    packetEnds_.add(static_cast<std::size_t>(cursor - buffer_.get()), events);
}

// Nothing is thrown: whoever asks has taken the event from its queue and must book it.
bool EventAgent::addEventToBuffer(Event* event, char** buff) noexcept {
    char* const before = *buff;
    try {
        if (event->addToBuffer(buff)) return true;
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
