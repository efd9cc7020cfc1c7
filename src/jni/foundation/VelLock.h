// A monitor with a timed wait, made lazily from a VM raw monitor, so that it can live in objects
// that are built before the VM interface is there. While the interface is missing every operation
// reports false.
//
// Every entry passes the process-wide global monitor once to make creation race-free; an
// uncontended raw monitor of our adapter is one atomic operation. Re-entrant for the owning thread.
// Not copied.
#pragma once

#include <atomic>

#include "jvmpi/jvmpi.h"

class VelLock {
public:
    VelLock();
    explicit VelLock(bool createOnCreation);
    ~VelLock();
    VelLock(const VelLock&) = delete;
    VelLock& operator=(const VelLock&) = delete;

    bool makeLock();
    bool isMade() const { return lock_.load(std::memory_order_acquire) != nullptr; }
    bool enterLock();
    bool exitLock();
    // A self-contained pause of ms milliseconds that a notify cuts short; the caller does not hold
    // the lock around it. 0 or less returns after at least one turn through the monitor, never
    // waits for ever.
    bool wait(int ms);
    void notifyAll();

    // The monitor that serialises creation: made once the VM interface exists, destroyed at
    // shutdown.
    static bool populateGlobalLock();
    static bool destroyGlobalLock();

private:
    char name[50] = {};
    std::atomic<JVMPI_RawMonitor> lock_{nullptr};
    static std::atomic<JVMPI_RawMonitor> globalLock_;
};

// Holds a VelLock for a scope. A null lock and one that cannot be made (no VM interface yet) are
// passed without holding.
class VelLockGuard {
public:
    explicit VelLockGuard(VelLock& lock) : VelLockGuard(&lock) {}
    explicit VelLockGuard(VelLock* lock)
        : lock_(lock != nullptr && lock->enterLock() ? lock : nullptr) {}
    ~VelLockGuard() {
        if (lock_ != nullptr) lock_->exitLock();
    }
    VelLockGuard(const VelLockGuard&) = delete;
    VelLockGuard& operator=(const VelLockGuard&) = delete;

private:
    VelLock* lock_;  // null: not held
};
