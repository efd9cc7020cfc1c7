// The registry of monitored threads.
#include "event/ThreadMgr.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "event/LossBook.h"
#include "event/RecordPins.h"
#include "event/ThreadAgents.h"
#include "event/ThreadData.h"
#include "event/VirtualThreads.h"
#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"

namespace {

constexpr const char* kSource = "ThreadMgr";

std::mutex instanceLock;  // guards making and destroying the singleton, and retiredMgr
// The manager destroyed last. A native that read the pointer just before may still be inside, so
// its memory goes one destroy() later.
ThreadMgr* retiredMgr = nullptr;

std::uint32_t processorClock() {
    return static_cast<std::uint32_t>(std::clock());
}

// Remembered for the next call only where no mount can change whose record it is.
template <typename Find>
ThreadData* pinOwn(JNIEnv* env, Find find) {
    ThreadData* const record = RecordPins::pinOwn(env, find);
    if (!VirtualThreads::recordIsSteady()) RecordPins::forgetOwn();
    return record;
}

bool sameName(const char* one, const char* other) {
    return one != nullptr && std::strcmp(one, other) == 0;
}

}  // namespace

std::uint32_t ThreadMgr::stoppedTIDArr_[kStoppedSlots];
std::uint32_t ThreadMgr::stoppedTIDCopyArr_[kStoppedSlots];
int ThreadMgr::stopIndex_ = -1;
int ThreadMgr::stopTIDCnt_ = 0;
std::atomic<ThreadAgents*> ThreadMgr::agents_{nullptr};
std::uint32_t (*ThreadMgr::getTimeStamp)() = processorClock;

ThreadMgr::ThreadMgr()
    : VeloraBase("ThreadMgr"),
      thrTable_(new VelHashTable<JNIEnv*, ThreadData*>(64, true)),
      thrMap_(new JNIEnvMap),
      lock_(new VelLock),
      threadDataLock_(new VelLock) {
    VEL_TRACE("ThreadMgr()");
}

ThreadMgr::~ThreadMgr() {
    VEL_TRACE("~ThreadMgr()");
    discardAll();
    delete thrTable_;
    delete thrMap_;
    delete lock_;
    delete threadDataLock_;
}

ThreadMgr* ThreadMgr::getInstance() {
    if (ThreadMgr* const made = thrMgr_.load(std::memory_order_acquire); made != nullptr)
        return made;
    const std::lock_guard hold(instanceLock);
    ThreadMgr* made = thrMgr_.load(std::memory_order_acquire);
    if (made == nullptr) {
        made = new ThreadMgr;
        made->initialize();
        thrMgr_.store(made, std::memory_order_release);
    }
    return made;
}

void ThreadMgr::destroy() {
    VEL_TRACE("ThreadMgr::destroy()");
    const std::lock_guard hold(instanceLock);
    ThreadMgr* const last = thrMgr_.exchange(nullptr, std::memory_order_acq_rel);
    if (last == nullptr) return;
    last->start_.store(false, std::memory_order_release);
    last->discardAll();
    delete std::exchange(retiredMgr, last);
}

bool ThreadMgr::initializeAfterJVMPI() {
    VirtualThreads::introduce(jvm_ptr);
    return true;
}

void ThreadMgr::start() {
    VEL_TRACE("start()");
    initializeAfterJVMPI();
    RecordPins::sweep();
    thrTable_->preInitLocks();
    start_.store(true, std::memory_order_release);
    logMessage(msg::kThreadMgrStarted);
}

void ThreadMgr::stop() {
    VEL_TRACE("stop()");
    start_.store(false, std::memory_order_release);
    discardAll();
    LossBook::write(true);
    logMessage(msg::kThreadMgrStopped);
}

