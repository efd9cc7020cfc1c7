// Keeps the collector's own memory inside a limit: estimates what queued events, thread records and
// unsent packets hold, closes the capture gate at the limit and opens it again a set distance
// below. Also holds the length limits of captured texts, and learns the average text lengths that
// requests and SQL events are charged with.
//
// The cost of one queued event of each kind (bytes, 16 bits) comes with EventCosts: the names are
// members of this class as well, as in MemoryMonitor::SQL.
//
// Threads: reachedULimit() and the counters run on every application thread and take no lock while
// capture is on; checkForULimit() belongs to the leading event agent's thread.
#pragma once

#include <jni.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "event/EventCosts.h"
#include "foundation/OncePerMinute.h"
#include "foundation/VelLock.h"
#include "foundation/VeloraBase.h"

class EvtAgentMgr;
class ThreadData;
enum EventType : std::int16_t;

class MemoryMonitor : public virtual VeloraBase, public EventCosts {
public:
    static MemoryMonitor* getInstance();  // made on first call
    static void destroy();
    MemoryMonitor();
    ~MemoryMonitor() override;

    void start();
    void stop();

    // The capture gate, asked first by every native that makes events: true means "make none". A
    // disabled probe answers true and does nothing else. While the limit is reached the thread's
    // first call queues one DroppedEvent marker, and every call is counted on its record.
    [[nodiscard]] static bool reachedULimit(JNIEnv* env);

    // Weighs the estimate against the limit; queuedBytes: what the event agents' threads are
    // charged with. Beside the estimate, which takes texts as average ones, what they really hold
    // is weighed: heldBeyond bytes more.
    void checkForULimit(unsigned long queuedBytes, EvtAgentMgr* caller = nullptr,
                        unsigned long heldBeyond = 0);

    // Bytes that a request (its texts and itself) and an SQL event are charged with.
    static std::int16_t getRequestSize();
    static std::int16_t getSQLSize();
    // Feed the averages with one text's length; nothing once 254 samples have been seen.
    static void httpEJBRequest(int length);
    static void sqlRequest(int length);
    static bool avgURLCalculated();  // the averages are final
    static bool avgSQLCalculated();

    // Longest copied texts: bytes including the terminator.
    static int getURLLimit() { return urlLimit_.load(std::memory_order_relaxed); }
    static int getSQLLimit() { return sqlLimit_.load(std::memory_order_relaxed); }

    // The books of one thread: charged by the thread that queues, credited by the agent that
    // drains, to the counter that was charged (CLASS and METHOD: jvmpi; all others: jni).
    static void jniAddCntr(ThreadData* thread, std::int16_t size);
    static void jniDeleteCntr(ThreadData* thread, std::int16_t size);
    static void jvmpiAddCntr(ThreadData* thread, std::int16_t size);
    static void jvmpiDeleteCntr(ThreadData* thread, std::int16_t size);
    static void addToMemCntr(EventType type, std::int16_t size, ThreadData* thread);
    static void delFromMemCntr(EventType type, std::int16_t size, ThreadData* thread);

    void doLock(JNIEnv* env);       // waits out a counter reset; nothing without an environment
    static void resetCounters() {}  // no periodic reset: the books balance exactly without one

    unsigned long getMemoryTaken() const { return memoryTaken_.load(std::memory_order_relaxed); }
    static bool isULimitReached() { return uLimitReached_.load(std::memory_order_relaxed); }
    static unsigned long getMemoryULimit() { return userMemoryULimit_; }
    static unsigned long getAcceptDelta() { return memAcceptDelta_; }
    static long getResetTimerCount() { return resetTimerCount_; }

    // Calls that found the gate closed (GateBooks) are told to the operator at first, then once a
    // minute; all of them, whenever everything is set.
    static void writeGatedCalls(bool everything);

private:
    friend class MemoryMonitorAccess;  // tests, which leave the process as they found it
    static void initializeSizes();
    void readProperties();
    static void setResetTimer();
    static void passClosedGate(JNIEnv* env);
    static void reopenFor(JNIEnv* env);

    std::unique_ptr<VelLock> lock_;              // held by a counter reset while it runs
    std::atomic<unsigned long> memoryTaken_{0};  // the last estimate, bytes

    // Read on application threads without a lock: a call that sees a change a moment late behaves
    // as if it had come a moment earlier.
    static std::atomic<bool> uLimitReached_;     // capture stopped
    static std::atomic<bool> resetingCounters_;  // natives wait on lock_
    static std::atomic<int> avgURLLimit_;        // bytes charged for a request's texts
    static std::atomic<int> urlLimitCntr_;       // samples; kAverageFinal once learned
    static std::atomic<long> urlBuffSize_;       // their total length, bytes
    static std::atomic<int> avgSQLLimit_;
    static std::atomic<int> sqlLimitCntr_;
    static std::atomic<long> sqlBuffSize_;
    static std::atomic<int> urlLimit_;
    static std::atomic<int> sqlLimit_;

    // Written while starting; read by the leading agent and by status queries.
    static std::atomic<unsigned long> bookKeepingDSSize_;  // fixed overhead, smallest limit; bytes
    static std::atomic<unsigned long> userMemoryULimit_;   // the limit, bytes
    static std::atomic<unsigned long> memAcceptDelta_;     // resumes this far below, bytes
    static long resetTimerCount_;                          // passes between counter resets
    static long checkULimitCount_;                         // passes counted towards the next reset

    static OncePerMinute gatedPace_;  // the leading event agent's
    static MemoryMonitor* instance_;
};
