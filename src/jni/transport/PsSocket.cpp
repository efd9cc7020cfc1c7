#include "transport/PsSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>

namespace pssocket {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kAckStepMs = 2;

int pendingError(int fd, int ifNone) {
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
    return error != 0 ? error : ifNone;
}

constexpr short kGoneEvents = POLLRDHUP | POLLHUP | POLLERR | POLLNVAL;

enum class Wait { ready, gone, stopped, timedOut };

// Until fd can be written, its peer is gone, or the deadline has passed (limitMs 0: none).
Wait waitWritable(int fd, int limitMs, const StopTest& stop) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    for (;;) {
        int slice = kSliceMs;
        if (limitMs > 0) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0) return Wait::timedOut;
            slice = static_cast<int>(std::min<long>(left, kSliceMs));
        }
        pollfd watch{fd, POLLOUT | POLLRDHUP, 0};
        const int events = poll(&watch, 1, slice);
        if (events > 0) return (watch.revents & kGoneEvents) != 0 ? Wait::gone : Wait::ready;
        if (stop()) return Wait::stopped;
    }
}

bool metItself(int fd) {
    Address own;
    Address peer;
    own.size = peer.size = sizeof own.storage;
    return getsockname(fd, reinterpret_cast<sockaddr*>(&own.storage), &own.size) == 0 &&
           getpeername(fd, reinterpret_cast<sockaddr*>(&peer.storage), &peer.size) == 0 &&
           own.size == peer.size && std::memcmp(&own.storage, &peer.storage, own.size) == 0;
}

}  // namespace

Address addressOf(const char* host, int port) {
    Address address;
    const auto wirePort = htons(static_cast<std::uint16_t>(port));
    auto* const six = reinterpret_cast<sockaddr_in6*>(&address.storage);
    if (inet_pton(AF_INET6, host, &six->sin6_addr) == 1) {
        six->sin6_family = AF_INET6;
        six->sin6_port = wirePort;
        address.size = sizeof *six;
        return address;
    }
    auto* const four = reinterpret_cast<sockaddr_in*>(&address.storage);
    four->sin_family = AF_INET;
    four->sin_addr.s_addr = inet_addr(host);
    four->sin_port = wirePort;
    address.size = sizeof *four;
    return address;
}

int open(int family) {
    const int fd = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || fd > STDERR_FILENO) return fd;
    const int higher = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    ::close(fd);
    errno = error;
    return higher;
}

int connectWithin(int fd, const Address& address, int limitMs, const StopTest& stop) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) return errno;
    int error = 0;
    if (connect(fd, address.get(), address.size) != 0) {
        // An interrupted connect goes on by itself, like one in progress.
        if (errno != EINPROGRESS && errno != EINTR) return errno;
        switch (waitWritable(fd, limitMs, stop)) {
            case Wait::ready:
            case Wait::gone:  // also a peer that accepted and closed at once: SO_ERROR is 0 then
                error = pendingError(fd, 0);
                break;
            case Wait::stopped:
                return ECANCELED;
            case Wait::timedOut:
                return ETIMEDOUT;
        }
    }
    if (error == 0 && metItself(fd)) {
        discardUnsent(fd);  // its end would keep the port from the server for a minute
        return ECONNREFUSED;
    }
    if (error == 0 && fcntl(fd, F_SETFL, flags) < 0) return errno;
    return error;
}

void limitSilence(int fd, int limitMs) {
    const unsigned limit = static_cast<unsigned>(limitMs);
    // Refused: the sender notices by itself, as long as its process is not stopped.
    setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &limit, sizeof limit);
}

int sendAll(int fd, const char* bytes, long count, int timeoutMs, const StopTest& stop,
            long* sent) {
    *sent = 0;
    while (*sent < count) {
        switch (waitWritable(fd, timeoutMs, stop)) {
            case Wait::ready:
                break;
            case Wait::gone:
                return pendingError(fd, EPIPE);
            case Wait::stopped:
                return ECANCELED;
            case Wait::timedOut:
                return EAGAIN;
        }
        const ssize_t taken = ::send(fd, bytes + *sent, static_cast<std::size_t>(count - *sent),
                                     MSG_NOSIGNAL | MSG_DONTWAIT);
        if (taken > 0)
            *sent += taken;
        else if (taken == 0)
            return EIO;
        else if (errno != EINTR && errno != EAGAIN)
            return errno;
    }
    return 0;
}

bool peerHasGone(int fd) {
    pollfd watch{fd, POLLRDHUP, 0};
    return poll(&watch, 1, 0) > 0 && (watch.revents & kGoneEvents) != 0;
}

std::uint64_t unacknowledgedBytes(int fd) {
    int bytes = 0;
    if (ioctl(fd, SIOCOUTQ, &bytes) != 0 || bytes < 0) return 0;
    return static_cast<std::uint64_t>(bytes);
}

void awaitAcknowledged(int fd, int limitMs, const StopTest& stop) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    pollfd broken{fd, 0, 0};  // POLLERR and POLLHUP come unasked
    while (unacknowledgedBytes(fd) > 0 && Clock::now() < deadline && !stop())
        if (poll(&broken, 1, kAckStepMs) != 0) return;
}

void discardUnsent(int fd) {
    const linger atOnce{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

std::string errorText(int error) {
    return std::system_category().message(error);
}

}  // namespace pssocket
