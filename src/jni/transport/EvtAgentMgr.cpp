#include "transport/EvtAgentMgr.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include "event/LossBook.h"
#include "event/ThreadMgr.h"
#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Platform.h"
#include "foundation/ProbeState.h"
#include "foundation/PropertyMgr.h"
#include "transport/EventAgent.h"
#include "transport/MemoryMonitor.h"

namespace {

constexpr int kStopStepMs = 1000;
constexpr int kFlushStepMs = 5;
constexpr int kEndStepMs = 1;
constexpr int kDiscardLimitMs = 300;  // for the agents to notice that the flush is over

// Read by the agents' loops between steps; a step taken under the old value does no harm.
enum class Flush { none, running, over };
std::atomic<Flush> flushState{Flush::none};

std::mutex instanceLock;  // guards making and destroying the singleton, and retiredMgr
// The manager destroyed last. An application thread that is being registered may still be inside,
// so its memory goes one destroy() later.
EvtAgentMgr* retiredMgr = nullptr;

}  // namespace

EvtAgentMgr* EvtAgentMgr::getInstance() {
    const std::lock_guard hold(instanceLock);
    EvtAgentMgr* made = evtMgr_.load(std::memory_order_acquire);
    if (made != nullptr) return made;
    made = new EvtAgentMgr;
    made->initialize();
    evtMgr_.store(made, std::memory_order_release);
    ThreadMgr::useAgents(made);
    return made;
}

void EvtAgentMgr::destroy() {
    const std::lock_guard hold(instanceLock);
    EvtAgentMgr* const ended = evtMgr_.load(std::memory_order_acquire);
    if (ended == nullptr) return;
    if (ended->start_) ended->stop();  // its loops still find it
    ThreadMgr::useAgents(nullptr);
    evtMgr_.store(nullptr, std::memory_order_release);
    delete std::exchange(retiredMgr, ended);
}

EvtAgentMgr::EvtAgentMgr()
    : VeloraBase("EvtAgentMgr"), lock_(std::make_unique<VelLock>()), orphans_(true) {
    VEL_TRACE("EvtAgentMgr()");
    evtAgentCnt_ = static_cast<int>(
        PropertyMgr::getInstance()->getBoundedProperty("eventagent.pool.size", 1, 1, 64));
    eventAgents_ = std::make_unique<EventAgent*[]>(static_cast<std::size_t>(evtAgentCnt_));
}

// Never under a running loop: whoever forgot to stop waits here.
EvtAgentMgr::~EvtAgentMgr() {
    if (start_) stop();
}

void EvtAgentMgr::start() {
    VEL_TRACE("start()");
    {
        const std::unique_lock hold(poolLock_);
        if (start_) return;
        createData();
        initializeAfterJVMPI();
        for (int id = 0; id < evtAgentCnt_; ++id) eventAgents_[id]->thrList_->preInitLocks();
        forgetDeletedOrphans();
        flushState = Flush::none;
        start_ = true;
    }
    if (NetworkAgentMgr* const network = naMgr_.load(); network != nullptr)
        network->registerConnectionInitListener(this);
    logMessage(msg::kEvtAgentMgrStarted);
}

void EvtAgentMgr::stop() {
    VEL_TRACE("stop()");
    {
        // Exclusive, so that no loop begins after this: a begun one is alive and waited for below.
        const std::unique_lock hold(poolLock_);
        start_ = false;
    }
    if (NetworkAgentMgr* const network = naMgr_.load(); network != nullptr)
        network->unregisterConnectionInitListener(this);
    stopAllEvtAgents();
    VelLock pauses;
    for (int id = 0; id < evtAgentCnt_;) {
        if (eventAgents_[id] == nullptr || !eventAgents_[id]->isAlive()) {
            ++id;
            continue;
        }
        VEL_DEBUG_MIN("stop", "EventAgent ID: %d was alive, waiting for 1 secs", id);
        if (!pauses.wait(kStopStepMs)) thread_sleep(kStopStepMs);
    }
    {
        const std::unique_lock hold(poolLock_);
        deleteData();
    }
    LossBook::write(true);
    logMessage(msg::kEvtAgentMgrStopped);
}

