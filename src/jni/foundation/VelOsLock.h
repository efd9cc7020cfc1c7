// A plain, non-recursive operating-system mutex, for places where no VM interface may be there yet.
#pragma once

#include <pthread.h>

class VelOsLock {
public:
    VelOsLock();
    ~VelOsLock();  // destroys the mutex; its memory stays, so a late user finds no freed block
    VelOsLock(const VelOsLock&) = delete;
    VelOsLock& operator=(const VelOsLock&) = delete;

    bool enterLock();
    bool exitLock();
    bool wait(int ms);  // a plain pause: releases nothing, cannot be cut short
    bool notifyAll();   // false: nobody can be woken

private:
    pthread_mutex_t* lock_;
};

class VelOsLockGuard {
public:
    explicit VelOsLockGuard(VelOsLock* lock) : lock_(lock) {
        if (lock_ != nullptr) lock_->enterLock();
    }
    ~VelOsLockGuard() {
        if (lock_ != nullptr) lock_->exitLock();
    }
    VelOsLockGuard(const VelOsLockGuard&) = delete;
    VelOsLockGuard& operator=(const VelOsLockGuard&) = delete;

private:
    VelOsLock* lock_;
};
