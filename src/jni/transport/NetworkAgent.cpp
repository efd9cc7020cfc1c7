#include "transport/NetworkAgent.h"

#include <exception>
#include <new>

#include "event/LossBook.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Platform.h"
#include "foundation/PropertyMgr.h"
#include "foundation/Utils.h"
#include "transport/EvtAgentMgr.h"
#include "transport/NetworkAgentMgr.h"
#include "transport/PsLookup.h"
#include "transport/ResendListener.h"

namespace {

constexpr int kStopStepMs = 1000;
constexpr int kFlushStepMs = 5;
constexpr int kWarnedLookupFailures = 5;
constexpr long kLongestPeriodMs = 3600000;

}  // namespace

NetworkAgent::NetworkAgent() : VeloraBase("NetworkAgent"), dataQueue_(true) {
    VEL_TRACE("NetworkAgent()");
    readProperties();
}

NetworkAgent::~NetworkAgent() {
    flushDataQueue();
    if (socketOpen_) disconnect2ps();
}

void NetworkAgent::readProperties() {
    const PropertyMgr* settings = PropertyMgr::getInstance();
    socketTimeOut_ = static_cast<int>(
        settings->getBoundedProperty("networkagent.socket.timeout", -1, -1, 86400));
    publishFrequency_ =
        settings->getBoundedProperty("networkagent.publish.frequency", 500, 1, kLongestPeriodMs);
    const int resetMs = settings->getIntProperty("networkagent.socket.resettime", -1);
    if (resetMs > 0) {
        resetConnLimit_ = resetMs / publishFrequency_;
        VEL_DEBUG_MIN("NetworkAgent", "Socket will reset every %d ms, Iterations: %d", resetMs,
                      static_cast<int>(resetConnLimit_));
    }
    if (const char* address = settings->getProperty("networkagent.socket.ip"); address != nullptr) {
        bindIPAddress_.reset(Utils::cstrdup(address));
        clientIPPort_ =
            static_cast<int>(settings->getBoundedProperty("networkagent.socket.port", 0, 0, 65535));
    }
    bufferLimit_ =
        static_cast<int>(settings->getBoundedProperty("networkagent.buffer.limit", 10, 1, 100000));
}

// --- the senders' side ---------------------------------------------------------------------------

int NetworkAgent::sendData(const char* data, int size) {
    return sendData(data, size, {});
}

int NetworkAgent::sendData(const char* data, int size, PacketInfo info) {
    VEL_TRACE("sendData(const char*, int)");
    const bool renewing = isRenewing();  // first: the connection is ready before this ends
    if (!start_ || !alive_ || (!isReady_ && !renewing)) {
        logMessage(msg::kNetAgentNotReady);
        return RC_FAIL;
    }
    if (size == 0) return RC_SUCCESS;
    if (size < 0 || data == nullptr) return RC_FAIL;
    if (!maySend(info)) {
        VEL_DEBUG_MIN("sendData",
                      "Record was built for an earlier connection, rejecting send data");
        return RC_FAIL;
    }
    if (!info.init && !hasRoom()) {
        logMessage(msg::kNetQueueFull);
        return RC_FAIL;
    }
    const bool init = info.init;
    const unsigned long builtFor = info.connection;
    auto packet = std::make_unique<NetworkAgentData>(data, size, std::move(info));
    if (packet->getRecord() == nullptr) return RC_FAIL;
    addToTotal(size);  // before the append: whoever takes the packet out finds its bytes counted
    VelList<NetworkAgentData*> added(false);
    bool queued = false;
    try {
        queued = added.append(packet.get());
    } catch (const std::bad_alloc&) {
        VEL_DEBUG_MIN("sendData", "No memory for the queue");
    }
    if (!queued) {
        addToTotal(-size);
        VEL_DEBUG_MIN("sendData", "Queue full detected");
        return RC_FAIL;
    }
    (void)packet.release();  // the queue's now
    // The initial records go ahead of what an earlier connection has left, and are told after they
    // are queued, so that a sender which sees them told queues behind them.
    if (!init) {
        added.moveFirst(1, &dataQueue_);
        return RC_SUCCESS;
    }
    dataQueue_.prependAll(&added);
    initConnection_.store(builtFor, std::memory_order_release);
    return RC_SUCCESS;
}

bool NetworkAgent::maySend(const PacketInfo& info) const {
    if (info.init) return info.connection == connection();
    return info.connection == 0 || info.connection >= keptSince_.load(std::memory_order_acquire);
}

