#include "server/receive/Receiver.h"

#include <chrono>
#include <exception>

namespace server {

using asio::ip::tcp;

struct Receiver::Connection {
    explicit Connection(tcp::socket s) : socket(std::move(s)) {}
    tcp::socket socket;
    std::unique_ptr<ConnectionHandler> handler;
};

namespace {

constexpr auto kAcceptPause = std::chrono::milliseconds(100);  // when descriptors have run out
constexpr int kReadsWhenStopping = 256;  // a peer that never pauses must not keep the server alive

std::string textOf(const tcp::endpoint& endpoint) {
    const std::string address = endpoint.address().to_string();
    return (endpoint.address().is_v6() ? "[" + address + "]" : address) + ":" +
           std::to_string(endpoint.port());
}

}  // namespace

Receiver::Receiver(asio::io_context& io, MakeHandler makeHandler, Refused refused)
    : io_(io),
      makeHandler_(std::move(makeHandler)),
      refused_(std::move(refused)),
      acceptor_(io),
      acceptPause_(io),
      buffer_(kReadBytes) {
}

Receiver::~Receiver() = default;

std::string Receiver::listen(const std::string& host, std::uint16_t port) {
    asio::error_code error;
    tcp::resolver resolver(io_);
    const auto found = resolver.resolve(
        host, std::to_string(port), tcp::resolver::passive | tcp::resolver::numeric_service, error);
    if (error) return error.message();
    const tcp::endpoint endpoint = found.begin()->endpoint();
    acceptor_.open(endpoint.protocol(), error);
    if (!error) acceptor_.set_option(tcp::acceptor::reuse_address(true), error);
    if (!error) acceptor_.bind(endpoint, error);
    if (!error) acceptor_.listen(asio::socket_base::max_listen_connections, error);
    const tcp::endpoint real = error ? tcp::endpoint() : acceptor_.local_endpoint(error);
    if (error) return error.message();
    port_ = real.port();
    address_ = real.address().to_string();
    accept();
    return {};
}

void Receiver::accept() {
    acceptor_.async_accept([this](const asio::error_code& error, tcp::socket socket) {
        if (error == asio::error::operation_aborted) return;
        if (!error) {
            accepted(std::move(socket));
            return stopped_ ? finishAll() : accept();  // it may have been taken just before the end
        }
        if (stopped_) return;
        // The connection that could not be taken is still in the queue, so trying again at once
        // would spin.
        acceptPause_.expires_after(kAcceptPause);
        acceptPause_.async_wait([this](const asio::error_code& cancelled) {
            if (!cancelled && !stopped_) accept();
        });
    });
}

void Receiver::accepted(tcp::socket socket) {
    if (connections_.size() >= kMaxConnections) return refused_();  // closed by going out of scope
    asio::error_code error;
    const tcp::endpoint peer = socket.remote_endpoint(error);
    if (error) return;  // gone already
    socket.non_blocking(true, error);
    if (error) return;
    // An agent says nothing for hours when its server is idle; one whose host has died says nothing
    // at all. Failing to ask for probes costs only the difference.
    socket.set_option(asio::socket_base::keep_alive(true), error);
    auto connection = std::make_shared<Connection>(std::move(socket));
    connection->handler = makeHandler_(textOf(peer));
    connections_.push_back(connection);
    awaitBytes(connection);
}

void Receiver::awaitBytes(const ConnectionPtr& connection) {
    connection->socket.async_wait(tcp::socket::wait_read,
                                  [this, connection](const asio::error_code& error) {
                                      if (stopped_ || !connection->handler) return;
                                      if (error) return close(*connection, error.message());
                                      if (readTurn(*connection, kReadsPerTurn) != Turn::ended)
                                          awaitBytes(connection);
                                  });
}

Receiver::Turn Receiver::readTurn(Connection& connection, int reads) {
    for (int i = 0; i < reads; ++i) {
        asio::error_code error;
        const std::size_t count = connection.socket.read_some(asio::buffer(buffer_), error);
        if (error == asio::error::would_block || error == asio::error::interrupted)
            return Turn::idle;
        if (error) {
            close(connection, error == asio::error::eof ? "closed by the agent" : error.message());
            return Turn::ended;
        }
        bool goOn = false;
        std::string reason = "closed because of what it sent";
        try {
            goOn = connection.handler->received(dc2ps::Bytes(buffer_.data(), count));
        } catch (const std::exception& e) {  // out of memory, say: costs this connection only
            reason = std::string("closed by an error of the server: ") + e.what();
        }
        if (!goOn) {
            close(connection, reason);
            return Turn::ended;
        }
    }
    return Turn::more;
}

void Receiver::close(Connection& connection, const std::string& reason) {
    const std::unique_ptr<ConnectionHandler> handler = std::move(connection.handler);
    asio::error_code ignored;  // closing is all that can be done about it
    connection.socket.close(ignored);
    connections_.remove_if([&](const ConnectionPtr& each) { return each.get() == &connection; });
    handler->closed(reason);
}

void Receiver::stop() {
    if (stopped_) return;
    stopped_ = true;
    takeBacklog();
    asio::error_code ignored;
    acceptor_.close(ignored);
    acceptPause_.cancel();
    finishAll();
}

// Agents that have connected, and may have sent, but whose turn had not come.
void Receiver::takeBacklog() {
    asio::error_code error;
    acceptor_.non_blocking(true, error);
    while (!error) {
        tcp::socket socket = acceptor_.accept(error);
        if (!error) accepted(std::move(socket));
    }
}

void Receiver::finishAll() {
    while (!connections_.empty()) {
        const ConnectionPtr connection = connections_.front();
        if (readTurn(*connection, kReadsWhenStopping) != Turn::ended)
            close(*connection, "the server stops");
    }
}

}  // namespace server
