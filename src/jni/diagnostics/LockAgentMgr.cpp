#include "diagnostics/LockAgentMgr.h"

#include <cstring>
#include <memory>

#include "capture/CaptureEdge.h"
#include "capture/EventUtils.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"
#include "transport/MemoryMonitor.h"

LockAgentMgr* LockAgentMgr::instance_ = nullptr;

LockAgentMgr* LockAgentMgr::getInstance() {
    if (instance_ == nullptr) {
        instance_ = new LockAgentMgr;
        lockMgr_.store(instance_, std::memory_order_release);
    }
    return instance_;
}

void LockAgentMgr::destroy() {
    VEL_TRACE("LockAgentMgr::destroy()");
    delete instance_;
    instance_ = nullptr;
    lockMgr_.store(nullptr, std::memory_order_release);
    VelLock::destroyGlobalLock();
}

LockAgentMgr::LockAgentMgr()
    : VeloraBase("LockAgentMgr"), table_(new VelHashTable<char*, VelLock*>(11, false, true)) {
    VEL_TRACE("LockAgentMgr::LockAgentMgr()");
}

LockAgentMgr::~LockAgentMgr() {
    VEL_TRACE("LockAgentMgr::~LockAgentMgr()");
    clear();
    delete table_;
    delete localLock_;
    delete globalLock_;
}

bool LockAgentMgr::initializeAfterJVMPI() {
    VEL_TRACE("LockAgentMgr::initializeAfterJVMPI()");
    if (jvmpi.load(std::memory_order_acquire) == nullptr) {
        VEL_DEBUG_MIN("initializeAfterJVMPI",
                      "initializeAfterJVMPI was called before JVMPI was initialized");
        return false;
    }
    VelLock::populateGlobalLock();
    if (localLock_ == nullptr) localLock_ = new VelLock;
    if (globalLock_ == nullptr) globalLock_ = new VelLock;
    return true;
}

void LockAgentMgr::start() {
    VEL_TRACE("LockAgentMgr::start()");
    if (localLock_ == nullptr) initializeAfterJVMPI();
    _logInfo(__FILE_NAME__, __LINE__, "LockAgentMgr started");
}

void LockAgentMgr::stop() {
    VEL_TRACE("LockAgentMgr::stop()");
    {
        const VelLockGuard hold(localLock_);
        clear();
    }
    _logInfo(__FILE_NAME__, __LINE__, "LockAgentMgr stopped");
}

void LockAgentMgr::clear() {
    VEL_TRACE("LockAgentMgr::clear()");
    const std::unique_ptr<char*[]> names(table_->getKeys());
    const std::unique_ptr<VelLock*[]> locks(table_->getVals());
    table_->clear();
    for (char** name = names.get(); *name != nullptr; ++name) delete[] * name;
    for (VelLock** lock = locks.get(); *lock != nullptr; ++lock) delete *lock;
}

VelLock* LockAgentMgr::createManagedLock(const char* id) {
    VEL_TRACE("LockAgentMgr::createManagedLock(char*)");
    if (id == nullptr) return nullptr;
    std::unique_ptr<char[]> name(Utils::cstrdup(id));
    const VelLockGuard hold(localLock_);
    if (VelLock* const known = table_->get(name.get()); known != nullptr) return known;
    auto lock = std::make_unique<VelLock>();
    table_->put(name.get(), lock.get());
    name.release();  // both are the table's now
    return lock.release();
}

// Under localLock_ although a bare look-up would do beside an insertion: removal frees the nodes
// that a look-up walks over.
VelLock* LockAgentMgr::findManagedLock(const char* id) {
    const VelLockGuard hold(localLock_);
    return table_->get(const_cast<char*>(id));  // compared, neither kept nor written
}

bool LockAgentMgr::enterManagedLock(const char* id) {
    VEL_TRACE("LockAgentMgr::enterManagedLock(char*)");
    if (id == nullptr) return false;
    VelLock* lock = findManagedLock(id);
    if (lock == nullptr) lock = createManagedLock(id);
    return lock->enterLock();
}

bool LockAgentMgr::exitManagedLock(const char* id) {
    VEL_TRACE("LockAgentMgr::exitManagedLock(char*)");
    if (id == nullptr) return false;
    VelLock* const lock = findManagedLock(id);
    return lock != nullptr && lock->exitLock();
}

bool LockAgentMgr::destroyManagedLock(const char* id) {
    VEL_TRACE("LockAgentMgr::destroyManagedLock(char*)");
    if (id == nullptr) return false;
    std::unique_ptr<char[]> name;
    std::unique_ptr<VelLock> lock;  // destroyed after localLock_ has been left
    const VelLockGuard hold(localLock_);
    // The table does not tell which of its keys it removes; id itself may be that key.
    const std::unique_ptr<char*[]> names(table_->getKeys());
    lock.reset(table_->get(const_cast<char*>(id)));
    if (lock == nullptr) return false;
    for (char** key = names.get(); *key != nullptr; ++key)
        if (std::strcmp(*key, id) == 0) name.reset(*key);
    return table_->remove(name.get());
}

void LockAgentMgr::acquireGlobalLock() {
    VEL_TRACE("LockAgentMgr::acquireGlobalLock()");
    if (globalLock_ != nullptr) globalLock_->enterLock();
}

void LockAgentMgr::releaseGlobalLock() {
    VEL_TRACE("LockAgentMgr::releaseGlobalLock()");
    if (globalLock_ != nullptr) globalLock_->exitLock();
}

namespace {

enum LockStep : jbyte {
    kBeginAcquisition = 1,
    kEndAcquisition,
    kBeginContention,
    kEndContention,
    kBeginRelease,
    kEndRelease,
};

}  // namespace

jboolean Java_com_velora_probe_lock_LockAnalysisRuntime_appendEvent(
    JNIEnv* env, jclass, jbyte kind, jstring lockName, jint methodId, jbyte ownerRequestType,
    jstring ownerRequestName, jstring ownerApplicationName, jint ownerMethodId, jint ownerDepth) {
    VEL_TRACE(
        "Java_com_velora_probe_lock_LockAnalysisRuntime_appendEvent(JNIEnv*, jclass, jbyte, "
        "jstring, "
        "jint, jbyte, jstring, jstring, jint, jint)");
    return capture::atCaptureEdge(
        "appendEvent", static_cast<jboolean>(JNI_FALSE), [&]() -> jboolean {
            if (MemoryMonitor::reachedULimit(env)) return JNI_FALSE;
            switch (kind) {
                case kBeginAcquisition:
                    return EventUtils::beginLockAcquisition(env, methodId, lockName);
                case kEndAcquisition:
                    return EventUtils::endLockAcquisition(env, methodId, lockName);
                case kBeginContention:
                    return EventUtils::beginLockContention(
                        env, methodId, lockName, ownerRequestType, ownerRequestName,
                        ownerApplicationName, ownerMethodId, ownerDepth);
                case kEndContention:
                    return EventUtils::endLockContention(env, methodId, lockName, ownerRequestType,
                                                         ownerRequestName, ownerApplicationName,
                                                         ownerMethodId, ownerDepth);
                case kBeginRelease:
                    return EventUtils::beginLockRelease(env, methodId, lockName);
                case kEndRelease:
                    return EventUtils::endLockRelease(env, methodId, lockName);
                default:
                    return JNI_FALSE;
            }
        });
}
