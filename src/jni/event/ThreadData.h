// One monitored thread: who it is, the state of its request in flight, its memory counters, and the
// queue in which its events wait for the event agent.
//
// Ownership: made and deleted by ThreadMgr; owns its queue, the events in it and its texts.
// Threads: the monitored thread itself ("owner") writes; event agents and administrative natives
// read, so what they see is atomic. Everything else is the owner's alone. Relaxed order is enough
// for counters and flags; alive_ is released and acquired, so who sees the thread ended sees its
// last writes. The special queue of an event agent manager's leader has several appending threads.
#pragma once

#include <jni.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "event/LostCounts.h"
#include "foundation/VelList.h"
#include "foundation/VeloraBase.h"
#include "jvmpi/jvmpi.h"

enum class Loss;

class ThreadData : public virtual VeloraBase {
public:
    // From a thread-start event: takes over env_id and copies of the names; null leaves them unset.
    explicit ThreadData(JVMPI_Event* event);
    // For a thread first seen in a native: the names stay null.
    explicit ThreadData(JNIEnv* env);
    // Deletes the events that still wait; those, and refused events that no drop record has told
    // of, go into the book of losses. Whoever has counted the queue's events himself empties it
    // first.
    ~ThreadData() override;

    void initialize();

    // Queues an event and takes ownership whatever the answer. False, with the event deleted: the
    // queue is full (counted for the next drop record), the thread has ended, or evt is null (both
    // logged).
    bool appendEvent(Event* evt);

    // Bytes of an event charged when it is queued and credited when it leaves the queue: in the
    // counters of its kind.
    void charge(EventType type, std::int16_t bytes) {
        addWrapping(isFromVm(type) ? jvmpiAddCounter_ : jniAddCounter_, bytes);
    }
    void credit(EventType type, std::int16_t bytes) {
        addWrapping(isFromVm(type) ? jvmpiDeleteCounter_ : jniDeleteCounter_, bytes);
    }

    // The highest thread CPU time (ns) seen so far, t included: readings of one thread never go
    // back.
    jlong saveAndTestCPUTime(jlong t) {
        // A load and a store instead of a compare-exchange: an owner has no competitor. Threads
        // that share the special queue may overtake one another, but their clocks differ anyway.
        const jlong last = lastCpuTime_.load(std::memory_order_relaxed);
        if (t <= last) return last;
        lastCpuTime_.store(t, std::memory_order_relaxed);
        return t;
    }

    // The thread's CPU time by a reading of the executing thread's clock, ns. A virtual thread's
    // own is what that clock moves while it is mounted.
    static constexpr jlong kCpuNotMeasured = -1;
    jlong cpuTime(jlong clock) {
        return cpuIsMeasured_ ? saveAndTestCPUTime(clock + cpuOffset_) : kCpuNotMeasured;
    }
    // Of a virtual thread's record, on the carrier and with the reading of its clock.
    void mounted(jlong clock) { cpuOffset_ = cpuUsed_ - clock; }
    void unmounted(jlong clock) { cpuUsed_ = cpuOffset_ + clock; }

    // The key of a virtual thread's record, in place of the environment that it has none of its
    // own of: no environment has an odd address. Good for comparing only.
    JNIEnv* virtualKey() const {
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        return reinterpret_cast<JNIEnv*>(reinterpret_cast<std::uintptr_t>(this) | 1);
    }
    static ThreadData* ofVirtualKey(JNIEnv* key) {  // null for an environment
        const auto address = reinterpret_cast<std::uintptr_t>(key);
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        return (address & 1) != 0 ? reinterpret_cast<ThreadData*>(address - 1) : nullptr;
    }
    bool isVirtual() const { return ofVirtualKey(threadId_) != nullptr; }

    // The thread ends (called on that thread): no event is accepted any more, the queue is still
    // drained.
    void resetOnThreadEnd();
    void deleteInFlightData();

    // Events refused because the queue was full, since the last call: moved into the six counts of
    // a drop record (added to what it carries). START events count as start, all other phases as
    // end; METHOD and SQL apart, everything else as requests.
    void takeRefusedCounts(LostCounts* into);
    bool hasRefusedCounts() const;

    // What the queued events hold beyond what the counters below say, bytes: added by whoever
    // queues, taken off by whoever takes the event out.
    void addHeld(const Event& event) {
        if (const std::uint32_t bytes = event.heldBeyondCharge(); bytes != 0)
            heldBeyond_.fetch_add(bytes, std::memory_order_relaxed);
    }
    void takeHeld(const Event& event) {
        if (const std::uint32_t bytes = event.heldBeyondCharge(); bytes != 0)
            heldBeyond_.fetch_sub(bytes, std::memory_order_relaxed);
    }
    std::uint64_t getHeldBeyond() const { return heldBeyond_.load(std::memory_order_relaxed); }

    // A capture call made no event because the memory limit had been reached.
    void countGatedCall() { gatedCalls_.fetch_add(1, std::memory_order_relaxed); }
    std::uint32_t takeGatedCalls() { return gatedCalls_.exchange(0, std::memory_order_relaxed); }

