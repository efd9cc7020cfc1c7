// The names of portal methods that have been given a one-byte id, so that portal events can carry
// the id alone. A PortalMethodConstantEvent tells the server each pair once and again after a
// reconnect.
//
// Ownership: owns the names for the life of the process; events only point to them.
// Threads: any.
#pragma once

#include <jni.h>

#include "foundation/VelHashTable.h"
#include "foundation/VelLock.h"

class PortalMethodMgr {
public:
    static PortalMethodMgr& getInstance();  // made on first call, never freed: events point into it
    PortalMethodMgr(const PortalMethodMgr&) = delete;
    PortalMethodMgr& operator=(const PortalMethodMgr&) = delete;

    // The id of a method name, handed out from 1 upwards; a new name is announced on the caller's
    // queue. 0 for a null or empty name and when all 127 ids are taken.
    signed char getMethodId(JNIEnv* env, const char* methodName);

    // The name behind an id, or null. Valid for ever.
    const char* getMethodName(signed char id);

    // Announces every known name again, in the order of the ids.
    void resendAll(JNIEnv* env);
    // The same, as the network agents ask for it after every connect.
    static void pushMethodsToPS(JNIEnv* env) { getInstance().resendAll(env); }

private:
    friend class PortalMethodAccess;  // tests, which leave the process as they found it
    PortalMethodMgr();

    static constexpr int kMaxIds = 127;

    // Keys are compared by address: the key of id i is &ids_[i].
    VelHashTable<signed char*, char*> names_;
    signed char ids_[kMaxIds + 1];
    int lastId_ = 0;  // guarded by lock_
    VelLock lock_;    // serialises handing out ids
};
