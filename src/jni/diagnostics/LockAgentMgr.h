// The registry of managed locks: any part of the collector enters and leaves a lock known only by
// its name; the registry makes the lock on first use. Also the native that turns the instrumented
// application's lock steps into events.
//
// Ownership: owns the names and locks until destroyManagedLock(), stop() or its own end.
// Threads: any. localLock_ guards table_ and is held for memory work only, never while a managed
// lock is being entered. Whoever destroys a lock sees to it that nobody is inside.
#pragma once

#include <jni.h>

#include "foundation/VelHashTable.h"
#include "foundation/VelLock.h"
#include "foundation/VeloraBase.h"

class LockAgentMgr : public virtual VeloraBase {
public:
    static LockAgentMgr* getInstance();  // made on first call; not for concurrent first calls
    static void destroy();               // also destroys the monitor that serialises lock creation
    ~LockAgentMgr() override;
    LockAgentMgr(const LockAgentMgr&) = delete;
    LockAgentMgr& operator=(const LockAgentMgr&) = delete;

    bool initializeAfterJVMPI();  // false, with a debug line, while the VM interface is missing
    void start();
    void stop();
    void clear();  // forgets every name and destroys every lock

    // The lock of that name, made when new; null for a null id. Valid until it is destroyed.
    VelLock* createManagedLock(const char* id);
    bool enterManagedLock(const char* id);  // makes the lock when new
    bool exitManagedLock(const char* id);   // false when unknown
    bool destroyManagedLock(const char* id);

    void acquireGlobalLock();
    void releaseGlobalLock();

private:
    LockAgentMgr();
    VelLock* findManagedLock(const char* id);

    VelHashTable<char*, VelLock*>* table_;  // owned, with its keys and values
    VelLock* localLock_ = nullptr;          // guards table_; null until initializeAfterJVMPI()
    VelLock* globalLock_ = nullptr;  // the registry-wide lock; null until initializeAfterJVMPI()
    static LockAgentMgr* instance_;
};

extern "C" {

// "(BLjava/lang/String;IBLjava/lang/String;Ljava/lang/String;II)Z"
// kind: 1/2 begin/end of an acquisition, 3/4 of a contention, 5/6 of a release; any other does
// nothing. lockName: class of the lock object. methodId: the method performing the step. The rest
// describes the lock's holder and is used by contentions only: the kind of its request (an event
// kind: 4 servlet, 5 EJB, ... 0 none), that request's and its application's name, the method that
// took the lock, the depth of its request (accepted, not recorded). True when an event was queued.
JNIEXPORT jboolean JNICALL Java_com_velora_probe_lock_LockAnalysisRuntime_appendEvent(
    JNIEnv* env, jclass self, jbyte kind, jstring lockName, jint methodId, jbyte ownerRequestType,
    jstring ownerRequestName, jstring ownerApplicationName, jint ownerMethodId, jint ownerDepth);

}  // extern "C"