    VelList<Event*>* getEvtQueue() const { return evtQueue_; }
    long getEvtQueueSize();
    char* getThreadName() const { return threadName_.load(std::memory_order_acquire); }
    char* getGroupName() const { return groupName_.load(std::memory_order_acquire); }
    // Takes ownership of an array; what it replaces lives on until the record dies, a reader may
    // hold it.
    void setThreadName(char* name);
    void setGroupName(char* name);
    JNIEnv* getThreadId() const { return threadId_; }
    std::uint32_t getThreadIntId() const { return threadIntId_.load(std::memory_order_relaxed); }
    int getPID() const { return pid_.load(std::memory_order_relaxed); }
    int getPPID() const { return ppid_.load(std::memory_order_relaxed); }
    char* getSQL() const { return sql_; }
    // Take ownership of an event text (EventText.h) and free the former one.
    void setSQL(char* sql);
    char* getDSName() const { return dataSourceName_; }
    void setDSName(char* name);
    bool isSuspended() const { return suspended_.load(std::memory_order_relaxed); }
    void setSuspended(bool on) { suspended_.store(on, std::memory_order_relaxed); }
    int getServletDepth() const { return servletDepth_; }
    void setServletDepth(int depth) { servletDepth_ = depth; }
    bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }
    void setCancelled(bool on) { cancelled_.store(on, std::memory_order_relaxed); }
    char* getPortalPageName() const { return portalPageName_; }
    void setPortalPageName(char* name);  // takes ownership, frees the previous one
    bool isAlive() const { return alive_.load(std::memory_order_acquire); }

    std::atomic<int> pid_{0};  // process of the thread where each thread is a process; 0 until set
    std::atomic<int> ppid_{0};
    std::atomic<jlong> lastCpuTime_{0};  // ns
    char* sql_ = nullptr;                // owned: statement in flight
    char* dataSourceName_ = nullptr;     // owned: its data source
    std::atomic<bool> suspended_{false};
    std::atomic<bool> cancelled_{false};
    int dataSrcSQLDepth_ = 0;
    int servletDepth_ = 0;
    int nestedRequestDepth_ = 0;                 // requests swallowed by nested-request suppression
    jbyte* gpsToken_ = nullptr;                  // owned: correlation token in flight
    std::atomic<int> droppedEventCounter_{0};    // refused since the event agent last told the log
    std::atomic<bool> sentDroppedEvent_{false};  // a marker waits since the queue became full
    char* portalPageName_ = nullptr;             // owned
    std::atomic<char*> threadName_{nullptr};     // owned
    std::atomic<char*> groupName_{nullptr};      // owned
    // Bytes of events queued and taken off again; they wrap, only differences mean anything.
    std::atomic<std::uint32_t> jniAddCounter_{0};
    std::atomic<std::uint32_t> jniDeleteCounter_{0};
    std::atomic<std::uint32_t> jvmpiAddCounter_{0};
    std::atomic<std::uint32_t> jvmpiDeleteCounter_{0};
    VelList<Event*>* evtQueue_ = nullptr;       // owned
    std::atomic<bool> dropRecordsFlag_{false};  // this thread has been told that capture stopped
    std::atomic<bool> alive_{true};
    JNIEnv* threadId_ = nullptr;                 // key in ThreadMgr's table
    std::atomic<std::uint32_t> threadIntId_{0};  // id in records; 0 until ThreadMgr gives one

private:
    friend class RecordPins;
    friend class ThreadDataProbe;  // tests that need another queue limit
    friend class ThreadMgr;
    // The first half of the destruction, for a record that another thread may still be looking at:
    // nothing is accepted any more and what waits is deleted, but no memory goes that a reader
    // could touch.
    void retire(Loss reason);
    void bookLosses(Loss reason);
    bool reject(Event* evt);
    bool refuse(Event* evt);
    bool queueEvent(Event* evt);
    void keepFormer(char* name);

    static bool isFromVm(EventType type) { return type == ::CLASS || type == ::METHOD; }
    static void addWrapping(std::atomic<std::uint32_t>& counter, std::int16_t bytes) {
        counter.fetch_add(static_cast<std::uint32_t>(bytes), std::memory_order_relaxed);
    }

    // How many droppable events a queue takes: 0 until it has been read from the settings.
    static long queueLimit() {
        const long limit = queueLimit_.load(std::memory_order_relaxed);
        return limit != 0 ? limit : readQueueLimit();
    }
    static long readQueueLimit();
    static std::atomic<long> queueLimit_;

    std::atomic<std::int32_t> refused_[LostCounts::kLostClasses] = {};
    std::atomic<std::uint64_t> heldBeyond_{0};
    std::atomic<std::uint32_t> gatedCalls_{0};
    // Makes it ready for another virtual thread. What is queued stays and is sent.
    void forgetWork();

    // Of a virtual thread's record. The two times are used by whoever it is mounted on.
    jlong cpuOffset_ = 0;              // ns: the thread's CPU time less the carrier's clock
    jlong cpuUsed_ = 0;                // ns, at its last unmount
    bool cpuIsMeasured_ = true;        // set while no thread has it
    std::atomic<bool> held_{false};    // a living virtual thread has it: the memory must stay
    std::atomic<bool> listed_{false};  // known to the manager
    ThreadData* nextSpare_ = nullptr;  // chain of the manager, under its threadDataLock_

    std::vector<std::unique_ptr<char[]>> formerNames_;  // replaced names, kept for late readers
    ThreadData* nextWaiting_ = nullptr;                 // chain of RecordPins, under its lock
};