// Every record goes: the registered ones and those whose thread has ended but whose agent has not
// come by.
void ThreadMgr::discardAll() {
    const VelLockGuard hold(*threadDataLock_);
    std::set<ThreadData*> records;
    records.swap(owned_);
    thrTable_->clear();
    thrMap_->clear();
    for (ThreadData* const record : records) record->listed_ = false;
    firstSpare_ = lastSpare_ = nullptr;
    spares_ = fewestSpares_ = 0;
    virtualRecords_ = 0;
    RecordPins::recordsChanged();
    for (ThreadData* const record : records) discard(record, Loss::probeStopped);
    RecordPins::sweep();
}

// Caller holds threadDataLock_, and has unregistered the record.
void ThreadMgr::discard(ThreadData* record, Loss reason) {
    owned_.erase(record);
    record->retire(reason);
    RecordPins::freeWhenUnpinned(record);
}

ThreadData* ThreadMgr::getThreadData(JNIEnv* env) {
    VEL_TRACE("getThreadData(JNIEnv*)");
    if (!isReady()) [[unlikely]] {
        VEL_DEBUG_MIN("getThreadData", "ThreadMgr not started, returning null");
        return nullptr;
    }
    if (env == nullptr) [[unlikely]] {
        VEL_DEBUG_MIN("getThreadData", "NULL Env id");
        return nullptr;
    }
    if (ThreadData* const own = RecordPins::own(env); own != nullptr) [[likely]]
        return own;
    if (VirtualThreads::mountedOn(env)) return virtualThreadData(env);
    ThreadData* record = findOwn(env);
    if (record == nullptr) return createThreadData(env);
    if (record->getThreadId() == env) return record;
    _logError(kSource, __LINE__,
              "thr->getThreadId() != env, there is a problem with the internal hashtable "
              "implementation. Try it again");
    record = findOwn(env);
    if (record != nullptr && record->getThreadId() == env) return record;
    _logError(kSource, __LINE__, "Second try also failed, getThreadData will return NULL");
    RecordPins::unpin(record);
    return nullptr;
}

ThreadData* ThreadMgr::getThreadData(JVMPI_Event* evt) {
    VEL_TRACE("getThreadData(JVMPI_Event*)");
    if (!isReady()) {
        VEL_DEBUG_MIN("getThreadData", "ThreadMgr not started, returning null");
        return nullptr;
    }
    if (evt == nullptr || evt->env_id == nullptr) {
        _logWarn(kSource, __LINE__, "NULL env id in getThreadDataJVMPI");
        VEL_DEBUG_MIN("getThreadData", "NULL env id");
        return nullptr;
    }
    return getThreadData(evt->env_id);
}

ThreadData* ThreadMgr::findOwn(JNIEnv* env) {
    return pinOwn(env, [&] { return thrTable_->get(env); });
}

ThreadData* ThreadMgr::getThreadDataIfPresent(JNIEnv* env) {
    VEL_TRACE("getThreadDataIfPresent(JNIEnv*)");
    if (env == nullptr) return nullptr;
    if (ThreadData* const own = RecordPins::own(env); own != nullptr) return own;
    if (VirtualThreads::mountedOn(env)) {
        ThreadData* const record = VirtualThreads::record();
        return record != nullptr && record->listed_ ? record : nullptr;
    }
    if (ThreadData::ofVirtualKey(env) != nullptr) return findVirtual(env);
    return RecordPins::pinOther([&] { return thrTable_->get(env); });
}

ThreadData* ThreadMgr::getThreadData(char* grpname, char* thrname) {
    VEL_TRACE("getThreadData(char*, char*)");
    if (!isReady()) {
        VEL_DEBUG_MIN("getThreadData", "ThreadMgr not started, returning null");
        return nullptr;
    }
    if (grpname == nullptr || thrname == nullptr) return nullptr;
    // Under the lock, so that no record of the snapshot is deleted before it is pinned.
    const VelLockGuard hold(*threadDataLock_);
    const std::unique_ptr<ThreadData*[]> records(thrTable_->getVals());
    for (ThreadData** at = records.get(); *at != nullptr; ++at)
        if (sameName((*at)->getGroupName(), grpname) && sameName((*at)->getThreadName(), thrname))
            return RecordPins::pinOther([&] { return *at; });
    return nullptr;
}

