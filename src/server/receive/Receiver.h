// Takes connections and hands their bytes on; knows nothing of what they mean.
//
// One buffer serves all connections: bytes are read only when a socket has some, and handed on at
// once. No peer may hold up the others:
//   - a turn is short, in time and in what is written for it. Whoever needed more waits in a line
//   of
//     which one has a turn at a time; all others go before. So does a connection that is new, and
//     for a while one that was expensive.
//   - connections have a limit, in all and for each peer address (of IPv6 its first 64 bits). When
//     it is reached, the oldest that has not said who it is gives up its place.
//   - one that has not said who it is in time is closed.
//   - those that have ended but wait for another to go on with their work have the same limits of
//     number, and a limit of time.
//   - all connections together, those that wait included, have a limit of memory. Beyond it the
//   address that holds the most
//     loses the connection that holds the most.
// Threads: everything happens on the thread that runs the io_context.
#pragma once

#include <asio.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "server/receive/ConnectionHandler.h"

namespace server {

struct ReceiveLimits {
    std::size_t connections = 1024;
    std::size_t connectionsPerPeer = 128;
    std::chrono::milliseconds silence{30000};  // until a connection has said who it is
    std::size_t memory = 512u << 20;           // bytes, of all connections together
    std::chrono::milliseconds handover{5000};  // until work left open is gone on with
};

class Receiver {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t kReadBytes = 8u << 10;
    static constexpr std::size_t kCautiousBytes = 2u << 10;  // from one that may be expensive
    static constexpr int kReadsPerTurn = 64;
    static constexpr std::chrono::milliseconds kTurn{2};  // of work

    struct Owner {
        std::function<std::unique_ptr<ConnectionHandler>(std::string peer)> makeHandler;
        std::function<void()> refused;  // a connection found no place
        std::function<bool()> crowded;  // nothing should be read now; resume() tells when again
    };

    Receiver(asio::io_context& io, Owner owner, const ReceiveLimits& limits = {});
    ~Receiver();

    // Binds, listens and begins to accept. host: a name or an address; port 0: any free port.
    // Empty on success, else what went wrong.
    [[nodiscard]] std::string listen(const std::string& host, std::uint16_t port);
    std::uint16_t port() const { return port_; }  // the real one
    const asio::ip::address& address() const { return address_; }

    void resume();
    // Accepts no more, takes what has arrived already, and closes every connection, soon after the
    // call. What is left at the deadline is not taken, and not told.
    void stop(Clock::time_point deadline);

private:
    struct Connection;
    using ConnectionPtr = std::shared_ptr<Connection>;
    enum class Turn : std::uint8_t { idle, more, ended };

    void accept();
    void accepted(asio::ip::tcp::socket socket);
    bool makePlace(const std::string& peer);
    void awaitBytes(const ConnectionPtr& connection);
    void serve(const ConnectionPtr& connection);
    void takeTurn(const ConnectionPtr& connection);
    Turn read(const ConnectionPtr& connection);
    void close(const ConnectionPtr& connection, ConnectionHandler::Ending ending);
    bool hasRoomToWait(const std::string& peer) const;
    bool isFull(const std::list<ConnectionPtr>& list, const std::string& peer) const;
    ConnectionHandler::Told tellEnd(Connection& connection);
    void awaitOrTell(const ConnectionPtr& connection);
    void tellWaiting();
    void step();
    void scheduleStep();
    void watchSilence();
    void account(Connection& connection);
    void freeMemory();
    void takeBacklog();
    bool takeRound(Clock::time_point until);
    void finishAll();
    void abandon(ConnectionPtr connection);

    asio::io_context& io_;
    Owner owner_;
    ReceiveLimits limits_;
    asio::ip::tcp::acceptor acceptor_;
    asio::steady_timer acceptPause_;
    asio::steady_timer silenceTimer_;
    std::list<ConnectionPtr> connections_;  // oldest first
    std::deque<ConnectionPtr> line_;        // those that wait for a turn of their own
    std::list<ConnectionPtr> waiting_;      // closed, may be gone on with; oldest first
    std::deque<ConnectionPtr> ending_;      // closed, but not all of it told
    std::vector<ConnectionPtr> held_;       // ready, but the output is crowded
    std::size_t heldBytes_ = 0;             // of connections_ and waiting_
    std::vector<std::uint8_t> buffer_;
    std::uint16_t port_ = 0;
    asio::ip::address address_;
    bool stepScheduled_ = false;
    bool stopped_ = false;
    Clock::time_point deadline_;  // once it is
};

}  // namespace server
