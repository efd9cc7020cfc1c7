// Takes connections and hands their bytes on; knows nothing of what they mean.
//
// One buffer serves all connections: bytes are read only when a socket has some, and handed on at
// once. A connection that always has more gets its turn and then waits for the others'. Threads:
// everything happens on the thread that runs the io_context.
#pragma once

#include <asio.hpp>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "server/receive/ConnectionHandler.h"

namespace server {

class Receiver {
public:
    static constexpr std::size_t kMaxConnections = 1024;  // open at a time; more are closed at once
    static constexpr std::size_t kReadBytes = 256u << 10;
    static constexpr int kReadsPerTurn = 8;

    using MakeHandler = std::function<std::unique_ptr<ConnectionHandler>(std::string peer)>;
    using Refused = std::function<void()>;  // a connection beyond kMaxConnections was closed

    Receiver(asio::io_context& io, MakeHandler makeHandler, Refused refused);
    ~Receiver();

    // Binds, listens and begins to accept. host: a name or an address; port 0: any free port.
    // Empty on success, else what went wrong.
    [[nodiscard]] std::string listen(const std::string& host, std::uint16_t port);
    std::uint16_t port() const { return port_; }             // the real one
    const std::string& address() const { return address_; }  // the real one, without the port

    // Accepts no more, takes what has arrived already, and closes every connection.
    void stop();

private:
    struct Connection;
    using ConnectionPtr = std::shared_ptr<Connection>;
    enum class Turn : std::uint8_t { idle, more, ended };

    void accept();
    void accepted(asio::ip::tcp::socket socket);
    void awaitBytes(const ConnectionPtr& connection);
    Turn readTurn(Connection& connection, int reads);
    void close(Connection& connection, const std::string& reason);
    void takeBacklog();
    void finishAll();

    asio::io_context& io_;
    MakeHandler makeHandler_;
    Refused refused_;
    asio::ip::tcp::acceptor acceptor_;
    asio::steady_timer acceptPause_;
    std::list<ConnectionPtr> connections_;
    std::vector<std::uint8_t> buffer_;
    std::uint16_t port_ = 0;
    std::string address_;
    bool stopped_ = false;
};

}  // namespace server