ThreadData* ThreadMgr::createThreadData(JNIEnv* env) {
    VEL_TRACE("createThreadData(JNIEnv*)");
    ThreadAgents* const agents = agents_.load(std::memory_order_acquire);
    if (agents == nullptr || !agents->isReady()) {
        VEL_DEBUG_MIN("createThreadData", "EventMgr not ready, returning null");
        return nullptr;
    }
    if (jvmpi.load(std::memory_order_acquire) == nullptr) return nullptr;
    ThreadData* const record = registerNew(env, true);
    if (record == nullptr) return nullptr;
    try {
        if (agents->manageThreadData(record) != 0) return record;
    } catch (...) {  // no memory: registered without an agent, its events would reach nobody
        withdraw(env, record);
        throw;
    }
    _logError(kSource, __LINE__, "Internal Error: EventManager could not manage Thread");
    withdraw(env, record);
    return nullptr;
}

ThreadData* ThreadMgr::createSpecialEventQueue(JNIEnv* env) {
    VEL_TRACE("createSpecialEventQueue(JNIEnv*)");
    if (env != nullptr)
        if (ThreadData* const present = findOwn(env); present != nullptr) return present;
    return registerNew(env, false);
}

// A new record, registered and pinned; null when the table refuses it, or when the manager has been
// stopped meanwhile and onlyWhenStarted.
ThreadData* ThreadMgr::registerNew(JNIEnv* env, bool onlyWhenStarted) {
    ThreadData* const record = makeRecord(env);
    bool registered = false;
    try {
        registered = enlist(env, record, onlyWhenStarted);
    } catch (...) {  // no memory for a node
        withdraw(env, record);
        throw;
    }
    if (registered) return record;
    char message[96];
    std::snprintf(message, sizeof message,
                  "Insertion into Hashtable failed (JNI based) for Thread with ID: %ld",
                  reinterpret_cast<long>(env));
    _logError(kSource, __LINE__, message);
    withdraw(env, record);
    return nullptr;
}

// Without a monitor to guard it with there is no record: std::bad_alloc, which is what monitors are
// made of, so that the caller's event is counted.
ThreadData* ThreadMgr::makeRecord(JNIEnv* env) {
    auto* const record = new ThreadData(env);
    if (canBeGuarded(env, *record)) return record;
    VEL_DEBUG_MIN("createThreadData", "No raw monitor for the record");
    record->alive_ = false;  // it never lived: nothing to be told of its end
    delete record;
    throw std::bad_alloc();
}

// A guard whose monitor cannot be made holds nothing, so what threads share must have its monitor.
bool ThreadMgr::canBeGuarded(JNIEnv* env, const ThreadData& record) {
    if (jvmpi.load(std::memory_order_acquire) == nullptr) return true;  // nobody to share with yet
    return record.getEvtQueue()->lock()->isMade() && threadDataLock_->makeLock() &&
           thrTable_->makeLockFor(env);
}

// --- virtual threads -----------------------------------------------------------------------------

ThreadData* ThreadMgr::virtualThreadData(JNIEnv* env) {
    ThreadData* record = VirtualThreads::record();
    // What the probe's last stop has emptied stays so; the thread gets another.
    if (record == nullptr || !record->listed_) {
        record = newVirtualRecord(env);
        if (record == nullptr) return nullptr;
        if (!VirtualThreads::keep(record)) {
            virtualThreadEnded(record);
            return nullptr;
        }
    }
    return pinOwn(env, [record] { return record->listed_ ? record : nullptr; });
}

// Held for the calling virtual thread, which is to keep it. Null as from createThreadData.
ThreadData* ThreadMgr::newVirtualRecord(JNIEnv* env) {
    ThreadAgents* const agents = agents_.load(std::memory_order_acquire);
    if (agents == nullptr || !agents->isReady() || !VirtualThreads::areFollowed()) return nullptr;
    if (ThreadData* const spare = takeSpare(); spare != nullptr) return spare;
    ThreadData* const record = makeRecord(env);
    record->threadId_ = record->virtualKey();
    record->held_ = true;
    record->cpuIsMeasured_ = VirtualThreads::cpuIsMeasured();
    try {
        if (enlistVirtual(record) && agents->manageThreadData(record) != 0) return record;
    } catch (...) {  // no memory for a node
        giveUpVirtual(record);
        throw;
    }
    giveUpVirtual(record);
    return nullptr;
}

