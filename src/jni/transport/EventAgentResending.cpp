// What an event agent sends when a connection begins: the initial records, then everything again.
#include "event/CommonEvent.h"
#include "event/ProtocolVisitor.h"
#include "event/ThreadData.h"
#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "transport/EventAgent.h"
#include "transport/InitialRecords.h"
#include "transport/NetworkAgentMgr.h"
#include "transport/ResendListener.h"

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
