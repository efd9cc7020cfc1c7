#include "transport/NetworkAgentMgr.h"

#include <mutex>
#include <utility>

#include "event/LossBook.h"
#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Platform.h"
#include "foundation/ProbeState.h"
#include "foundation/PropertyMgr.h"
#include "foundation/VelLock.h"
#include "transport/NetworkAgent.h"

namespace {

constexpr int kClientBuckets = 11;
constexpr int kStopStepMs = 1000;

int last = -1;  // the slot handed out last, process-wide; guarded by each manager's assignLock_

std::mutex instanceLock;  // guards making and destroying the singleton, and retiredMgr
// The manager destroyed last. An event agent that read the pointer just before may still be inside,
// so its memory goes one destroy() later.
NetworkAgentMgr* retiredMgr = nullptr;

}  // namespace

NetworkAgentMgr* NetworkAgentMgr::getInstance() {
    const std::lock_guard hold(instanceLock);
    if (naMgr_.load(std::memory_order_acquire) == nullptr)
        naMgr_.store(new NetworkAgentMgr, std::memory_order_release);
    return naMgr_.load(std::memory_order_acquire);
}

void NetworkAgentMgr::destroy() {
    const std::lock_guard hold(instanceLock);
    NetworkAgentMgr* const ended = naMgr_.load(std::memory_order_acquire);
    if (ended == nullptr) return;
    if (ended->start_) ended->stop();  // its loops still find it
    naMgr_.store(nullptr, std::memory_order_release);
    delete std::exchange(retiredMgr, ended);
}

NetworkAgentMgr::NetworkAgentMgr()
    : VeloraBase("NetworkAgentMgr"), hashTable_(kClientBuckets, true) {
    VEL_TRACE("NetworkAgentMgr()");
    networkAgentCount_ = static_cast<int>(
        PropertyMgr::getInstance()->getBoundedProperty("networkagent.pool.size", 1, 1, 64));
    networkAgents_ =
        std::make_unique<NetworkAgent*[]>(static_cast<std::size_t>(networkAgentCount_));
}

// Never under a running loop: whoever forgot to stop waits here.
NetworkAgentMgr::~NetworkAgentMgr() {
    if (start_) stop();
}

void NetworkAgentMgr::start() {
    VEL_TRACE("start()");
    {
        const std::unique_lock hold(poolLock_);
        if (start_) return;
        createData();
        start_ = true;
    }
    logMessage(msg::kNetAgentMgrStarted);
}

void NetworkAgentMgr::stop() {
    VEL_TRACE("stop()");
    {
        // Exclusive, so that no loop begins after this: a begun one is alive and waited for below.
        const std::unique_lock hold(poolLock_);
        start_ = false;
    }
    for (int id = 0; id < networkAgentCount_; ++id)
        if (networkAgents_[id] != nullptr) networkAgents_[id]->stopThread();
    VelLock pauses;
    for (int id = 0; id < networkAgentCount_;) {
        if (networkAgents_[id] == nullptr || !networkAgents_[id]->isAlive()) {
            ++id;
            continue;
        }
        VEL_DEBUG_MIN("stop", "NetworkAgent ID: %d was alive, waiting for 1 secs", id);
        if (!pauses.wait(kStopStepMs)) thread_sleep(kStopStepMs);
    }
    {
        const std::unique_lock hold(poolLock_);
        deleteData();
    }
    LossBook::write(true);
    logMessage(msg::kNetAgentMgrStopped);
}

void NetworkAgentMgr::createData() {
    for (int id = 0; id < networkAgentCount_; ++id)
        if (networkAgents_[id] == nullptr) networkAgents_[id] = new NetworkAgent;
    leader_ = networkAgents_[0];
}

void NetworkAgentMgr::deleteData() {
    for (int id = 0; id < networkAgentCount_; ++id) {
        delete networkAgents_[id];
        networkAgents_[id] = nullptr;
    }
    start_ = false;
    leader_ = nullptr;
    hashTable_.clear();
}

// --- the loops -----------------------------------------------------------------------------------

// The caller holds poolLock_.
NetworkAgent* NetworkAgentMgr::agentAt(int id) {
    if (id < 0 || id >= networkAgentCount_) {
        VEL_DEBUG_MIN("startNetworkAgent",
                      "Trying to start Network agent with improper ID: %d [0-%d]", id,
                      networkAgentCount_ - 1);
        return nullptr;
    }
    return networkAgents_[id];
}

void NetworkAgentMgr::startNetworkAgent(JNIEnv* env, int id) {
    VEL_TRACE("startNetworkAgent(JNIEnv*, int)");
    NetworkAgent* agent = nullptr;
    {
        const std::shared_lock hold(poolLock_);
        agent = agentAt(id);
        if (agent == nullptr || !start_ || !agent->beginRun()) return;
    }
    agent->runBegun(env);
}

void NetworkAgentMgr::stopNetworkAgent(JNIEnv*, int id) {
    VEL_TRACE("stopNetworkAgent(JNIEnv*, int)");
    const std::shared_lock hold(poolLock_);
    if (NetworkAgent* const agent = agentAt(id); agent != nullptr) agent->stopThread();
}

// --- senders and their agents --------------------------------------------------------------------