// Held to the last, because a stop may have discarded it meanwhile.
void ThreadMgr::giveUpVirtual(ThreadData* record) {
    withdraw(record->threadId_, record);
    record->held_ = false;
    RecordPins::sweep();
}

bool ThreadMgr::enlistVirtual(ThreadData* record) {
    const VelLockGuard hold(*threadDataLock_);
    owned_.insert(record);
    if (!isReady()) return false;
    thrMap_->emplace(assignIdLocked(record), record->threadId_);
    virtualRecords_.fetch_add(1, std::memory_order_relaxed);
    record->listed_ = true;
    return true;
}

// None while the one that has waited longest still has much queued: a thread that took it would
// have its events refused.
ThreadData* ThreadMgr::takeSpare() {
    const VelLockGuard hold(*threadDataLock_);
    ThreadData* const spare = firstSpare_;
    if (spare == nullptr || spare->getEvtQueueSize() > ThreadData::queueLimit() / 2) return nullptr;
    firstSpare_ = std::exchange(spare->nextSpare_, nullptr);
    if (firstSpare_ == nullptr) lastSpare_ = nullptr;
    fewestSpares_ = std::min(fewestSpares_, --spares_);
    spare->held_ = true;
    return spare;
}

// Caller holds threadDataLock_.
void ThreadMgr::addSpare(ThreadData* record) {
    (lastSpare_ == nullptr ? firstSpare_ : lastSpare_->nextSpare_) = record;
    lastSpare_ = record;
    ++spares_;
}

void ThreadMgr::virtualThreadEnded(ThreadData* record) {
    record->forgetWork();
    ThreadMgr* const manager = thrMgr_.load(std::memory_order_acquire);
    if (manager != nullptr) {
        const VelLockGuard hold(*manager->threadDataLock_);
        record->held_ = false;
        if (record->listed_) return manager->addSpare(record);
    }
    record->held_ = false;
    RecordPins::unpin(record);
    RecordPins::sweep();
}

void ThreadMgr::endUnusedSpares() {
    std::vector<ThreadData*> unused;
    {
        const VelLockGuard hold(*threadDataLock_);
        unused.reserve(static_cast<std::size_t>(fewestSpares_));
        for (; fewestSpares_ > 0; --fewestSpares_, --spares_) {
            ThreadData* const spare = firstSpare_;
            firstSpare_ = std::exchange(spare->nextSpare_, nullptr);
            if (firstSpare_ == nullptr) lastSpare_ = nullptr;
            spare->listed_ = false;
            thrMap_->erase(spare->getThreadIntId());
            virtualRecords_.fetch_sub(1, std::memory_order_relaxed);
            unused.push_back(spare);
        }
        fewestSpares_ = spares_;
    }
    if (unused.empty()) return;
    RecordPins::spareGone();
    // The agents run, so nobody else deletes these; their own agents do, once they are drained.
    for (ThreadData* const spare : unused) {
        setThreadStopped(spare->getThreadIntId());
        spare->alive_.store(false, std::memory_order_release);
    }
}

// By what findJNIEnv() gave; the key of a record that is gone is not followed.
ThreadData* ThreadMgr::findVirtual(JNIEnv* key) {
    ThreadData* const record = ThreadData::ofVirtualKey(key);
    const VelLockGuard hold(*threadDataLock_);  // so that it is not deleted before it is pinned
    if (owned_.count(record) == 0 || !record->listed_) return nullptr;
    return RecordPins::pinOther([record] { return record; });
}

// -------------------------------------------------------------------------------------------------

