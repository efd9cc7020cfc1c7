#include "support/LoopbackServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

namespace {

constexpr auto kPatience = std::chrono::seconds(10);

void require(bool fine) {
    if (!fine) std::abort();  // a test machine without sockets
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

}  // namespace

LoopbackServer::LoopbackServer() {
    require(pipe2(wakePipe_, O_CLOEXEC | O_NONBLOCK) == 0);
    open();
    thread_ = std::thread([this] { run(); });
}

LoopbackServer::~LoopbackServer() {
    {
        const std::lock_guard hold(lock_);
        stop_ = true;
    }
    wake();
    thread_.join();
    for (Connection& connection : connections_) closeLocked(connection);
    ::close(listener_);
    ::close(wakePipe_[0]);
    ::close(wakePipe_[1]);
}

// The port is found by one socket and bound by name by another: only then it stays with the
// listener while that does not listen.
void LoopbackServer::open() {
    const int finder = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(finder, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    require(bind(finder, reinterpret_cast<sockaddr*>(&address), size) == 0);
    require(getsockname(finder, reinterpret_cast<sockaddr*>(&address), &size) == 0);
    require(bind(listener_, reinterpret_cast<sockaddr*>(&address), size) == 0);
    ::close(finder);
    require(listen(listener_, 16) == 0);
    port_ = ntohs(address.sin_port);
}

void LoopbackServer::setManner(Manner manner) {
    const std::lock_guard hold(lock_);
    manner_ = manner;
    if (manner == Manner::hanging) {  // connections inherit the small buffer
        const int smallest = 1;
        setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest);
    }
    wake();
}

// The port stays bound, so that no other program's server can get it meanwhile.
void LoopbackServer::refuse() {
    const std::lock_guard hold(lock_);
    if (listening_) ::shutdown(listener_, SHUT_RDWR);
    listening_ = false;
    wake();
}

void LoopbackServer::accept() {
    const std::lock_guard hold(lock_);
    if (!listening_) require(listen(listener_, 16) == 0);
    listening_ = true;
    wake();
}

void LoopbackServer::endConnections() {
    const std::lock_guard hold(lock_);
    for (const Connection& connection : connections_)
        if (connection.fd >= 0) ::shutdown(connection.fd, SHUT_WR);
}

bool LoopbackServer::waitUntilEnded() const {
    return waitUntil([this] { return allEndedLocked(); });
}

bool LoopbackServer::allEnded() const {
    const std::lock_guard hold(lock_);
    return allEndedLocked();
}

bool LoopbackServer::allEndedLocked() const {
    return std::all_of(connections_.begin(), connections_.end(),
                       [](const Connection& connection) { return connection.fd < 0; });
}

void LoopbackServer::resetConnections() {
    const std::lock_guard hold(lock_);
    for (Connection& connection : connections_) {
        if (connection.fd < 0) continue;
        const linger atOnce{1, 0};
        setsockopt(connection.fd, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        closeLocked(connection);
    }
    wake();
}

std::size_t LoopbackServer::connections() const {
    const std::lock_guard hold(lock_);
    return connections_.size();
}

std::vector<std::uint8_t> LoopbackServer::bytes(std::size_t connection) const {
    const std::lock_guard hold(lock_);
    return connection < connections_.size() ? connections_[connection].bytes
                                            : std::vector<std::uint8_t>();
}

std::size_t LoopbackServer::receivedBytes() const {
    const std::lock_guard hold(lock_);
    std::size_t sum = 0;
    for (const Connection& connection : connections_) sum += connection.bytes.size();
    return sum;
}

bool LoopbackServer::waitUntil(const std::function<bool()>& condition) const {
    std::unique_lock hold(lock_);
    return changed_.wait_until(hold, std::chrono::system_clock::now() + kPatience, condition);
}

bool LoopbackServer::waitForConnections(std::size_t count) const {
    return waitUntil([&] { return connections_.size() >= count; });
}

bool LoopbackServer::waitForBytes(std::size_t connection, std::size_t count) const {
    return waitUntil([&] {
        return connection < connections_.size() && connections_[connection].bytes.size() >= count;
    });
}

void LoopbackServer::wake() const {
    const char byte = 0;
    if (::write(wakePipe_[1], &byte, 1) < 0) return;  // full: the thread wakes anyway
}

void LoopbackServer::run() {
    for (;;) {
        std::vector<pollfd> watched{{wakePipe_[0], POLLIN, 0}};
        {
            const std::lock_guard hold(lock_);
            if (stop_) return;
            if (listening_) watched.push_back({listener_, POLLIN, 0});
            if (manner_ != Manner::hanging)
                for (const Connection& connection : connections_)
                    if (connection.fd >= 0) watched.push_back({connection.fd, POLLIN, 0});
        }
        poll(watched.data(), watched.size(), -1);
        char drain[64];
        while (::read(wakePipe_[0], drain, sizeof drain) > 0) {
        }
        const std::lock_guard hold(lock_);
        acceptOneLocked();
        for (Connection& connection : connections_) {
            if (connection.fd < 0) continue;
            if (manner_ == Manner::closing) closeLocked(connection);
            if (manner_ == Manner::reading) readLocked(connection);
        }
        changed_.notify_all();
    }
}

void LoopbackServer::acceptOneLocked() {
    if (!listening_) return;
    pollfd ready{listener_, POLLIN, 0};
    if (poll(&ready, 1, 0) <= 0) return;
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd >= 0) connections_.push_back({fd, {}});
}

void LoopbackServer::readLocked(Connection& connection) {
    std::uint8_t chunk[65536];
    for (;;) {
        const ssize_t got = ::recv(connection.fd, chunk, sizeof chunk, 0);
        if (got > 0) {
            connection.bytes.insert(connection.bytes.end(), chunk, chunk + got);
            continue;
        }
        if (got == 0 || (errno != EAGAIN && errno != EINTR)) closeLocked(connection);
        return;
    }
}

void LoopbackServer::closeLocked(Connection& connection) {
    if (connection.fd >= 0) ::close(connection.fd);
    connection.fd = -1;
}
