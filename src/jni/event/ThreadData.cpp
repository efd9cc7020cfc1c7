// One monitored thread's record and its event queue.
#include "event/ThreadData.h"

#include <climits>
#include <cstdio>
#include <new>
#include <utility>

#include "event/ControlEvents.h"
#include "event/Event.h"
#include "event/GateBooks.h"
#include "event/LossBook.h"
#include "event/RecordPins.h"
#include "event/ThreadMgr.h"
#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/PropertyMgr.h"
#include "foundation/Utils.h"

namespace {

constexpr const char* kSource = "ThreadData";

}  // namespace

std::atomic<long> ThreadData::queueLimit_{0};

// The setting is read once for the whole process; later changes are not seen.
long ThreadData::readQueueLimit() {
    const long limit = PropertyMgr::getInstance()->getBoundedProperty(
        "internal.probe.event.queue.size.limit", 5000, 1, INT_MAX);
    queueLimit_.store(limit, std::memory_order_relaxed);
    return limit;
}

ThreadData::ThreadData(JVMPI_Event* event) : VeloraBase("ThreadData") {
    VEL_TRACE("ThreadData(JVMPI_Event*)");
    initialize();
    if (event == nullptr) return;
    threadId_ = event->env_id;
    threadName_.store(Utils::cstrdup(event->u.thread_start.thread_name), std::memory_order_release);
    groupName_.store(Utils::cstrdup(event->u.thread_start.group_name), std::memory_order_release);
}

ThreadData::ThreadData(JNIEnv* env) : VeloraBase("ThreadData") {
    VEL_TRACE("ThreadData(JNIEnv*)");
    initialize();
    threadId_ = env;
}

ThreadData::~ThreadData() {
    VEL_TRACE("~ThreadData()");
    retire(Loss::threadEnded);
    delete std::exchange(evtQueue_, nullptr);
    deleteInFlightData();
    delete[] threadName_.load(std::memory_order_relaxed);
    delete[] groupName_.load(std::memory_order_relaxed);
    delete[] gpsToken_;
    delete[] portalPageName_;
}

void ThreadData::initialize() {
    VEL_TRACE("initialize()");
    if (evtQueue_ == nullptr) evtQueue_ = new VelList<Event*>(true);
    dropRecordsFlag_ = false;
    alive_ = true;
    jniAddCounter_ = 0;
    jniDeleteCounter_ = 0;
    jvmpiAddCounter_ = 0;
    jvmpiDeleteCounter_ = 0;
    sentDroppedEvent_ = false;
    sql_ = nullptr;
    dataSourceName_ = nullptr;
    suspended_ = false;
    servletDepth_ = 0;
    nestedRequestDepth_ = 0;
    cancelled_ = false;
    dataSrcSQLDepth_ = 0;
    threadId_ = nullptr;
    threadIntId_ = 0;
    threadName_ = nullptr;
    groupName_ = nullptr;
    portalPageName_ = nullptr;
    pid_ = 0;
    ppid_ = 0;
    lastCpuTime_ = 0;
    gpsToken_ = nullptr;
    droppedEventCounter_ = 0;
}

bool ThreadData::appendEvent(Event* evt) {
    VEL_TRACE("appendEvent(Event*)");
    const long limit = queueLimit();
    if (evt == nullptr || evtQueue_ == nullptr || !isAlive()) [[unlikely]]
        return reject(evt);
    const bool full = evtQueue_->size() >= limit;
    if (full && evt->isDroppable()) [[unlikely]]
        return refuse(evt);
    // Tested before it is written: the line is shared with the event agent.
    if (!full && sentDroppedEvent_.load(std::memory_order_relaxed)) [[unlikely]]
        sentDroppedEvent_.store(false, std::memory_order_relaxed);
    return queueEvent(evt);
}

// The charge comes first: once the event is in the queue an agent may have encoded and deleted it.
bool ThreadData::queueEvent(Event* evt) {
    charge(evt->type_, evt->size_);
    addHeld(*evt);
    try {
        return evtQueue_->append(evt);
    } catch (const std::bad_alloc&) {  // no memory for the queue's node: counted like a refused one
        credit(evt->type_, evt->size_);
        takeHeld(*evt);
        if (evt->getType() != DROPPED)
            refused_[LostCounts::lostClass(*evt)].fetch_add(1, std::memory_order_relaxed);
        delete evt;
        return false;
    }
}

// The queue is full: count the event for the next drop record, and have one wait in the queue.
bool ThreadData::refuse(Event* evt) {
    droppedEventCounter_.fetch_add(1, std::memory_order_relaxed);
    refused_[LostCounts::lostClass(*evt)].fetch_add(1, std::memory_order_relaxed);
    delete evt;
    if (sentDroppedEvent_.load(std::memory_order_relaxed)) return false;
    try {
        auto* const marker = new DroppedEvent(NOSTYPE);
        marker->threadId_ = getThreadIntId();
        appendEvent(marker);
        sentDroppedEvent_.store(true, std::memory_order_relaxed);
    } catch (const std::bad_alloc&) {
        // The counts are kept, and told at the queue's end if by no marker.
    }
    return false;
}