void EvtAgentMgr::createData() {
    for (int id = 0; id < evtAgentCnt_; ++id)
        if (eventAgents_[id] == nullptr) eventAgents_[id] = new EventAgent(id);
    leader_ = eventAgents_[0];
    eventAgents_[0]->resendInitRecord_ = true;
}

void EvtAgentMgr::deleteData() {
    for (int id = 0; id < evtAgentCnt_; ++id) {
        if (eventAgents_[id] == nullptr) continue;
        if (eventAgents_[id]->isAlive())
            VEL_DEBUG_MIN("deleteData",
                          "EventAgent ID: %d still alive after 10 sec wait therefore not deleting",
                          id);
        else
            delete eventAgents_[id];
        eventAgents_[id] = nullptr;
    }
    // The threads stay in orphans_, for the agents of a new start; the thread manager's stop,
    // should it come first, deletes the records and counts what they hold.
    roundRobinIndex_ = 0;
    ready_ = false;
    start_ = false;
    resendDataComplete_ = true;
    leader_ = nullptr;
}

// --- the loops -----------------------------------------------------------------------------------

// The caller holds poolLock_.
EventAgent* EvtAgentMgr::agentAt(int id) {
    if (id < 0 || id >= evtAgentCnt_) {
        VEL_DEBUG_MIN("startEvtAgent", "Trying to start event agent with improper ID: %d [0-%d]",
                      id, evtAgentCnt_ - 1);
        return nullptr;
    }
    return eventAgents_[id];
}

void EvtAgentMgr::startEvtAgent(JNIEnv* env, int id) {
    VEL_TRACE("startEvtAgent(JNIEnv*, int)");
    EventAgent* agent = nullptr;
    {
        const std::shared_lock hold(poolLock_);
        agent = agentAt(id);
        if (agent == nullptr || !start_ || !agent->beginRun()) return;
    }
    agent->runBegun(env);
}

void EvtAgentMgr::stopEvtAgent(int id) {
    VEL_TRACE("stopEvtAgent(int)");
    const std::shared_lock hold(poolLock_);
    if (EventAgent* const agent = agentAt(id); agent != nullptr) agent->stopThread();
}

void EvtAgentMgr::stopAllEvtAgents() {
    VEL_TRACE("stopAllEvtAgents()");
    for (int id = 0; id < evtAgentCnt_; ++id) stopEvtAgent(id);
}

bool EvtAgentMgr::isReady() const {
    return start_ && ready_;
}

bool EvtAgentMgr::isLeader(const EventAgent* agent) const {
    return agent == leader_;
}

void EvtAgentMgr::notifyEventAgentStatus(EventAgent* agent, bool status) {
    VEL_TRACE("notifyEventAgentStatus(EventAgent*, bool)");
    if (!isLeader(agent) || status == ready_) return;
    ready_ = status;
    ProbeState::setEventMgrReady(status);
}

// --- threads and their agents --------------------------------------------------------------------

int EvtAgentMgr::manageThreadData(ThreadData* thread) {
    VEL_TRACE("manageThreadData(ThreadData*)");
    const std::shared_lock hold(poolLock_);
    if (thread == nullptr || !isReady()) return RC_FAIL;
    EventAgent* const agent = eventAgents_[getRoundRobinIndex()];
    return agent != nullptr ? agent->manageThreadData(thread) : RC_FAIL;
}

int EvtAgentMgr::getRoundRobinIndex() {
    if (evtAgentCnt_ == 1) return 0;
    int candidate = 0;
    {
        const VelLockGuard hold(*lock_);
        candidate = roundRobinIndex_;
        roundRobinIndex_ = (candidate + 1) % evtAgentCnt_;
    }
    if (candidate < 0 || candidate >= evtAgentCnt_) candidate = 0;
    if (eventAgents_[candidate] != nullptr && eventAgents_[candidate]->isAlive()) return candidate;
    for (int id = 0; id < evtAgentCnt_; ++id)
        if (eventAgents_[id] != nullptr && eventAgents_[id]->isAlive()) return id;
    return 0;
}

