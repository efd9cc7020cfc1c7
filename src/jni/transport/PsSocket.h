// The socket steps of a network agent that may take long, written so that a stop can end them.
//
// Threads: no state, any thread. The stop test is asked about every kSliceMs while a step waits.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <string>

namespace pssocket {

using StopTest = std::function<bool()>;

constexpr int kSliceMs = 50;           // longest time without asking the stop test
constexpr int kConnectLimitMs = 5000;  // a server that does not answer at all counts as down

struct Address {
    sockaddr_storage storage{};
    socklen_t size = 0;
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    int family() const { return storage.ss_family; }
};

// Intended: no name resolution; other texts than IPv4 and IPv6 addresses give an address without a
// host, which nothing connects to.
Address addressOf(const char* host, int port);

// A stream socket that child processes of the host do not inherit, with a number above those of
// standard input and output, so that a host without them never prints into our connection. -1:
// errno.
int open(int family);

// 0, or the error (ETIMEDOUT after limitMs, ECANCELED when stopped). fd ends up blocking.
// ECONNREFUSED also when the connection has met itself, as one to a port of this host can while
// nobody listens there: the system may have chosen that very port for our own end.
int connectWithin(int fd, const Address& address, int limitMs, const StopTest& stop);

// Has the system end a connection whose peer acknowledges nothing for so long; 0: as it usually
// does, which may take a quarter of an hour.
void limitSilence(int fd, int limitMs);

// Sends all bytes without raising SIGPIPE. 0, or the error; 0 bytes accepted by the system count as
// an error of their own (EIO). timeoutMs: longest time without any progress (EAGAIN), 0 for no
// limit. A peer that has closed its side is not written to any more (EPIPE): what would be written
// could only be lost without a trace. *sent: bytes that the system took, also when the answer is an
// error.
int sendAll(int fd, const char* bytes, long count, int timeoutMs, const StopTest& stop, long* sent);

// Whether the peer has closed its side or the connection has broken.
bool peerHasGone(int fd);

// Bytes that the peer's side has not acknowledged; 0 when the system cannot tell.
std::uint64_t unacknowledgedBytes(int fd);

// Waits until the peer's side has acknowledged everything, which it may put off for 200 ms while
// nothing flows back; at most limitMs, and no longer than the connection can still carry anything.
void awaitAcknowledged(int fd, int limitMs, const StopTest& stop);

// From now on closing the socket drops what has not been acknowledged instead of sending it.
void discardUnsent(int fd);

std::string errorText(int error);

}  // namespace pssocket