void NetworkAgent::addToTotal(std::int64_t bytes) {
    const VelLockGuard hold(lock_);
    totalDataSize_.fetch_add(bytes, std::memory_order_relaxed);
}

bool NetworkAgent::needsInit() const {
    return initConnection_.load(std::memory_order_acquire) != connection();
}

bool NetworkAgent::isIdle() const {
    // In this order: a packet leaves the queue only after writing_ was set.
    return dataQueue_.size() == 0 && !writing_.load();
}

void NetworkAgent::wake() {
    queueFullLock_.notifyAll();
}

// --- the loop ------------------------------------------------------------------------------------

bool NetworkAgent::beginRun() {
    bool idle = false;
    if (!alive_.compare_exchange_strong(idle, true)) return false;
    start_ = true;
    return true;
}

void NetworkAgent::runTCPagent(JNIEnv* env) {
    VEL_TRACE("runTCPagent(JNIEnv*)");
    if (beginRun())
        runBegun(env);
    else
        VEL_DEBUG_MIN("runTCPagent", "Network Agent Thread is running already");
}

void NetworkAgent::runBegun(JNIEnv* env) {
    if (NetworkAgentMgr* const manager = naMgr_.load(); manager != nullptr)
        manager->notifyNetworkAgentStatus(this, true);
    logMessage(msg::kNetAgentStarted);
    while (start_) {
        try {
            onePass(env);
        } catch (const std::exception& e) {  // out of memory: what is queued waits for better times
            writing_ = false;
            noteNativeFailure("NetworkAgent.startThread", e.what());
            pause();
        }
    }
    isReady_ = false;
    renewing_ = false;
    keptSince_ = connection() + 1;
    flushDataQueue();
    disconnect2ps();
    start_ = false;
    if (NetworkAgentMgr* const manager = naMgr_.load(); manager != nullptr)
        manager->notifyNetworkAgentStatus(this, false);
    VEL_DEBUG_MIN("runTCPagent", "Network Agent Thread Stopped");
    LossBook::write(true);
    alive_ = false;  // the agent may be deleted from here on
}

void NetworkAgent::onePass(JNIEnv* env) {
    resetConnectionOnExpiry();
    if (!isReady_) connectUntilReady(env);
    // A server that went away while there was nothing to send is noticed without a packet's loss.
    if (isReady_ && (peerHasGone() || hasStalled())) giveUpConnection();
    if (isReady_) sendOne();
    LossBook::write(false);
    if (start_) pause();
}

void NetworkAgent::pause() {
    const int ms = EvtAgentMgr::isFlushing() ? kFlushStepMs : static_cast<int>(publishFrequency_);
    if (!queueFullLock_.wait(ms)) thread_sleep(ms);  // no monitor: still no spinning
}

void NetworkAgent::connectUntilReady(JNIEnv* env) {
    disconnect2ps();
    if (!renewing_) flushDataQueue();
    for (int lookupFailures = 0; start_ && !tryToConnect(env, &lookupFailures);) {
        renewing_ = false;  // the server is away; what waits in the queue goes to whoever comes
        LossBook::write(false);
        pause();
    }
    isReady_ = true;  // also when the loop was told to end: it then ends before it sends anything
    renewing_ = false;
}

bool NetworkAgent::tryToConnect(JNIEnv* env, int* lookupFailures) {
    if (getPSDetailsFromKernel(env, *lookupFailures) != RC_SUCCESS) {
        if (*lookupFailures < kWarnedLookupFailures)
            _logWarn(__FILE_NAME__, __LINE__, "Could not obtain PS proxy details from Kernel.");
        else if (*lookupFailures == kWarnedLookupFailures)
            logMessage(msg::kPsDetailsFailed);
        if (*lookupFailures <= kWarnedLookupFailures) ++*lookupFailures;
        return false;
    }
    note("PS Proxy details successfully obtained from Kernel, Host: %s Port: %d", hostForLog(),
         portNumber_);
    if (connect2ps(hostName_.get(), portNumber_, buffSize_) != RC_SUCCESS) return false;
    connection_.fetch_add(1, std::memory_order_release);
    initWritten_ = false;
    logMessage(msg::kPsSocketConnected);
    *lookupFailures = 0;
    if (ResendListener* const listener = ResendListener::current(); listener != nullptr)
        listener->connected(env);
    handleJavaException(env);
    return true;
}

