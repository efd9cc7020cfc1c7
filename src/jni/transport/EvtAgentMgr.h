// Owns the pool of event agents: hands each new thread to one of them in turn, leads the resending
// of initial records after a reconnect, checks memory and tells the probe manager when capture can
// be drained.
//
// The first agent leads. A thread whose agent has stopped is taken over by a living one.
// Threads: any; manageThreadData() runs on application threads, notifySocketStatus() on a network
// agent's.
#pragma once

#include <jni.h>

#include <atomic>
#include <memory>
#include <shared_mutex>

#include "event/ThreadAgents.h"
#include "foundation/VelList.h"
#include "foundation/VelLock.h"
#include "foundation/VeloraBase.h"
#include "transport/NetworkAgentMgr.h"

class EventAgent;
class ThreadData;

class EvtAgentMgr final : public virtual VeloraBase,
                          public NetworkAgentMgrConnInitListener,
                          public ThreadAgents {
public:
    static EvtAgentMgr* getInstance();  // made on first call
    static void destroy();
    EvtAgentMgr();
    ~EvtAgentMgr() override;

    void start();  // builds the pool
    void stop();   // ends every loop, then deletes the pool; returns when all have ended

    int getEvtAgentCount() const { return evtAgentCnt_; }
    // Runs agent id's loop on the calling thread.
    void startEvtAgent(JNIEnv* env, int id);
    void stopEvtAgent(int id);
    void stopAllEvtAgents();
    bool isReady() const override;  // the pool exists and the leader runs

    // Assigns a thread to an agent; 0 when nobody takes it.
    int manageThreadData(ThreadData* thread) override;
    void notifySocketStatus() override;

    void checkForMemory(EventAgent* agent);
    void notifyEventAgentStatus(EventAgent* agent, bool status);
    bool canSendData(EventAgent* agent);
    void resendDataDone(bool done);
    int getRoundRobinIndex();
    bool isLeader(const EventAgent* agent) const;
    // Whether this agent sends the initial records on a new connection of that network agent: the
    // leader does so on its own, and the others' connections are opened by who uses them.
    bool mayOpenConnection(EventAgent* agent, const void* networkAgent);

    // The last act before the process exits: sends what is queued without waiting for the periods.
    // Returns when everything has been written, at once when the server cannot be reached, after ms
    // milliseconds at the latest. What could not be sent is discarded and counted (LossBook), from
    // then on nothing is sent until the probe is started again. True when everything was sent.
    bool flush(int ms);

    // After the last flush: has every loop end, for ms milliseconds at most, so that a dying VM
    // finds no thread of ours in native code; it waits for such threads. What was queued since the
    // flush is counted and discarded. True when all have ended.
    bool endLoops(int ms);

    // For the agents: threads without a living agent, and the state of a flush.
    void takeOrphans(EventAgent* agent);
    void leaveOrphans(EventAgent* agent);
    bool isManaged(ThreadData* thread);  // some agent drains it, or it waits for one
    static bool isFlushing();            // passes follow each other without the period's wait
    // The flush is over: what is queued is counted and deleted, in the usual periods.
    static bool isDiscarding();

private:
    void initialize() {}
    int initializeAfterJVMPI() { return 1; }
    void createData();
    void deleteData();
    EventAgent* agentAt(int id);
    static bool contains(VelList<ThreadData*>* list, const ThreadData* thread);
    void forgetDeletedOrphans();
    bool everythingSent(NetworkAgentMgr* network);
    void collectGatedCalls();
    void wakeAll(NetworkAgentMgr* network);
    bool askToEnd();

    std::shared_mutex poolLock_;  // guards the pool's existence; held shared while an agent is used
    std::unique_ptr<EventAgent*[]> eventAgents_;  // slots; the agents are owned
    std::atomic<int> roundRobinIndex_{0};
    std::atomic<bool> ready_{false};  // the leader runs
    std::atomic<bool> start_{false};  // the pool exists and accepts threads
    std::unique_ptr<VelLock> lock_;   // guards roundRobinIndex_
    int evtAgentCnt_ = 1;
    std::atomic<bool> resendDataComplete_{true};  // the leader has finished resending
    std::atomic<EventAgent*> leader_{nullptr};

    VelList<ThreadData*> orphans_;  // threads whose agent has stopped
    VelLock handOverLock_;          // makes moves between agents' lists and orphans_ one step
};
