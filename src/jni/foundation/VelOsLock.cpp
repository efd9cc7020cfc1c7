// See VelOsLock.h.
#include "foundation/VelOsLock.h"

#include <new>

#include "foundation/Log.h"
#include "foundation/Platform.h"
#include "foundation/Sanitizers.h"

#if VEL_ASAN
#include <sanitizer/lsan_interface.h>
#endif

VelOsLock::VelOsLock() : lock_(new (std::nothrow) pthread_mutex_t) {
    VEL_TRACE("VelOsLock()");
    if (lock_ == nullptr) return;
    if (pthread_mutex_init(lock_, nullptr) != 0) {
        delete lock_;
        lock_ = nullptr;
    }
}

VelOsLock::~VelOsLock() {
    VEL_TRACE("~VelOsLock()");
    if (lock_ == nullptr) return;
    pthread_mutex_destroy(lock_);
    // The memory is kept on purpose: a thread that comes late finds a dead mutex and no freed
    // block.
#if VEL_ASAN
    __lsan_ignore_object(lock_);
#endif
}

bool VelOsLock::enterLock() {
    VEL_TRACE("enterLock()");
    return lock_ != nullptr && pthread_mutex_lock(lock_) == 0;
}

bool VelOsLock::exitLock() {
    VEL_TRACE("exitLock()");
    return lock_ != nullptr && pthread_mutex_unlock(lock_) == 0;
}

bool VelOsLock::wait(int ms) {
    VEL_TRACE("wait(int)");
    thread_sleep(ms);
    return true;
}

bool VelOsLock::notifyAll() {
    VEL_TRACE("notifyAll()");
    return false;
}
