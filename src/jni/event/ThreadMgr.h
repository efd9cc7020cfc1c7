// Finds a monitored thread's ThreadData by its JNIEnv*, creating it on the thread's first call, and
// gives each thread a small integer id.
//
// A virtual thread has no JNIEnv* of its own; VirtualThreads.h knows where its record is. Such
// records stand in no table, but have ids and are drained like all others. When its thread ends a
// record becomes a spare, for the next virtual thread to take, id and queue and all: threads that
// come and go by the thousand a second then cost no registration each. Spares that nobody took for
// a whole period go.
//
// Ownership: owns every ThreadData until the event agent that drained it calls deleteThreadData(),
// or stop() takes them all. Threads: any VM thread once start() has returned. A record that a
// look-up has returned stays valid for the asking thread until that thread looks up others or ends,
// even if it is deleted meanwhile (RecordPins.h): a deleted record accepts nothing, its memory goes
// when nobody can be looking at it. Lock order: threadDataLock_, then a bucket lock inside
// thrTable_. lock_ guards only the ring of stopped ids and is never held together with another
// lock.
#pragma once

#include <jni.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "foundation/VelHashTable.h"
#include "foundation/VelLock.h"
#include "foundation/VeloraBase.h"
#include "jvmpi/jvmpi.h"

class ThreadAgents;
class ThreadData;
enum class Loss;

using JNIEnvMap = std::map<std::uint32_t, JNIEnv*>;

enum _LinuxThreadModel {
    EachThreadIsAProcess = 0,
    AllThreadsInOneProcess = 1,
    ThreadModelUnknown = 2,
};

// The process ids of one record, detached from it.
class ThreadDataCopy {
public:
    ThreadDataCopy(int pid, int ppid) : pid_(pid), ppid_(ppid) {}
    int getPID() const { return pid_; }
    int getPPID() const { return ppid_; }

private:
    int pid_;
    int ppid_;
};

class ThreadMgr : public virtual VeloraBase {
public:
    ThreadMgr();
    ~ThreadMgr() override;
    static ThreadMgr* getInstance();  // made on first call
    static void destroy();

    // Who takes new threads from now on; null: nobody, and no record is made.
    static void useAgents(ThreadAgents* agents) {
        agents_.store(agents, std::memory_order_release);
    }

    void initialize() {}
    bool initializeAfterJVMPI();
    void start();
    void stop();
    bool isReady() const { return start_.load(std::memory_order_acquire); }

    // The calling thread's record, created on its first call. Null: not started, env is null, or no
    // event agent can take the thread.
    ThreadData* getThreadData(JNIEnv* env);
    ThreadData* getThreadData(JVMPI_Event* evt);
    ThreadData* getThreadLocalStorage(JNIEnv* env) { return getThreadData(env); }
    ThreadData* getThreadDataIfPresent(JNIEnv* env);  // never creates
    // The first record whose group and thread name both equal the given ones.
    ThreadData* getThreadData(char* grpname, char* thrname);
    ThreadData* createThreadData(JNIEnv* env);
    // The record of the event agents' own queue; needs neither start() nor a ready event agent
    // manager.
    ThreadData* createSpecialEventQueue(JNIEnv* env);

    // Deletes a record that has been unregistered before. Every event still queued is counted and
    // logged.
    bool deleteThreadData(ThreadData* data);
    bool removeThreadData(JNIEnv* env);  // from table and map; the record lives on
    bool updateOnThreadEnd(JNIEnv* tid);
    // A virtual thread has ended, or has got another record; on the carrier. The manager that made
    // the record may be gone.
    static void virtualThreadEnded(ThreadData* record);
    // Ends the spares that were not needed since the last call. The event agents' leader, once a
    // pass.
    void endUnusedSpares();
    // Whether the pointer is a record that has not been deleted: for who keeps records across a
    // stop().
    bool owns(const ThreadData* data);

    int getThreadCount();
    bool threadExists(int id);
    JNIEnv* findJNIEnv(unsigned id);  // null when absent
    bool findThreadId(JNIEnv* env, unsigned* id);
    // The integer id when the thread is known, else the pointer's value. Intended: Java gets its
    // low half.
    std::uintptr_t CastThreadId(JNIEnv* env);
    bool removeThreadFromMap(unsigned id);
    bool removeThreadFromMap(JNIEnv* env);

    void setThreadStopped(unsigned id);
    int
    getAllStoppedThreadIDs();  // collects and empties the ring; the ids stand in stoppedTIDCopyArr_
    std::vector<std::uint32_t> takeStoppedThreadIDs();  // both in one step
    // One copy per record, null-terminated; null when there is none. The caller frees copies and
    // array.
    ThreadDataCopy** getAllThreadDataCopies();
    int setLinuxThreadingModel(int processId);
    _LinuxThreadModel getLinuxThreadingModel() const;

    // 301 slots: the index reaches 300 once before it wraps.
    static constexpr int kStoppedSlots = 301;
    static std::uint32_t stoppedTIDArr_[kStoppedSlots];
    static std::uint32_t stoppedTIDCopyArr_[kStoppedSlots];
    static int stopIndex_;   // last written slot; -1: empty
    static int stopTIDCnt_;  // ids in the copy

    // Where new thread ids start: the process's CPU time in clock ticks, low 32 bits. Tests replace
    // it.
    static std::uint32_t (*getTimeStamp)();

private:
    void discardAll();
    void discard(ThreadData* record, Loss reason);
    ThreadData* findOwn(JNIEnv* env);
    ThreadData* virtualThreadData(JNIEnv* env);
    ThreadData* newVirtualRecord(JNIEnv* env);
    ThreadData* takeSpare();
    void addSpare(ThreadData* record);
    ThreadData* findVirtual(JNIEnv* key);
    ThreadData* registerNew(JNIEnv* env, bool onlyWhenStarted);
    bool canBeGuarded(JNIEnv* env, const ThreadData& record);
    bool enlist(JNIEnv* env, ThreadData* record, bool onlyWhenStarted);
    ThreadData* makeRecord(JNIEnv* env);
    bool enlistVirtual(ThreadData* record);
    void giveUpVirtual(ThreadData* record);
    void withdraw(JNIEnv* env, ThreadData* record);
    unsigned assignIdLocked(ThreadData* record);  // caller holds threadDataLock_

    static std::atomic<ThreadAgents*> agents_;

    VelHashTable<JNIEnv*, ThreadData*>* thrTable_;  // owned
    JNIEnvMap* thrMap_;            // owned: id to environment, under threadDataLock_
    std::set<ThreadData*> owned_;  // all records not yet deleted, under threadDataLock_
    // Records of virtual threads that nobody has, under threadDataLock_: the one given back first
    // is taken first, so that its queue has had the longest time to be drained.
    ThreadData* firstSpare_ = nullptr;
    ThreadData* lastSpare_ = nullptr;
    int spares_ = 0;
    int fewestSpares_ = 0;  // since endUnusedSpares()
    std::atomic<int> virtualRecords_{0};
    std::atomic<bool> start_{false};
    VelLock* lock_;  // guards the stopped-thread ring
    VelLock*
        threadDataLock_;  // guards registration, removal and deletion of records, and the id map
    std::atomic<int> linuxThreadModel{ThreadModelUnknown};
    std::atomic<int> firstPid{-1};
};
