// Drains the event queues of a set of threads once per period, encodes the events into one packet
// and hands it to its network agent. While the server cannot be reached it keeps the queues
// bounded; after a reconnect it sends the initial records again.
//
// Ownership: owns events from the moment they are popped. A thread's record belongs to the thread
// manager; the agent that drains it is the one that has it deleted after the thread ended.
// Threads: the loop on its own Java thread; manageThreadData() and notifyPSReconnect() on any.
#pragma once

#include <jni.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "event/LossBook.h"
#include "event/LostCounts.h"
#include "foundation/OncePerMinute.h"
#include "foundation/VelList.h"
#include "foundation/VelLock.h"
#include "foundation/VeloraBase.h"
#include "transport/RecordEnds.h"

class Event;
class EvtAgentMgr;
class ThreadData;

class EventAgent : public virtual VeloraBase {
public:
    explicit EventAgent(int id);
    ~EventAgent() override;
    EventAgent(const EventAgent&) = delete;
    EventAgent& operator=(const EventAgent&) = delete;

    // The loop; returns when stopped. A second call while one runs returns at once.
    void startThread(JNIEnv* env);
    // Asks the loop to end and waits until it has.
    void stopThread();

    bool isAlive() const { return alive_.load(std::memory_order_acquire); }
    int getId() const { return id_; }
    // Bytes that this agent's threads hold in their queues.
    std::uint64_t getMemoryUsed() const { return memUsed_.load(std::memory_order_relaxed); }

    // What they really hold beyond that: long texts.
    std::uint64_t getHeldBeyond() const { return heldBeyond_.load(std::memory_order_relaxed); }

    // Takes a thread over: 1, or 0 when the agent is not running or the thread is null.
    int manageThreadData(ThreadData* thread);
    // The next sendable pass sends the initial records, then has the class events sent again.
    void notifyPSReconnect();

    // Marks the loop as running, so that a stop from now on ends it; false when one runs already.
    bool beginRun();
    void runBegun(JNIEnv* env);  // the loop, after beginRun() answered true

    void wake();  // cuts the loop's period short
    // The loop ends soon; nobody waits for it.
    void askToEnd() {
        start_ = false;
        wake();
    }

    // For the manager.
    void adopt(VelList<ThreadData*>* threads);  // moves them into this agent's list
    bool manages(const ThreadData* thread);
    bool isBusy() const { return busy_.load(); }  // holds events that are in no queue
    // Deletes and counts whatever is queued; on the loop's thread or while no loop runs.
    void discardQueued(Loss reason);
    // Events in the threads' queues, refused ones that no drop record has told yet included.
    static long queuedEvents(VelList<ThreadData*>* threads);
    static void collectGatedCalls(VelList<ThreadData*>* threads);

private:
    friend class EvtAgentMgr;
    friend class EventAgentAccess;  // the benchmark of one pass

    bool trySetUp(JNIEnv* env);
    void setUp(JNIEnv* env);
    void tearDown();
    void onePass(EvtAgentMgr* manager);
    void sendPass(EvtAgentMgr* manager);
    void sendPacket(EvtAgentMgr* manager);
    bool serverIsAway();
    void pause();
    void takeSnapshot();

    bool isFull(const char* cursor) const { return cursor - buffer_.get() > packetBytes() - 512; }
    long packetBytes() const { return eventPacketSize_ * 1024; }
    std::size_t largestRecord() const { return static_cast<std::size_t>(packetBytes()) - 7; }
    void drain(ThreadData* thread, char** buff);
    void takeEvent(ThreadData* thread, Event* event, bool fits, char** buff);
    int dropFromBatch(ThreadData* thread, bool addDropRec);
    void shedOverflow(ThreadData* thread, char** buff);
    void noteOverflow(ThreadData* thread, int dropped, int refused);
    void tellOverflow(bool everything);
    void tellRefused(ThreadData* thread, char** buff);
    void credit(ThreadData* thread, const Event* event);
    long discardEvents(ThreadData* thread);
    void removeEnded();
    void noteTooLarge(const Event* event);

    int prepare2send();
    int sendInitRecords();
    void resendInitialData();
    bool claimResendData();
    int dropRecordsFromQueue(ThreadData* thread, bool addDropRec, char** buff);
    void dropRecordsOnPSDown();
    void adjustDropQueueLimit();
    bool addEventToBuffer(Event* event, char** buff) noexcept;
    void noteRecord(long events, const char* cursor) noexcept;
    void computeMemoryTaken();
    void updateDropRecordCounters(Event* event);
    void resetDropRecordCounters();
    // Whether a record was written: none is when all counters are 0.
    bool addDropEvent(unsigned threadId, char** buff);

    std::unique_ptr<VelList<ThreadData*>> thrList_;
    int id_;
    std::atomic<bool> start_{false};
    std::atomic<bool> alive_{false};             // cleared as the loop's very last act
    std::unique_ptr<char[]> buffer_;             // eventPacketSize_ * 1024 bytes
    std::unique_ptr<VelList<Event*>> keepList_;  // scratch: events kept while dropping
    ThreadData* specialQueue_ = nullptr;   // events of no Java thread; valid while the loop runs
    JNIEnv* env_ = nullptr;                // of the loop's thread
    std::int64_t queueLimit_ = 5000;       // events
    std::int64_t publishFreq_ = 2000;      // ms
    std::int64_t queueLimitOnPSDown_;      // events per thread while the server is away
    std::int64_t eventPacketSize_ = 5000;  // KB
    int psDownCnt_ = 0;                    // passes with the server away since the loop started
    int psDownThreshold_ = 15;             // passes until the queues are cut
    LostCounts dropped_;                   // from one thread's queue, for its drop record
    std::mutex resendLock_;                // makes setting and claiming the two requests one step
    std::atomic<bool> resendInitRecord_{false};
    std::atomic<bool> resendInitData_{false};
    std::atomic<std::uint64_t> memUsed_{0};  // bytes
    std::atomic<std::uint64_t> heldBeyond_{0};

    VelLock waitLock_;  // only the loop's timed wait; notified by wake()
    std::atomic<bool> busy_{false};
    // The threads of the present pass: copied, so that the list's lock, which a thread's first
    // capture call takes, is not held while events are encoded. Only this agent has these records
    // deleted.
    std::vector<ThreadData*> pass_;
    std::vector<ThreadData*> ended_;  // to be removed at the end of the pass
    VelList<Event*> batch_{false};    // events on their way from a queue to the packet
    int packetRecords_ = 0;           // records in the present packet
    long packetEvents_ = 0;           // captured events it accounts for
    RecordEnds packetEnds_;           // where its records end
    std::size_t lastRecords_ = 0;     // how many the last packet had: about as many come again
    std::set<int> tooLargeKinds_;     // kinds that have been told about
    long overflowed_ = 0;             // events dropped or refused, not yet told
    OncePerMinute overflowPace_;      // of the sum
    OncePerMinute threadPace_;        // of the lines that name a thread
};