bool ThreadMgr::enlist(JNIEnv* env, ThreadData* record, bool onlyWhenStarted) {
    const VelLockGuard hold(*threadDataLock_);
    owned_.insert(record);
    if (onlyWhenStarted && !isReady()) return false;
    const bool put = thrTable_->put(env, record);
    thrMap_->emplace(assignIdLocked(record), env);
    pinOwn(env, [&] { return record; });
    return put;
}

// Takes a record back that could not be put to use; stop() may have taken it already.
void ThreadMgr::withdraw(JNIEnv* env, ThreadData* record) {
    const VelLockGuard hold(*threadDataLock_);
    if (owned_.count(record) == 0) return;
    if (env != nullptr) thrTable_->remove(env);
    removeThreadFromMap(record->getThreadIntId());
    if (record->listed_.exchange(false)) virtualRecords_.fetch_sub(1, std::memory_order_relaxed);
    RecordPins::recordsChanged();
    discard(record, Loss::threadEnded);
}

// Intended: ids start at the processor clock and not at a counter, so that those of a restarted
// server do not repeat the ones it had before. 0 is left out, it means "no thread".
unsigned ThreadMgr::assignIdLocked(ThreadData* record) {
    unsigned id = getTimeStamp();
    while (id == 0 || thrMap_->count(id) != 0) ++id;
    record->threadIntId_.store(id, std::memory_order_relaxed);
    return id;
}

bool ThreadMgr::deleteThreadData(ThreadData* data) {
    VEL_TRACE("deleteThreadData(ThreadData*)");
    if (!isReady()) {
        VEL_DEBUG_MIN("deleteThreadData", "ThreadMgr not started, returning false");
        return false;
    }
    if (data == nullptr) return false;
    VEL_DEBUG_MAX("deleteThreadData", "Thread being deleted.   pid = %d", data->getPID());
    const VelLockGuard hold(*threadDataLock_);
    discard(data, Loss::threadEnded);
    RecordPins::sweep();
    return true;
}

bool ThreadMgr::removeThreadData(JNIEnv* env) {
    VEL_TRACE("removeThreadData(JNIEnv*)");
    if (env == nullptr) return false;
    const VelLockGuard hold(*threadDataLock_);
    // By its id where that is known: the map may hold thousands of virtual threads' records.
    const ThreadData* const record = thrTable_->get(env);
    const bool removed = thrTable_->remove(env);
    RecordPins::recordsChanged();
    if (!(record != nullptr ? removeThreadFromMap(record->getThreadIntId())
                            : removeThreadFromMap(env))) {
        char message[96];
        std::snprintf(message, sizeof message, "Removal from the thread map failed, TID: %p",
                      static_cast<void*>(env));
        _logWarn(kSource, __LINE__, message);
    }
    return removed;
}

bool ThreadMgr::updateOnThreadEnd(JNIEnv* tid) {
    VEL_TRACE("updateOnThreadEnd(JNIEnv*)");
    if (tid == nullptr) return false;
    if (removeThreadData(tid)) return true;
    VEL_DEBUG_MIN("updateOnThreadEnd", "ThreadData was not there in table, TID: %d", tid);
    return false;
}

bool ThreadMgr::owns(const ThreadData* data) {
    const VelLockGuard hold(*threadDataLock_);
    return owned_.count(const_cast<ThreadData*>(data)) != 0;
}

int ThreadMgr::getThreadCount() {
    VEL_TRACE("getThreadCount()");
    if (isReady())
        return static_cast<int>(thrTable_->size()) +
               virtualRecords_.load(std::memory_order_relaxed);
    VEL_DEBUG_MIN("getThreadCount", "ThreadMgr not started, returning null");
    return 0;
}

bool ThreadMgr::threadExists(int id) {
    VEL_TRACE("threadExists(int)");
    JNIEnv* const env = findJNIEnv(static_cast<unsigned>(id));
    // The key of a virtual thread's record is in the map just as long as the record is listed.
    return ThreadData::ofVirtualKey(env) != nullptr || thrTable_->contains(env);
}