bool ThreadData::reject(Event* evt) {
    char message[128];
    if (evtQueue_ == nullptr) {
        std::snprintf(message, sizeof message, "Append Event failed evtQueue is NULL ");
    } else if (evt != nullptr) {
        std::snprintf(message, sizeof message,
                      "Append Event Thread is dead: %d, EvtType: %d Evt SubType: %d TID: %d",
                      isAlive() ? 1 : 0, evt->type_, evt->subType_,
                      static_cast<int>(getThreadIntId()));
    } else {
        std::snprintf(message, sizeof message, "Append Event failed Evt is NULL ");
    }
    if (evt != nullptr) {
        LossBook::add(Loss::threadEnded, LossBook::eventsIn(evt));
        delete evt;
    }
    _logWarn(kSource, __LINE__, message);
    return false;
}

void ThreadData::resetOnThreadEnd() {
    VEL_TRACE("resetOnThreadEnd()");
    if (ThreadMgr* const manager = thrMgr_.load(std::memory_order_acquire); manager != nullptr) {
        manager->setThreadStopped(getThreadIntId());
        if (manager->updateOnThreadEnd(threadId_)) deleteInFlightData();
    }
    // From here on the event agent may have the record deleted; the pin goes last of all.
    alive_.store(false, std::memory_order_release);
    RecordPins::unpin(this);
}

void ThreadData::deleteInFlightData() {
    VEL_TRACE("deleteInFlightData()");
    setSQL(nullptr);
    setDSName(nullptr);
    setSuspended(false);
    servletDepth_ = 0;
    setCancelled(false);
    dataSrcSQLDepth_ = 0;
}

void ThreadData::forgetWork() {
    deleteInFlightData();
    nestedRequestDepth_ = 0;
    delete[] std::exchange(gpsToken_, nullptr);
    setPortalPageName(nullptr);
    GateBooks::forget(*this);
}

void ThreadData::retire(Loss reason) {
    if (alive_.exchange(false, std::memory_order_acq_rel)) {
        const ThreadMgr* const manager = thrMgr_.load(std::memory_order_acquire);
        if (manager != nullptr && manager->isReady()) {
            char message[96];
            std::snprintf(message, sizeof message,
                          "Thread being deleted even before it died TID: %d",
                          static_cast<int>(getThreadIntId()));
            _logError(kSource, __LINE__, message);
        }
    }
    bookLosses(reason);
}

// Nothing leaves unseen: what still waits, and what was refused since the last drop record.
void ThreadData::bookLosses(Loss reason) {
    long lost = 0;
    if (evtQueue_ != nullptr) {
        while (Event* const evt = evtQueue_->pop()) {
            lost += LossBook::eventsIn(evt);
            delete evt;
        }
    }
    for (auto& count : refused_) lost += count.exchange(0, std::memory_order_relaxed);
    if (lost > 0) LossBook::add(reason, lost);
    if (const std::uint32_t calls = takeGatedCalls(); calls > 0) GateBooks::noteCalls(calls);
    GateBooks::forget(*this);
}

void ThreadData::takeRefusedCounts(LostCounts* into) {
    if (into == nullptr) return;
    for (int i = 0; i < LostCounts::kLostClasses; ++i)
        into->add(static_cast<LostCounts::Lost>(i),
                  refused_[i].exchange(0, std::memory_order_relaxed));
}

bool ThreadData::hasRefusedCounts() const {
    for (const auto& count : refused_)
        if (count.load(std::memory_order_relaxed) != 0) return true;
    return false;
}

long ThreadData::getEvtQueueSize() {
    if (evtQueue_ != nullptr) return evtQueue_->size();
    char message[96];
    std::snprintf(message, sizeof message, "Event Queue is NULL, check.. EvtQueue: %d, TID: %d", 0,
                  static_cast<int>(getThreadIntId()));
    _logError(kSource, __LINE__, message);
    return 0;
}

void ThreadData::setThreadName(char* name) {
    keepFormer(threadName_.exchange(name, std::memory_order_acq_rel));
}

void ThreadData::setGroupName(char* name) {
    keepFormer(groupName_.exchange(name, std::memory_order_acq_rel));
}

void ThreadData::keepFormer(char* name) {
    if (name != nullptr) formerNames_.emplace_back(name);
}

void ThreadData::setSQL(char* sql) {
    freeText(sql_);
    sql_ = sql;
}

void ThreadData::setDSName(char* name) {
    freeText(dataSourceName_);
    dataSourceName_ = name;
}

void ThreadData::setPortalPageName(char* name) {
    if (name != portalPageName_) delete[] std::exchange(portalPageName_, name);
}