void NetworkAgent::sendOne() {
    if (EvtAgentMgr::isDiscarding()) {
        flushDataQueue();
        return;
    }
    if (waitsForInit()) return;
    writing_ = true;
    unacknowledged_.emplace_back();  // first: without memory for it the packet stays in the queue
    const std::unique_ptr<NetworkAgentData> packet(dataQueue_.pop());
    if (packet == nullptr || packet->getSize() <= 0 || packet->getRecord() == nullptr)
        unacknowledged_.pop_back();
    else
        sendPacket(*packet);
    writing_ = false;
}

void NetworkAgent::sendPacket(NetworkAgentData& packet) {
    const PacketInfo& info = packet.getInfo();
    addToTotal(-packet.getSize());
    if (info.connection != connection() && carriedOver_ > 0) --carriedOver_;
    if (!maySend(info)) {
        LossBook::add(Loss::connectionGone, info.ends.events());
        unacknowledged_.pop_back();
    } else if (sendToRemoteHost(packet.getRecord(), packet.getSize()) < 0) {
        noteWritten(packet, Loss::writeFailed);
        giveUpConnection();
    } else {
        initWritten_ = initWritten_ || info.init;
        noteWritten(packet, Loss::notAcknowledged);
    }
}

// What an earlier connection has left waits until this one's initial records are in front of it.
bool NetworkAgent::waitsForInit() {
    if (!needsInit()) return false;
    const VelLockGuard hold(dataQueue_.lock());
    NetworkAgentData* const head = VelListIter<NetworkAgentData*>(&dataQueue_).next();
    const unsigned long builtFor = head != nullptr ? head->getInfo().connection : 0;
    return builtFor != 0 && builtFor != connection();
}

void NetworkAgent::giveUpConnection() {
    _logError(__FILE_NAME__, __LINE__,
              "Write failed, looks like socket is down, retrying to connect to PS");
    countUnacknowledged();
    keptSince_ = connection() + 1;
    carriedOver_ = 0;
    isReady_ = false;
    if (NetworkAgentMgr* const manager = naMgr_.load(); manager != nullptr)
        manager->notifyConnectionListeners(this);
}

void NetworkAgent::resetConnectionOnExpiry() {
    if (resetConnLimit_ < 1 || ++resetConnCounter_ < resetConnLimit_ || !mayReset()) return;
    resetConnCounter_ = 0;
    note("Resetting socket connection");
    if (isReady_) {
        carriedOver_ = dataQueue_.size();
        renewing_ = true;
    }
    isReady_ = false;
    if (NetworkAgentMgr* const manager = naMgr_.load(); manager != nullptr)
        manager->notifyConnectionListeners(this);
}

// Each connection carries what the one before has left, or resets that follow each other faster
// than the initial records come would never let anything out; and nothing is under way.
bool NetworkAgent::mayReset() {
    if (!isReady_) return true;
    const bool initWaits = !needsInit() && connection() != 0 && !initWritten_;
    return carriedOver_ == 0 && !initWaits && allAcknowledged();
}

void NetworkAgent::flushDataQueue() {
    VEL_TRACE("flushDataQueue()");
    long events = 0;
    while (const std::unique_ptr<NetworkAgentData> packet{dataQueue_.pop()}) {
        addToTotal(-packet->getSize());
        events += packet->getInfo().ends.events();
    }
    LossBook::add(EvtAgentMgr::isDiscarding() ? Loss::exit : Loss::connectionGone, events);
}

int NetworkAgent::getPSDetailsFromKernel(JNIEnv* env, int nCntLog) {
    VEL_TRACE("getPSDetailsFromKernel(JNIEnv*, int)");
    portNumber_ = -1;
    buffSize_ = -1;
    hostName_.reset();
    PsDetails details;
    if (!lookUpPs(
            env, nCntLog, [this] { return stopRequested(); }, &details))
        return RC_FAIL;
    hostName_.reset(Utils::cstrdup(details.host.c_str()));
    portNumber_ = details.port;
    buffSize_ = details.buffSize;
    return RC_SUCCESS;
}

void NetworkAgent::stopThread() {
    VEL_TRACE("stopThread()");
    note("Network Agent Thread being stopped");
    askToEnd();
    VelLock pauses;
    while (alive_)
        if (!pauses.wait(kStopStepMs)) thread_sleep(kStopStepMs);
}

bool NetworkAgent::stopRequested() const {
    return (alive_ && !start_) || EvtAgentMgr::isDiscarding();
}
