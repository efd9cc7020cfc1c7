// The socket half of NetworkAgent: connecting, writing, closing, and what is known of a
// connection's packets when it ends.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <new>

#include "event/LossBook.h"
#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "transport/NetworkAgent.h"
#include "transport/PsSocket.h"

namespace {

constexpr int kAckLimitMs = 300;  // Linux puts an acknowledgement off for 200 ms at most

// Intended: no name resolution; other texts than dotted addresses give an address without a host.
sockaddr_in addressOf(const char* host, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(host);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

}  // namespace

int NetworkAgent::connect2ps(const char* server_host_addr, int server_tcp_port, int buffsize) {
    VEL_TRACE("connect2ps(const char*, int, int)");
    if (server_host_addr == nullptr) return RC_FAIL;
    const int fd = pssocket::open();
    if (fd < 0) {
        const int error = errno;
        logMessage(msg::kSocketFailed, error);
        noteError("%s", pssocket::errorText(error).c_str());
        return RC_FAIL;
    }
    socketFd_ = fd;
    socketOpen_ = true;
    note("Socket creation successful");
    if (bindIPAddress_ != nullptr) bindToOwnAddress();

    const int error =
        pssocket::connectWithin(fd, addressOf(server_host_addr, server_tcp_port),
                                pssocket::kConnectLimitMs, [this] { return stopRequested(); });
    if (error != 0) {
        logMessage(msg::kConnectFailed, server_host_addr, server_tcp_port, error);
        noteError("%s", pssocket::errorText(error).c_str());
        ::close(fd);
        socketOpen_ = false;
        return RC_FAIL;
    }
    logMessage(msg::kConnected, server_host_addr, server_tcp_port, buffsize);
    setSocketOptions(buffsize);
    return RC_SUCCESS;
}

void NetworkAgent::bindToOwnAddress() {
    const char* own = bindIPAddress_.get();
    const sockaddr_in address = addressOf(own, clientIPPort_);
    if (bind(socketFd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        note("Socket bind successful [%s:%d]", own, clientIPPort_);
        return;
    }
    const int error = errno;
    noteError("socket bind() failure [%s:%d] Error: %s ErrorNO: %d", own, clientIPPort_,
              pssocket::errorText(error).c_str(), error);
}

void NetworkAgent::setSocketOptions(int buffsize) {
    if (setsockopt(socketFd_, SOL_SOCKET, SO_SNDBUF, &buffsize, sizeof buffsize) != 0)
        noteError("Setting options on socket failed, ERRNO: %s",
                  pssocket::errorText(errno).c_str());
    else
        note("Successful in setting PS socket buffer size: %d", buffsize);
    if (socketTimeOut_ == -1) return;

    const timeval limit{socketTimeOut_, 0};
    if (setsockopt(socketFd_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0)
        noteError("Setting send timeout option on socket failed, ERRNO: %s",
                  pssocket::errorText(errno).c_str());
    else
        note("Successful in setting PS socket send time out: %d (secs)", socketTimeOut_);
    if (setsockopt(socketFd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0)
        noteError("Setting receive timeout option on socket failed, ERRNO: %s",
                  pssocket::errorText(errno).c_str());
    else
        note("Successful in setting PS socket read time out: %d (secs)", socketTimeOut_);
}

long NetworkAgent::sendToRemoteHost(const char* ptr, long nbytes) {
    VEL_TRACE("sendToRemoteHost(const char*, long)");
    if (nbytes == 0) return 0;
    // The timeout of the socket does not bite here, because a stop must be able to end the wait;
    // the same limit is kept by hand.
    const int timeoutMs = socketTimeOut_ > 0 ? socketTimeOut_ * 1000 : 0;
    long sent = 0;
    const int error = !socketOpen_ ? EBADF
                                   : pssocket::sendAll(
                                         socketFd_, ptr, nbytes, timeoutMs,
                                         [this] { return stopRequested(); }, &sent);
    writtenBytes_ += static_cast<std::uint64_t>(sent);
    if (error == 0) return nbytes;
    try {
        logMessage(msg::kSocketWriteFailed, hostForLog(), portNumber_,
                   pssocket::errorText(error).c_str());
    } catch (const std::bad_alloc&) {
        // No memory for the reason; the caller must learn of the failure all the same.
    }
    return -1;
}

bool NetworkAgent::peerHasGone() const {
    return socketOpen_ && pssocket::peerHasGone(socketFd_);
}

bool NetworkAgent::disconnect2ps() {
    VEL_TRACE("disconnect2ps()");
    // The number stays in the field, but a closed one may belong to the host by now.
    if (!socketOpen_ || socketFd_ < 1) return true;
    forgetAcknowledged();
    if (writtenPackets_ > 0)
        logMessage(msg::kConnectionEnded, hostForLog(), portNumber_, writtenPackets_,
                   writtenEvents_);
    unacknowledged_.clear();
    writtenBytes_ = 0;
    writtenPackets_ = 0;
    writtenEvents_ = 0;

    socketOpen_ = false;
    if (::close(socketFd_) != 0) {
        noteError("Error occured when closing PS socket[%s:%d], ERRNO: %s", hostForLog(),
                  portNumber_, pssocket::errorText(errno).c_str());
        return false;
    }
    note("Successful in closing PS socket[%s:%d]", hostForLog(), portNumber_);
    return true;
}

// --- what became of the written packets ----------------------------------------------------------

void NetworkAgent::noteWritten(const NetworkAgentData& packet) {
    ++writtenPackets_;
    writtenEvents_ += packet.getInfo().events;
    if (packet.getInfo().events > 0)
        unacknowledged_.push_back({writtenBytes_, packet.getInfo().events});
    forgetAcknowledged();
}

void NetworkAgent::forgetAcknowledged() {
    if (unacknowledged_.empty()) return;
    const std::uint64_t open = pssocket::unacknowledgedBytes(socketFd_);
    while (!unacknowledged_.empty() && unacknowledged_.front().end + open <= writtenBytes_)
        unacknowledged_.pop_front();
}

// After a failed write, or when the peer has closed its side: packets that still lie in our own
// send buffer go down with the connection. What the peer's system has taken counts as delivered,
// though its program may not have read it; a peer that reads on takes the rest as well, so it gets
// the time to say so.
void NetworkAgent::countUnacknowledged() {
    if (!unacknowledged_.empty() && socketOpen_)
        pssocket::awaitAcknowledged(socketFd_, kAckLimitMs, [this] { return stopRequested(); });
    forgetAcknowledged();
    long events = 0;
    for (const Written& packet : unacknowledged_) events += packet.events;
    writtenPackets_ -= static_cast<long>(unacknowledged_.size());
    writtenEvents_ -= events;
    unacknowledged_.clear();
    LossBook::add(Loss::notAcknowledged, events);
}

// --- plain lines ---------------------------------------------------------------------------------

void NetworkAgent::note(const char* format, ...) const {
    if (!traceOn(kDebugMin)) return;
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    _log(__FILE_NAME__, __LINE__, text);
}

void NetworkAgent::noteError(const char* format, ...) const {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    _logError(__FILE_NAME__, __LINE__, text);
}
