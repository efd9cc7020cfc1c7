// The socket half of NetworkAgent: connecting, writing, closing, and what is known of a
// connection's packets when it ends.
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <new>
#include <string>
#include <utility>

#include "event/LossBook.h"
#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "transport/EvtAgentMgr.h"
#include "transport/NetworkAgent.h"
#include "transport/PsSocket.h"

namespace {

constexpr int kAckLimitMs = 300;  // Linux puts an acknowledgement off for 200 ms at most
// Long enough for a server that collects garbage or is moved to another host.
constexpr int kUsualTimeOutS = 30;

}  // namespace

int NetworkAgent::connect2ps(const char* server_host_addr, int server_tcp_port, int buffsize) {
    VEL_TRACE("connect2ps(const char*, int, int)");
    if (server_host_addr == nullptr) return RC_FAIL;
    const pssocket::Address server = pssocket::addressOf(server_host_addr, server_tcp_port);
    const int fd = pssocket::open(server.family());
    if (fd < 0) {
        tellConnectFailure(nullptr, 0, errno);
        return RC_FAIL;
    }
    socketFd_ = fd;
    socketOpen_ = true;
    note("Socket creation successful");
    if (bindIPAddress_ != nullptr) bindToOwnAddress();

    const int error = pssocket::connectWithin(fd, server, pssocket::kConnectLimitMs,
                                              [this] { return stopRequested(); });
    if (error != 0) {
        ::close(fd);
        socketOpen_ = false;
        tellConnectFailure(server_host_addr, server_tcp_port, error);
        return RC_FAIL;
    }
    failedConnects_ = 0;
    failurePace_.reset();
    logMessage(msg::kConnected, server_host_addr, server_tcp_port, buffsize);
    setSocketOptions(buffsize);
    return RC_SUCCESS;
}

// Each server and reason at first and then once a minute: a server may stay away for days. Without
// a host there was not even a socket.
void NetworkAgent::tellConnectFailure(const char* host, int port, int error) {
    ++failedConnects_;
    if (failurePace_.due()) {
        toldFailures_.clear();
        if (failedConnects_ > 1) logMessage(msg::kStillAway, failedConnects_);
    }
    const std::string server = host != nullptr ? host : "";
    if (!toldFailures_.insert(server + " " + std::to_string(port) + " " + std::to_string(error))
             .second)
        return;
    if (host != nullptr)
        logMessage(msg::kConnectFailed, host, port, error);
    else
        logMessage(msg::kSocketFailed, error);
    noteError("%s", pssocket::errorText(error).c_str());
    logMessage(msg::kPsSocketFailed);
}

void NetworkAgent::bindToOwnAddress() {
    const char* own = bindIPAddress_.get();
    const pssocket::Address address = pssocket::addressOf(own, clientIPPort_);
    if (bind(socketFd_, address.get(), address.size) == 0) {
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
    pssocket::limitSilence(socketFd_, stallLimitMs());
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
    packetStart_ = writtenBytes_;
    long sent = 0;
    const int error = !socketOpen_ ? EBADF
                                   : pssocket::sendAll(
                                         socketFd_, ptr, nbytes, stallLimitMs(),
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
    socketOpen_ = false;
    const int error = ::close(socketFd_) == 0 ? 0 : errno;
    if (writtenPackets_ > 0)
        logMessage(msg::kConnectionEnded, hostForLog(), portNumber_, writtenPackets_,
                   writtenEvents_);
    unacknowledged_.clear();
    writtenBytes_ = 0;
    acknowledgedBytes_ = 0;
    unmovedMs_ = 0;
    writtenPackets_ = 0;
    writtenEvents_ = 0;
    if (error != 0)
        noteError("Error occured when closing PS socket[%s:%d], ERRNO: %s", hostForLog(),
                  portNumber_, pssocket::errorText(error).c_str());
    else
        note("Successful in closing PS socket[%s:%d]", hostForLog(), portNumber_);
    return error == 0;
}

// --- what became of the written packets ----------------------------------------------------------

// The last entry is the packet's.
void NetworkAgent::noteWritten(NetworkAgentData& packet, Loss ifLost) {
    RecordEnds ends = packet.takeEnds();
    ++writtenPackets_;
    writtenEvents_ += ends.events();
    Written& written = unacknowledged_.back();
    written.start = packetStart_;
    written.end = packetStart_ + static_cast<std::uint64_t>(packet.getSize());
    written.ends = std::move(ends);
    written.ifLost = ifLost;
    forgetAcknowledged();
}

// The bytes of this connection that have arrived. The packets that lie within them are done with.
std::uint64_t NetworkAgent::forgetAcknowledged() {
    const std::uint64_t open = socketOpen_ ? pssocket::unacknowledgedBytes(socketFd_) : 0;
    const std::uint64_t arrived = writtenBytes_ - std::min(open, writtenBytes_);
    while (!unacknowledged_.empty() && unacknowledged_.front().end <= arrived)
        unacknowledged_.pop_front();
    return arrived;
}

bool NetworkAgent::allAcknowledged() {
    if (!socketOpen_) return true;
    pssocket::awaitAcknowledged(socketFd_, kAckLimitMs, [this] { return stopRequested(); });
    return forgetAcknowledged() == writtenBytes_;
}

// After a failed write, or when the peer has closed its side: what still lies in our own send
// buffer goes down with the connection. What the peer's system has taken counts as delivered,
// though its program may not have read it; a peer that reads on takes the rest as well, so it gets
// the time to say so. The connection ends here, so that nothing arrives that has been counted.
void NetworkAgent::countUnacknowledged() {
    if (allAcknowledged() && unacknowledged_.empty()) return;
    pssocket::discardUnsent(socketFd_);
    const std::uint64_t arrived = forgetAcknowledged();
    for (const Written& packet : unacknowledged_) {
        const long lost = packet.ends.behind(arrived > packet.start ? arrived - packet.start : 0);
        LossBook::add(packet.ifLost, lost);
        --writtenPackets_;
        writtenEvents_ -= lost;
    }
    disconnect2ps();
}

int NetworkAgent::stallLimitMs() const {
    return (socketTimeOut_ == -1 ? kUsualTimeOutS : socketTimeOut_) * 1000;
}

// A server whose process stands still, or whose host is gone, takes no more while its connection
// looks as good as ever. Not counted in a flush, whose passes are shorter and which has its own
// limit.
bool NetworkAgent::hasStalled() {
    const std::uint64_t arrived = forgetAcknowledged();
    if (arrived != acknowledgedBytes_ || arrived == writtenBytes_) {
        acknowledgedBytes_ = arrived;
        unmovedMs_ = 0;
        return false;
    }
    if (!EvtAgentMgr::isFlushing()) unmovedMs_ += publishFrequency_;
    if (stallLimitMs() == 0 || unmovedMs_ < stallLimitMs()) return false;
    logMessage(msg::kServerStalled, hostForLog(), portNumber_, stallLimitMs() / 1000);
    return true;
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