void EvtAgentMgr::takeOrphans(EventAgent* agent) {
    if (orphans_.size() == 0) return;
    const VelLockGuard hold(handOverLock_);
    agent->adopt(&orphans_);
}

// A thread handed to the agent while it ends is either in its list by now or was refused: the agent
// looks at its start flag under the list's lock, and that flag has been cleared.
void EvtAgentMgr::leaveOrphans(EventAgent* agent) {
    const VelLockGuard hold(handOverLock_);
    orphans_.prependAll(agent->thrList_.get());
}

// Before any agent runs: of the threads kept over a stop those whose records are still there.
void EvtAgentMgr::forgetDeletedOrphans() {
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    VelList<ThreadData*> kept(false);
    while (ThreadData* const thread = orphans_.pop())
        if (threads != nullptr && threads->owns(thread)) kept.append(thread);
    orphans_.prependAll(&kept);
}

bool EvtAgentMgr::isManaged(ThreadData* thread) {
    const std::shared_lock hold(poolLock_);
    const VelLockGuard holdLists(handOverLock_);
    for (int id = 0; id < evtAgentCnt_; ++id)
        if (eventAgents_[id] != nullptr && eventAgents_[id]->manages(thread)) return true;
    return contains(&orphans_, thread);
}

bool EvtAgentMgr::contains(VelList<ThreadData*>* list, const ThreadData* thread) {
    const VelLockGuard hold(list->lock());
    for (VelListIter<ThreadData*> it(list); it.hasNext();)
        if (it.next() == thread) return true;
    return false;
}

// --- the server comes and goes -------------------------------------------------------------------

void EvtAgentMgr::notifySocketStatus() {
    VEL_TRACE("notifySocketStatus()");
    const std::shared_lock hold(poolLock_);
    resendDataComplete_ = false;
    if (leader_ == nullptr)
        for (int id = 0; id < evtAgentCnt_ && leader_ == nullptr; ++id)
            if (eventAgents_[id] != nullptr && eventAgents_[id]->isAlive())
                leader_ = eventAgents_[id];
    if (EventAgent* const leader = leader_; leader != nullptr) leader->notifyPSReconnect();
}

bool EvtAgentMgr::canSendData(EventAgent* agent) {
    NetworkAgentMgr* const network = naMgr_.load(std::memory_order_acquire);
    if (network == nullptr || !network->isReady(agent)) return false;
    if (isLeader(agent) || resendDataComplete_) return true;
    // A leader that has been stopped resends nothing: do not wait for it.
    const EventAgent* const leader = leader_;
    return leader == nullptr || !leader->isAlive();
}

void EvtAgentMgr::resendDataDone(bool done) {
    resendDataComplete_ = done;
}

bool EvtAgentMgr::mayOpenConnection(EventAgent* agent, const void* networkAgent) {
    if (isLeader(agent)) return true;
    EventAgent* const leader = leader_;
    NetworkAgentMgr* const network = naMgr_.load(std::memory_order_acquire);
    if (leader == nullptr || !leader->isAlive() || network == nullptr) return true;
    return network->lineOf(leader).agent != networkAgent;
}

void EvtAgentMgr::checkForMemory(EventAgent* agent) {
    if (!isLeader(agent)) return;
    MemoryMonitor* const monitor = memMon_.load(std::memory_order_acquire);
    if (monitor == nullptr) return;
    unsigned long bytes = 0;
    unsigned long beyond = 0;
    {
        const std::shared_lock hold(poolLock_);
        for (int id = 0; id < evtAgentCnt_; ++id) {
            if (eventAgents_[id] == nullptr) continue;
            bytes += eventAgents_[id]->getMemoryUsed();
            beyond += eventAgents_[id]->getHeldBeyond();
        }
    }
    monitor->checkForULimit(bytes, this, beyond);
}