JNIEnv* ThreadMgr::findJNIEnv(unsigned id) {
    VEL_TRACE("findJNIEnv(unsigned)");
    const VelLockGuard hold(*threadDataLock_);
    const auto found = thrMap_->find(id);
    return found == thrMap_->end() ? nullptr : found->second;
}

bool ThreadMgr::findThreadId(JNIEnv* env, unsigned* id) {
    VEL_TRACE("findThreadId(JNIEnv*, unsigned*)");
    if (env != nullptr && VirtualThreads::mountedOn(env)) {
        const ThreadData* const own = getThreadDataIfPresent(env);
        if (own != nullptr) *id = own->getThreadIntId();
        return own != nullptr;
    }
    const VelLockGuard hold(*threadDataLock_);
    for (const auto& [key, value] : *thrMap_) {
        if (value != env) continue;
        *id = key;
        return true;
    }
    return false;
}

std::uintptr_t ThreadMgr::CastThreadId(JNIEnv* env) {
    VEL_TRACE("CastThreadId(JNIEnv*)");
    unsigned id = 0;
    return findThreadId(env, &id) ? id : reinterpret_cast<std::uintptr_t>(env);
}

bool ThreadMgr::removeThreadFromMap(unsigned id) {
    VEL_TRACE("removeThreadFromMap(unsigned)");
    const VelLockGuard hold(*threadDataLock_);
    return thrMap_->erase(id) != 0;
}

bool ThreadMgr::removeThreadFromMap(JNIEnv* env) {
    VEL_TRACE("removeThreadFromMap(JNIEnv*)");
    const VelLockGuard hold(*threadDataLock_);
    unsigned id = 0;
    return findThreadId(env, &id) && thrMap_->erase(id) != 0;
}

void ThreadMgr::setThreadStopped(unsigned id) {
    VEL_TRACE("setThreadStopped(unsigned)");
    const VelLockGuard hold(*lock_);
    if (stopIndex_ > 299) stopIndex_ = -1;
    stoppedTIDArr_[++stopIndex_] = id;
}

int ThreadMgr::getAllStoppedThreadIDs() {
    VEL_TRACE("getAllStoppedThreadIDs()");
    const VelLockGuard hold(*lock_);
    std::memcpy(stoppedTIDCopyArr_, stoppedTIDArr_, sizeof stoppedTIDArr_);
    stopTIDCnt_ = stopIndex_ + 1;
    stopIndex_ = -1;
    return stopTIDCnt_;
}

std::vector<std::uint32_t> ThreadMgr::takeStoppedThreadIDs() {
    const VelLockGuard hold(
        *lock_);  // re-entrant: the copy must still be this call's when it is read
    const int count = getAllStoppedThreadIDs();
    return {stoppedTIDCopyArr_, stoppedTIDCopyArr_ + count};
}

ThreadDataCopy** ThreadMgr::getAllThreadDataCopies() {
    VEL_TRACE("getAllThreadDataCopies()");
    const VelLockGuard hold(*threadDataLock_);
    const std::unique_ptr<ThreadData*[]> records(thrTable_->getVals());
    std::size_t count = 0;
    while (records[count] != nullptr) ++count;
    if (count == 0) return nullptr;
    auto** const copies = new ThreadDataCopy* [count + 1] {};
    for (std::size_t i = 0; i < count; ++i)
        copies[i] = new ThreadDataCopy(records[i]->getPID(), records[i]->getPPID());
    return copies;
}

int ThreadMgr::setLinuxThreadingModel(int processId) {
    VEL_TRACE("setLinuxThreadingModel(int)");
    int first = -1;
    if (!firstPid.compare_exchange_strong(first, processId)) {
        int unknown = ThreadModelUnknown;
        linuxThreadModel.compare_exchange_strong(
            unknown, first == processId ? AllThreadsInOneProcess : EachThreadIsAProcess);
    }
    return linuxThreadModel;
}

_LinuxThreadModel ThreadMgr::getLinuxThreadingModel() const {
    return static_cast<_LinuxThreadModel>(linuxThreadModel.load());
}
