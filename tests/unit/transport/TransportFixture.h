// The whole transport on a fake VM with a real server: agents run on threads of their own and stop
// before every wait, so that a test decides when each of them makes its next pass.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "event/Events.h"
#include "event/LossBook.h"
#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "support/LoopbackServer.h"
#include "support/VelFixture.h"
#include "transport/EvtAgentMgr.h"
#include "transport/MemoryMonitor.h"
#include "transport/NetworkAgentMgr.h"

// Holds worker threads at their waits. Threads that have not enlisted pass freely.
class PassGate {
public:
    void reserve(const std::string& name);  // a thread of that name will come
    void enlist(const std::string& name);   // the calling thread is it
    void leave(const std::string& name);    // it has ended
    void onWait();                          // called in every wait

    void waitParked(const std::string& name);
    void step(const std::string& name);     // lets it go on to its next wait, or its end
    void release(const std::string& name);  // it is not held any more
    void open();                            // nobody is held any more
    void close();                           // whoever waits from now on is held again

private:
    struct Seat {
        std::thread::id thread;
        bool parked = false;
        bool ended = false;
        int permits = 0;
        bool free = false;
    };
    std::mutex lock_;
    std::condition_variable changed_;
    std::map<std::string, Seat> seats_;
    bool open_ = false;
};

// What a server got, decoded.
struct Received {
    long inits = 0;    // init packets
    long packets = 0;  // with a header
    long events = 0;   // records other than inits, headers, drop and sampling records
    long dropped = 0;  // sum of the numbers in drop records
    long dropRecords = 0;
    long samplings = 0;
    bool initFirst = true;   // every connection that carried anything began with an init packet
    bool whole = true;       // no garbage; only the last record of a connection may be cut
    std::vector<int> kinds;  // types of the records in packets, in order
};

class TransportFixture : public VelFixture {
protected:
    TransportFixture();
    ~TransportFixture() override;
    void TearDown() override;

    static void set(const char* key, const std::string& value);
    void definePsLookup();  // answers with the server's address
    std::function<int()> lookupAnswer = [] { return 1; };
    std::string lookupHost = "127.0.0.1";
    // Replaces the above before start(): what the Java side is like in this test.
    std::function<void()> javaSide = [this] { definePsLookup(); };
    void start(int eventAgents = 1, int networkAgents = 1);  // managers only

    // Runs an agent's loop on a thread named "e0", "n2"...; returns when it waits for the first
    // time.
    void runEventAgent(int id);
    void runNetworkAgent(int id);
    void run(const std::string& name, const std::function<void(JNIEnv*)>& body);
    void runAll(int eventAgents = 1, int networkAgents = 1);
    void join(const std::string& name);
    void stopAll();  // opens the gate, stops the managers, joins

    ThreadData* newThread();  // a monitored thread's record
    // Queues SQL END events (25 bytes each on the wire); counts them as produced.
    void produce(ThreadData* thread, int count, EventSubType phase = END);

    Received received() const;
    long lostLines() const;  // sum of the numbers of all 1121 lines
    void expectBooksBalance();

    LoopbackServer server;
    PassGate gate;
    long produced = 0;
    std::map<std::string, std::thread> workers;
    std::map<std::string, JNIEnv*> workerEnvs;

private:
    const long lossesBefore_;
};