NetworkAgent* NetworkAgentMgr::getNetworkAgent(void* clientId) {
    if (networkAgentCount_ == 1) return leader_;
    const std::lock_guard hold(assignLock_);
    if (NetworkAgent* const known = hashTable_.get(clientId); known != nullptr) return known;
    NetworkAgent* const added = getNextNetworkAgent();
    if (added == nullptr || !hashTable_.put(clientId, added)) return nullptr;
    NetworkAgent* const retrieved = hashTable_.get(clientId);
    if (retrieved != added)
        VEL_DEBUG_MIN(
            "getNetworkAgent",
            "Unexpected error. Network agent retrieved from hash table is not the same as "
            "one added to it. Key:%p NetworkAgent Added:%p NetworkAgent retrieved:%p",
            clientId, added, retrieved);
    return retrieved;
}

NetworkAgent* NetworkAgentMgr::getNextNetworkAgent() {
    for (int step = 1; step <= networkAgentCount_; ++step) {
        const int slot = (last + step) % networkAgentCount_;
        if (networkAgents_[slot] == nullptr) continue;
        last = slot;
        return networkAgents_[slot];
    }
    return nullptr;
}

bool NetworkAgentMgr::isReady(void* clientId) {
    const std::shared_lock hold(poolLock_);
    if (!start_) return false;
    const NetworkAgent* const agent = getNetworkAgent(clientId);
    return agent != nullptr && agent->isReady();
}

NetworkAgentMgr::Line NetworkAgentMgr::lineOf(void* clientId) {
    const std::shared_lock hold(poolLock_);
    Line line;
    if (!start_) return line;
    const NetworkAgent* const agent = getNetworkAgent(clientId);
    if (agent == nullptr) return line;
    line.renewing = agent->isRenewing();  // first: the connection is ready before this ends
    line.ready = agent->isReady();
    line.connection = agent->connection();
    line.needsInit = agent->needsInit();
    line.carriesOver = agent->carriesOver();
    line.hasRoom = agent->hasRoom();
    line.agent = agent;
    return line;
}

int NetworkAgentMgr::sendData(void* clientId, const char* buf, int length) {
    return sendData(clientId, buf, length, {});
}

int NetworkAgentMgr::sendData(void* clientId, const char* buf, int length, PacketInfo info) {
    VEL_TRACE("sendData(void*, const char*, int)");
    const std::shared_lock hold(poolLock_);
    if (!start_) return RC_FAIL;
    if (NetworkAgent* const agent = getNetworkAgent(clientId); agent != nullptr)
        return agent->sendData(buf, length, std::move(info));
    VEL_DEBUG_MIN("sendData", "Unable to find network agent for clientId %p\n", clientId);
    return RC_FAIL;
}

long NetworkAgentMgr::getTotalDataSize() {
    const std::shared_lock hold(poolLock_);
    if (!start_) return 0;
    long bytes = 0;
    for (int id = 0; id < networkAgentCount_; ++id)
        if (networkAgents_[id] != nullptr) bytes += networkAgents_[id]->getTotalDataSize();
    return bytes;
}

bool NetworkAgentMgr::isAnyReady() {
    const std::shared_lock hold(poolLock_);
    for (int id = 0; start_ && id < networkAgentCount_; ++id)
        if (networkAgents_[id] != nullptr && networkAgents_[id]->isReady()) return true;
    return false;
}

bool NetworkAgentMgr::isIdle() {
    const std::shared_lock hold(poolLock_);
    for (int id = 0; start_ && id < networkAgentCount_; ++id)
        if (networkAgents_[id] != nullptr && !networkAgents_[id]->isIdle()) return false;
    return true;
}

bool NetworkAgentMgr::askToEnd() {
    const std::shared_lock hold(poolLock_);
    bool none = true;
    for (int id = 0; id < networkAgentCount_; ++id) {
        if (networkAgents_[id] == nullptr || !networkAgents_[id]->isAlive()) continue;
        networkAgents_[id]->askToEnd();
        none = false;
    }
    return none;
}

void NetworkAgentMgr::wakeAll() {
    const std::shared_lock hold(poolLock_);
    for (int id = 0; start_ && id < networkAgentCount_; ++id)
        if (networkAgents_[id] != nullptr) networkAgents_[id]->wake();
}

// --- news ----------------------------------------------------------------------------------------

void NetworkAgentMgr::registerConnectionInitListener(NetworkAgentMgrConnInitListener* listener) {
    const std::unique_lock hold(listenerLock_);
    listener_ = listener;
}

void NetworkAgentMgr::unregisterConnectionInitListener(NetworkAgentMgrConnInitListener*) {
    const std::unique_lock hold(listenerLock_);
    listener_ = nullptr;
}

void NetworkAgentMgr::notifyConnectionListeners(NetworkAgent*) {
    VEL_TRACE("notifyConnectionListeners(NetworkAgent*)");
    const std::shared_lock hold(listenerLock_);
    if (listener_ != nullptr) listener_->notifySocketStatus();
}

void NetworkAgentMgr::notifyNetworkAgentStatus(NetworkAgent* agent, bool status) {
    VEL_TRACE("notifyNetworkAgentStatus(NetworkAgent*, bool)");
    if (agent == leader_) ProbeState::setNetworkMgrReady(status);
}
