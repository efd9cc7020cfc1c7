#include "server/receive/Receiver.h"

#include <linux/filter.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <ctime>
#include <exception>
#include <map>
#include <thread>
#include <utility>

namespace server {

using asio::ip::tcp;
using Ending = ConnectionHandler::Ending;
using Taken = ConnectionHandler::Taken;
using Told = ConnectionHandler::Told;

struct Receiver::Connection {
    Connection(tcp::socket s, std::string p) : socket(std::move(s)), peer(std::move(p)) {}
    tcp::socket socket;
    const std::string peer;  // who is counted as one
    std::unique_ptr<ConnectionHandler> handler;
    const Clock::time_point since = Clock::now();
    bool proven = false;                 // it has had a turn
    Clock::time_point expensiveUntil{};  // it has to stand in line
    std::size_t heldBytes = 0;
    bool parting = false;  // we hung up first
    Ending ending;
    Clock::time_point waitsUntil{};  // for a connection that goes on with its work
};

namespace {

constexpr auto kAcceptPause = std::chrono::milliseconds(100);  // when descriptors have run out
constexpr auto kSilenceCheck = std::chrono::milliseconds(500);
constexpr auto kExpensive = std::chrono::microseconds(500);  // a turn; an agent's usual one is less
constexpr auto kExpensiveFor = std::chrono::seconds(10);
constexpr auto kPartingLimit = std::chrono::milliseconds(150);  // for a peer to hang up in its turn
constexpr auto kPartingPause = std::chrono::milliseconds(1);
constexpr const char* kStopped = "the server stops";

// What the thread has worked: a turn is not longer because others had the processor.
std::chrono::nanoseconds worked() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::string textOf(const tcp::endpoint& endpoint) {
    const std::string address = endpoint.address().to_string();
    return (endpoint.address().is_v6() ? "[" + address + "]" : address) + ":" +
           std::to_string(endpoint.port());
}

std::string peerOf(const asio::ip::address& address) {
    if (address.is_v4()) return address.to_string();
    if (address.to_v6().is_v4_mapped())
        return make_address_v4(asio::ip::v4_mapped, address.to_v6()).to_string();
    auto bytes = address.to_v6().to_bytes();
    std::fill(bytes.begin() + 8, bytes.end(), std::uint8_t{0});
    return asio::ip::address_v6(bytes).to_string();
}

bool hasHungUp(tcp::socket& socket) {
    pollfd watch{socket.native_handle(), POLLRDHUP, 0};
    return poll(&watch, 1, 0) > 0;
}

// From here on the system drops what comes in, instead of acknowledging it. Where it cannot, what
// arrives between the last read and the close is lost.
void acknowledgeNoMore(tcp::socket& socket) {
    sock_filter nothing{BPF_RET | BPF_K, 0, 0, 0};
    const sock_fprog program{1, &nothing};
    setsockopt(socket.native_handle(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}

}  // namespace

Receiver::Receiver(asio::io_context& io, Owner owner, const ReceiveLimits& limits)
    : io_(io),
      owner_(std::move(owner)),
      limits_(limits),
      acceptor_(io),
      acceptPause_(io),
      silenceTimer_(io),
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
    address_ = real.address();
    accept();
    watchSilence();
    return {};
}

void Receiver::accept() {
    acceptor_.async_accept([this](const asio::error_code& error, tcp::socket socket) {
        if (error == asio::error::operation_aborted) return;
        if (!error) {
            accepted(std::move(socket));
            return stopped_ ? void() : accept();  // it may have been taken just before the end
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
    asio::error_code error;
    const tcp::endpoint peer = socket.remote_endpoint(error);
    if (error) return;  // gone already
    auto connection = std::make_shared<Connection>(std::move(socket), peerOf(peer.address()));
    if (!makePlace(connection->peer)) return owner_.refused();  // closed by going out of scope
    connection->socket.non_blocking(true, error);
    if (error) return;
    // An agent says nothing for hours when its server is idle; one whose host has died says nothing
    // at all. Failing to ask for probes costs only the difference.
    connection->socket.set_option(asio::socket_base::keep_alive(true), error);
    connection->handler = owner_.makeHandler(textOf(peer));
    connections_.push_back(connection);
    account(*connection);
    awaitBytes(connection);
}

// False: every place is taken by somebody who has said who it is.
bool Receiver::makePlace(const std::string& peer) {
    const auto isPeer = [&](const ConnectionPtr& each) { return each->peer == peer; };
    const bool peerIsFull = isFull(connections_, peer);
    if (!peerIsFull && connections_.size() < limits_.connections) return true;
    const auto oldest =
        std::find_if(connections_.begin(), connections_.end(), [&](const ConnectionPtr& each) {
            return !each->handler->identified() && (!peerIsFull || isPeer(each));
        });
    if (oldest == connections_.end()) return false;
    close(ConnectionPtr(*oldest), {"closed to make room: it had not said who it is", false});
    return true;
}

void Receiver::awaitBytes(const ConnectionPtr& connection) {
    connection->socket.async_wait(tcp::socket::wait_read,
                                  [this, connection](const asio::error_code& error) {
                                      if (stopped_ || !connection->socket.is_open()) return;
                                      if (error) return close(connection, {error.message(), true});
                                      serve(connection);
                                  });
}

// The socket has something.
void Receiver::serve(const ConnectionPtr& connection) {
    if (owner_.crowded()) {
        held_.push_back(connection);
    } else if (Clock::now() < connection->expensiveUntil) {
        line_.push_back(connection);
        scheduleStep();
    } else {
        takeTurn(connection);
    }
}

void Receiver::takeTurn(const ConnectionPtr& connection) {
    const auto from = worked();
    const Turn turn = read(connection);
    connection->proven = true;
    if (worked() - from > kExpensive) connection->expensiveUntil = Clock::now() + kExpensiveFor;
    if (turn == Turn::ended) return;
    account(*connection);
    if (heldBytes_ > limits_.memory) freeMemory();
    if (!connection->socket.is_open()) return;
    if (turn == Turn::idle) return awaitBytes(connection);
    line_.push_back(connection);
    scheduleStep();
}

Receiver::Turn Receiver::read(const ConnectionPtr& connection) {
    const auto from = worked();
    const bool cautious = !connection->proven || Clock::now() < connection->expensiveUntil;
    const std::size_t size = cautious ? kCautiousBytes : buffer_.size();
    for (int i = 0; i < kReadsPerTurn; ++i) {
        asio::error_code error;
        const std::size_t count =
            connection->socket.read_some(asio::buffer(buffer_.data(), size), error);
        if (error == asio::error::would_block || error == asio::error::interrupted)
            return Turn::idle;
        if (error) {
            const bool orderly = error == asio::error::eof;
            if (connection->parting)
                close(connection, {kStopped, false});
            else
                close(connection, {orderly ? kOrderlyEnd : error.message(), true});
            return Turn::ended;
        }
        Taken taken = Taken::refused;
        std::string reason = "closed because of what it sent";
        try {
            taken = connection->handler->received(dc2ps::Bytes(buffer_.data(), count));
        } catch (const std::exception& e) {  // out of memory, say: costs this connection only
            reason = std::string("closed by an error of the server: ") + e.what();
        }
        if (taken == Taken::refused) {
            close(connection, {reason, false});
            return Turn::ended;
        }
        if (taken == Taken::enough || owner_.crowded() || worked() - from >= kTurn)
            return Turn::more;
    }
    return Turn::more;
}

void Receiver::close(const ConnectionPtr& connection, Ending ending) {
    asio::error_code ignored;  // closing is all that can be done about it
    connection->socket.close(ignored);
    connections_.remove(connection);
    heldBytes_ -= connection->heldBytes;
    connection->heldBytes = 0;
    connection->ending = std::move(ending);
    if (hasRoomToWait(connection->peer)) connection->waitsUntil = Clock::now() + limits_.handover;
    awaitOrTell(connection);
}

void Receiver::awaitOrTell(const ConnectionPtr& connection) {
    switch (tellEnd(*connection)) {
        case Told::all:
            return;
        case Told::some:
            ending_.push_back(connection);
            return scheduleStep();
        case Told::waits:
            account(*connection);
            waiting_.push_back(connection);
    }
}

// It may have been gone on with, or its time may be over.
void Receiver::tellWaiting() {
    for (const ConnectionPtr& each : std::exchange(waiting_, {})) {
        heldBytes_ -= each->heldBytes;
        each->heldBytes = 0;
        if (!stopped_ && Clock::now() < each->waitsUntil)
            awaitOrTell(each);
        else
            ending_.push_back(each);  // all at once would be much to tell
    }
    scheduleStep();
}

Told Receiver::tellEnd(Connection& connection) {
    Told told = Told::all;
    try {
        told = connection.handler->closed(connection.ending,
                                          !stopped_ && Clock::now() < connection.waitsUntil);
    } catch (const std::exception&) {  // out of memory: then nothing more can be told of it
    }
    if (told == Told::all) connection.handler.reset();
    return told;
}

// As many may wait as may be connected.
bool Receiver::hasRoomToWait(const std::string& peer) const {
    return waiting_.size() < limits_.connections && !isFull(waiting_, peer);
}

bool Receiver::isFull(const std::list<ConnectionPtr>& list, const std::string& peer) const {
    const auto ofPeer = std::count_if(
        list.begin(), list.end(), [&](const ConnectionPtr& each) { return each->peer == peer; });
    return static_cast<std::size_t>(ofPeer) >= limits_.connectionsPerPeer;
}

// One turn for those that wait in line, and one part of an end. Between two steps everybody who is
// ready and not in line has a turn.
void Receiver::step() {
    stepScheduled_ = false;
    if (stopped_ || owner_.crowded()) return;
    if (!ending_.empty() && tellEnd(*ending_.front()) == Told::all) ending_.pop_front();
    while (!line_.empty()) {
        const ConnectionPtr next = std::move(line_.front());
        line_.pop_front();
        if (!next->socket.is_open()) continue;
        takeTurn(next);
        break;
    }
    scheduleStep();
}

void Receiver::scheduleStep() {
    if (stepScheduled_ || (line_.empty() && ending_.empty())) return;
    stepScheduled_ = true;
    asio::post(io_, [this] { step(); });
}

void Receiver::resume() {
    for (const ConnectionPtr& each : std::exchange(held_, {}))
        if (each->socket.is_open() && !stopped_) serve(each);
    scheduleStep();
}

void Receiver::watchSilence() {
    silenceTimer_.expires_after(std::min(kSilenceCheck, limits_.silence));
    silenceTimer_.async_wait([this](const asio::error_code& cancelled) {
        if (cancelled || stopped_) return;
        const Clock::time_point latest = Clock::now() - limits_.silence;
        std::vector<ConnectionPtr> silent;
        for (const ConnectionPtr& each : connections_)
            if (each->since < latest && !each->handler->identified()) silent.push_back(each);
        for (const ConnectionPtr& each : silent)
            close(each, {"closed: it has not said who it is", false});
        tellWaiting();
        watchSilence();
    });
}

void Receiver::account(Connection& connection) {
    heldBytes_ -= connection.heldBytes;
    connection.heldBytes = connection.handler->heldBytes();
    heldBytes_ += connection.heldBytes;
}

void Receiver::freeMemory() {
    std::vector<ConnectionPtr> all(connections_.begin(), connections_.end());
    all.insert(all.end(), waiting_.begin(), waiting_.end());
    std::map<std::string, std::size_t> byPeer;
    for (const ConnectionPtr& each : all) byPeer[each->peer] += each->heldBytes;
    const ConnectionPtr most = *std::max_element(
        all.begin(), all.end(), [&](const ConnectionPtr& a, const ConnectionPtr& b) {
            return std::pair(byPeer[a->peer], a->heldBytes) <
                   std::pair(byPeer[b->peer], b->heldBytes);
        });
    if (most->socket.is_open())
        return close(most, {"closed: it held the most of the memory for all", false});
    most->waitsUntil = {};
    tellWaiting();
}

void Receiver::stop(Clock::time_point deadline) {
    if (stopped_) return;
    stopped_ = true;
    deadline_ = deadline;
    takeBacklog();
    asio::error_code ignored;
    acceptor_.close(ignored);
    acceptPause_.cancel();
    silenceTimer_.cancel();
    asio::post(io_, [this] { finishAll(); });  // behind a connection that was taken already
}

// Agents that have connected, and may have sent, but whose turn had not come.
void Receiver::takeBacklog() {
    asio::error_code error;
    acceptor_.non_blocking(true, error);
    while (!error && Clock::now() < deadline_) {
        tcp::socket socket = acceptor_.accept(error);
        if (!error) accepted(std::move(socket));
    }
}

// A turn for everybody while there is time: one who never stops sending must not use up the
// others'. True when somebody has more.
bool Receiver::takeRound(Clock::time_point until) {
    bool more = false;
    for (const ConnectionPtr& each : std::vector(connections_.begin(), connections_.end()))
        more |= Clock::now() >= until || read(each) == Turn::more;
    return more;
}

// An agent counts as delivered what our system has acknowledged, read or not. So agents are first
// told to send no more, and what is on its way is read until they hang up; from those who do not
// nothing more is acknowledged, and what was is read to its end.
void Receiver::finishAll() {
    asio::error_code ignored;
    for (const ConnectionPtr& each : connections_) {
        each->parting = !hasHungUp(each->socket);
        each->socket.shutdown(tcp::socket::shutdown_send, ignored);
    }
    const Clock::time_point parted = std::min(Clock::now() + kPartingLimit, deadline_);
    while (!connections_.empty() && Clock::now() < parted)
        if (!takeRound(parted)) std::this_thread::sleep_for(kPartingPause);
    for (const ConnectionPtr& each : connections_) acknowledgeNoMore(each->socket);
    while (takeRound(deadline_) && Clock::now() < deadline_) continue;
    while (!connections_.empty() && Clock::now() < deadline_) abandon(connections_.front());
    tellWaiting();
    while (!ending_.empty() && Clock::now() < deadline_)
        if (tellEnd(*ending_.front()) == Told::all) ending_.pop_front();
    connections_.clear();
    waiting_.clear();
    ending_.clear();
    line_.clear();
    held_.clear();
}

// By a reset: the peer learns that what was not acknowledged never will be.
void Receiver::abandon(ConnectionPtr connection) {
    asio::error_code ignored;
    std::string reason = kStopped;
    if (const std::size_t unread = connection->socket.available(ignored); unread > 0)
        reason += ", with " + std::to_string(unread) + " bytes unread";
    connection->socket.set_option(asio::socket_base::linger(true, 0), ignored);
    close(connection, {std::move(reason), false});
}

}  // namespace server
