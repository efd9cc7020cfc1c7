// Owns the pool of network agents: gives each sender one of them, forwards its packets, adds up
// what waits, tells the probe manager about the leading agent and passes lost connections on to one
// listener.
//
// A sender (client) is an event agent, known by its address; it keeps its network agent for good.
// Threads: any. poolLock_ keeps the pool from being deleted under a caller.
#pragma once

#include <jni.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>

#include "foundation/VelHashTable.h"
#include "foundation/VeloraBase.h"
#include "transport/NetworkAgentData.h"

class NetworkAgent;

// Told when a network agent loses or resets its connection, on that agent's thread.
class NetworkAgentMgrConnInitListener {
public:
    virtual ~NetworkAgentMgrConnInitListener() = default;
    virtual void notifySocketStatus() = 0;
};

class NetworkAgentMgr : public virtual VeloraBase {
public:
    static NetworkAgentMgr* getInstance();  // made on first call
    static void destroy();
    NetworkAgentMgr();
    ~NetworkAgentMgr() override;

    void start();  // builds the pool
    void stop();   // ends every loop, then deletes the pool; returns when all have ended

    int getNetworkAgentCount() const { return networkAgentCount_; }
    // Runs agent id's loop on the calling thread.
    void startNetworkAgent(JNIEnv* env, int id);
    void stopNetworkAgent(JNIEnv* env, int id);

    bool isReady(void* clientId);
    long getTotalDataSize();  // bytes queued in all agents
    int sendData(void* clientId, const char* buf, int length);
    int sendData(void* clientId, const char* buf, int length, PacketInfo info);

    // What a sender must know before it builds a packet; a plain "no" while stopped.
    struct Line {
        bool ready = false;
        bool renewing = false;         // not ready for a moment: we reset the connection ourselves
        bool needsInit = false;        // this connection still wants the initial records
        bool carriesOver = false;      // packets wait that we have kept over a reset of our own
        bool hasRoom = false;          // one more packet would be taken
        unsigned long connection = 0;  // number of the connection, from 1
        const void* agent = nullptr;   // whose it is, for comparing only
    };
    Line lineOf(void* clientId);

    bool isAnyReady();
    bool isIdle();    // nothing queued or being written anywhere
    void wakeAll();   // cuts the loops' periods short
    bool askToEnd();  // whether no loop runs any more

    void registerConnectionInitListener(NetworkAgentMgrConnInitListener* listener);
    void unregisterConnectionInitListener(NetworkAgentMgrConnInitListener* listener);
    void notifyConnectionListeners(NetworkAgent* agent);
    void notifyNetworkAgentStatus(NetworkAgent* agent, bool status);

    NetworkAgent* getNetworkAgent(void* clientId);

private:
    void createData();
    void deleteData();
    NetworkAgent* getNextNetworkAgent();
    NetworkAgent* agentAt(int id);

    std::shared_mutex poolLock_;  // guards the pool's existence; held shared while an agent is used
    std::unique_ptr<NetworkAgent*[]> networkAgents_;  // slots; the agents are owned
    VelHashTable<void*, NetworkAgent*> hashTable_;    // sender to agent; empty with a pool of one
    std::mutex assignLock_;  // makes look-up and first assignment of a sender one step
    int networkAgentCount_ = 1;
    std::shared_mutex listenerLock_;  // held shared while the listener runs
    NetworkAgentMgrConnInitListener* listener_ = nullptr;
    std::atomic<bool> start_{false};  // the pool exists and accepts data
    std::atomic<NetworkAgent*> leader_{nullptr};
};
