// One TCP connection to the Publish Server and the queue of packets that wait for it.
//
// The loop runs on a Java thread of its own: it asks the Java side where the server is, connects,
// writes one queued packet per period, and connects again when a write fails. The bytes of a packet
// go out as they came, with no framing; nothing is read.
//
// Every successful connect has a number (connection(), from 1). An event agent opens every
// connection with the initial records, so a server always sees them first. A packet built for a
// connection that broke is not sent on a later one. A reset of our own breaks nothing: what waits
// goes out on the new connection, behind its initial records; the next reset is put off until it
// has, and until the server has acknowledged what was written.
//
// Ownership: owns queued packets until they are written or discarded, discarded ones are counted
// (LossBook). Threads: sendData() and the queries run on event agent threads, stopThread() on any;
// all else on the loop's own thread.
#pragma once

#include <jni.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>

#include "foundation/OncePerMinute.h"
#include "foundation/VelList.h"
#include "foundation/VelLock.h"
#include "foundation/VeloraBase.h"
#include "transport/NetworkAgentData.h"

enum class Loss;

class NetworkAgent : public virtual VeloraBase {
public:
    NetworkAgent();
    ~NetworkAgent() override;
    NetworkAgent(const NetworkAgent&) = delete;
    NetworkAgent& operator=(const NetworkAgent&) = delete;

    // Queues a copy of size bytes: 1 when queued, 0 when rejected. A packet of no bytes is accepted
    // and takes no place. The caller keeps its buffer, and counts what was rejected.
    int sendData(const char* data, int size);
    int sendData(const char* data, int size, PacketInfo info);

    // The loop; returns when stopped. A second call while one runs returns at once.
    void runTCPagent(JNIEnv* env);
    // Asks the loop to end and waits until it has.
    void stopThread();

    bool isReady() const { return isReady_.load(std::memory_order_acquire); }
    // The connection is being replaced by ourselves; packets are taken as if it were ready.
    bool isRenewing() const { return renewing_.load(std::memory_order_acquire); }
    // Packets of the connection before wait still, because we reset it.
    bool carriesOver() const { return carriedOver_.load(std::memory_order_relaxed) > 0; }
    bool isAlive() const { return alive_.load(std::memory_order_acquire); }
    std::int64_t getTotalDataSize() const { return totalDataSize_.load(std::memory_order_relaxed); }

    unsigned long connection() const { return connection_.load(std::memory_order_acquire); }
    // The initial records of the present connection have not been queued yet.
    bool needsInit() const;
    bool hasRoom() const { return dataQueue_.size() < bufferLimit_; }
    bool isIdle() const;  // nothing queued, nothing being written
    void wake();          // cuts the loop's period short
    // The loop ends soon; nobody waits for it.
    void askToEnd() {
        start_ = false;
        wake();
    }

    // Marks the loop as running, so that a stop from now on ends it; false when one runs already.
    bool beginRun();
    void runBegun(JNIEnv* env);  // the loop, after beginRun() answered true

private:
    void readProperties();
    void onePass(JNIEnv* env);
    void connectUntilReady(JNIEnv* env);
    bool tryToConnect(JNIEnv* env, int* lookupFailures);
    void sendOne();
    void sendPacket(NetworkAgentData& packet);
    bool peerHasGone() const;
    bool hasStalled();
    void giveUpConnection();
    bool mayReset();
    bool maySend(const PacketInfo& info) const;
    bool waitsForInit();
    int stallLimitMs() const;
    void tellConnectFailure(const char* host, int port, int error);
    void pause();
    bool stopRequested() const;

    // Steps of the loop.
    void flushDataQueue();
    int getPSDetailsFromKernel(JNIEnv* env, int nCntLog);
    int connect2ps(const char* server_host_addr, int server_tcp_port, int buffsize);
    bool disconnect2ps();
    long sendToRemoteHost(const char* ptr, long nbytes);
    void resetConnectionOnExpiry();

    void bindToOwnAddress();
    void setSocketOptions(int buffsize);
    void noteWritten(NetworkAgentData& packet, Loss ifLost);
    std::uint64_t forgetAcknowledged();
    bool allAcknowledged();
    void countUnacknowledged();
    void addToTotal(std::int64_t bytes);
    void note(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void noteError(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    const char* hostForLog() const { return hostName_ ? hostName_.get() : ""; }

    VelList<NetworkAgentData*> dataQueue_;
    VelLock queueFullLock_;             // only the loop's timed wait; notified by wake()
    int socketFd_ = -1;                 // keeps its number after a close
    std::unique_ptr<char[]> hostName_;  // IPv4 or IPv6 address, or null
    int portNumber_ = -1;
    int buffSize_ = -1;                    // bytes of socket send buffer
    int socketTimeOut_ = -1;               // s without progress; 0: no limit, -1: the usual one
    std::int64_t publishFrequency_ = 500;  // ms
    std::atomic<bool> isReady_{false};     // connected and usable
    std::atomic<bool> start_{false};       // the loop should keep running
    std::atomic<bool> alive_{false};       // the loop is running; cleared as its very last act
    VelLock lock_;                         // guards changes of totalDataSize_
    std::atomic<std::int64_t> totalDataSize_{0};  // bytes queued, not yet taken for sending
    std::int64_t resetConnCounter_ = 0;           // passes since the last periodic reset
    std::int64_t resetConnLimit_ = -1;            // passes between resets; below 1: none
    std::unique_ptr<char[]> bindIPAddress_;       // local address, or null
    int clientIPPort_ = 0;                        // local port
    int bufferLimit_ = 10;                        // packets

    OncePerMinute failurePace_;
    std::set<std::string> toldFailures_;  // servers and reasons told of in the present minute
    long failedConnects_ = 0;             // since the last connection

    bool socketOpen_ = false;  // socketFd_ is ours; a closed number may belong to the host by now
    std::atomic<unsigned long> connection_{0};
    std::atomic<unsigned long> initConnection_{0};  // the connection whose init packet was queued
    bool initWritten_ = false;                      // on this connection
    std::atomic<bool> writing_{false};
    std::atomic<bool> renewing_{false};
    std::atomic<unsigned long> keptSince_{0};  // no connection has broken since this one
    std::atomic<long> carriedOver_{0};  // packets that waited at our last reset and wait still

    // Packets written on this connection that the peer's side has not yet acknowledged.
    struct Written {
        std::uint64_t start = 0;  // bytes written on this connection before the packet
        std::uint64_t end = 0;    // and with it, whether or not all of it was
        RecordEnds ends;
        Loss ifLost{};
    };
    std::deque<Written> unacknowledged_;
    std::uint64_t writtenBytes_ = 0;
    std::uint64_t packetStart_ = 0;        // writtenBytes_ before the present packet
    std::uint64_t acknowledgedBytes_ = 0;  // when we last looked
    std::int64_t unmovedMs_ = 0;           // for so long, with more written than that
    long writtenPackets_ = 0;              // on this connection
    long writtenEvents_ = 0;
};
