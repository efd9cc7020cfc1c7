// A real server on 127.0.0.1 for tests: keeps what each connection sent, and misbehaves on request.
//
// Listens on a port of its own from construction until it is destroyed; a thread of its own does
// the work. Threads: every function from any thread.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class LoopbackServer {
public:
    LoopbackServer();
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    int port() const { return port_; }

    enum class Manner {
        reading,
        hanging,  // accepts and never reads; asks for the smallest receive buffer
        closing   // closes every connection at once
    };
    void setManner(Manner manner);

    void refuse();  // connects are refused until accept() is called
    void accept();

    // Ends every connection as an orderly server does: tells the peer, reads on until the peer has
    // closed, and loses nothing. Returns before that; waitUntilEnded() waits for it.
    void endConnections();
    bool waitUntilEnded() const;
    bool allEnded() const;
    // Resets every connection; what was not read is gone.
    void resetConnections();

    std::size_t connections() const;  // so far
    std::vector<std::uint8_t> bytes(std::size_t connection) const;
    std::size_t receivedBytes() const;  // of all connections

    // Waits until the condition holds, for at most ten seconds; asked again whenever something
    // arrives.
    bool waitUntil(const std::function<bool()>& condition) const;
    bool waitForConnections(std::size_t count) const;
    bool waitForBytes(std::size_t connection, std::size_t count) const;

private:
    struct Connection {
        int fd = -1;  // -1: ended
        std::vector<std::uint8_t> bytes;
    };

    void run();
    void open();
    bool allEndedLocked() const;
    void acceptOneLocked();
    void readLocked(Connection& connection);
    void closeLocked(Connection& connection);
    void wake() const;

    mutable std::mutex lock_;  // guards everything below
    mutable std::condition_variable changed_;
    std::vector<Connection> connections_;
    Manner manner_ = Manner::reading;
    int listener_ = -1;  // bound for life
    bool listening_ = true;
    int port_ = 0;
    int wakePipe_[2] = {-1, -1};
    bool stop_ = false;
    std::thread thread_;
};