// --- the last flush ------------------------------------------------------------------------------

bool EvtAgentMgr::isFlushing() {
    return flushState.load(std::memory_order_relaxed) == Flush::running;
}

bool EvtAgentMgr::isDiscarding() {
    return flushState.load(std::memory_order_relaxed) == Flush::over;
}

// In this order: what an agent has popped shows in isBusy() until it shows in the network queue.
bool EvtAgentMgr::everythingSent(NetworkAgentMgr* network) {
    {
        const std::shared_lock hold(poolLock_);
        const VelLockGuard holdLists(handOverLock_);
        long queued = EventAgent::queuedEvents(&orphans_);
        for (int id = 0; id < evtAgentCnt_; ++id)
            if (eventAgents_[id] != nullptr)
                queued += EventAgent::queuedEvents(eventAgents_[id]->thrList_.get());
        if (queued != 0) return false;
        for (int id = 0; id < evtAgentCnt_; ++id)
            if (eventAgents_[id] != nullptr && eventAgents_[id]->isBusy()) return false;
    }
    return network->isIdle();
}

void EvtAgentMgr::collectGatedCalls() {
    const std::shared_lock hold(poolLock_);
    const VelLockGuard holdLists(handOverLock_);
    EventAgent::collectGatedCalls(&orphans_);
    for (int id = 0; id < evtAgentCnt_; ++id)
        if (eventAgents_[id] != nullptr)
            EventAgent::collectGatedCalls(eventAgents_[id]->thrList_.get());
}

void EvtAgentMgr::wakeAll(NetworkAgentMgr* network) {
    {
        const std::shared_lock hold(poolLock_);
        for (int id = 0; id < evtAgentCnt_; ++id)
            if (eventAgents_[id] != nullptr) eventAgents_[id]->wake();
    }
    network->wakeAll();
}

bool EvtAgentMgr::flush(int ms) {
    VEL_TRACE("flush(int)");
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    const auto waitUntilSent = [&](NetworkAgentMgr* network, int limitMs, bool whileReachable) {
        const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(limitMs, 0));
        while (!everythingSent(network)) {
            if (Clock::now() >= deadline || (whileReachable && !network->isAnyReady()))
                return false;
            wakeAll(network);
            thread_sleep(kFlushStepMs);
        }
        return true;
    };

    NetworkAgentMgr* const network = naMgr_.load(std::memory_order_acquire);
    if (network == nullptr || !start_) return true;
    flushState = Flush::running;
    const bool sent = waitUntilSent(network, ms, true);
    if (sent) {
        flushState = Flush::none;
    } else {
        flushState = Flush::over;
        waitUntilSent(network, kDiscardLimitMs, false);
        const auto taken =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
        logMessage(msg::kFlushIncomplete, static_cast<int>(taken));
    }
    LossBook::write(true);
    collectGatedCalls();
    MemoryMonitor::writeGatedCalls(true);
    return sent;
}

bool EvtAgentMgr::askToEnd() {
    const std::shared_lock hold(poolLock_);
    bool none = true;
    for (int id = 0; id < evtAgentCnt_; ++id) {
        if (eventAgents_[id] == nullptr || !eventAgents_[id]->isAlive()) continue;
        eventAgents_[id]->askToEnd();
        none = false;
    }
    return none;
}

bool EvtAgentMgr::endLoops(int ms) {
    VEL_TRACE("endLoops(int)");
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(ms);
    flushState = Flush::over;
    for (;;) {
        // Asked again and again: a loop that was about to wait has missed the first call.
        const bool eventLoopsEnded = askToEnd();
        NetworkAgentMgr* const network = naMgr_.load(std::memory_order_acquire);
        if ((network == nullptr || network->askToEnd()) && eventLoopsEnded) return true;
        if (Clock::now() >= deadline) return false;
        thread_sleep(kEndStepMs);
    }
}
