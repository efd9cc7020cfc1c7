#include "transport/PsSocket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <list>
#include <vector>

#include "support/LoopbackServer.h"

namespace {

using Clock = std::chrono::steady_clock;

pssocket::Address addressOf(int port) {
    return pssocket::addressOf("127.0.0.1", port);
}

const pssocket::StopTest kNever = [] { return false; };
const pssocket::StopTest kAtOnce = [] { return true; };

class Socket {
public:
    explicit Socket(int family = AF_INET) : fd(pssocket::open(family)) {}
    ~Socket() { ::close(fd); }
    // Binds it to a free port of that address, which is the answer.
    int bound(const char* host) const {
        pssocket::Address address = pssocket::addressOf(host, 0);
        if (bind(fd, address.get(), address.size) != 0) return 0;
        getsockname(fd, reinterpret_cast<sockaddr*>(&address.storage), &address.size);
        return ntohs(reinterpret_cast<const sockaddr_in*>(&address.storage)->sin_port);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int fd;
};

// A listener that takes no more connections: further ones wait until their patience is over.
class FullListener {
public:
    FullListener() {
        port = own_.bound("127.0.0.1");
        listen(own_.fd, 0);
        do {
            waiting_.emplace_back();
        } while (pssocket::connectWithin(waiting_.back().fd, addressOf(port), 100, kNever) == 0);
    }
    int port = 0;

private:
    Socket own_;
    std::list<Socket> waiting_;
};

TEST(PsSocket, ConnectGivesUpOnAServerThatDoesNotAnswer) {
    const FullListener listener;
    Socket socket;
    EXPECT_EQ(pssocket::connectWithin(socket.fd, addressOf(listener.port), 60, kNever), ETIMEDOUT);
    Socket stopped;
    EXPECT_EQ(pssocket::connectWithin(stopped.fd, addressOf(listener.port), 60000, kAtOnce),
              ECANCELED);
}

TEST(PsSocket, AConnectionThatMeetsItselfIsARefusal) {
    Socket socket;
    const int own = socket.bound("127.0.0.1");
    EXPECT_EQ(pssocket::connectWithin(socket.fd, addressOf(own), 1000, kNever), ECONNREFUSED);
}

TEST(PsSocket, ConnectsToAnAddressOfSixteenBytes) {
    Socket listener(AF_INET6);
    const int port = listener.bound("::1");
    if (port == 0 || listen(listener.fd, 1) != 0) GTEST_SKIP() << "a host without IPv6";
    Socket socket(AF_INET6);
    EXPECT_EQ(pssocket::connectWithin(socket.fd, pssocket::addressOf("::1", port), 1000, kNever),
              0);
}

TEST(PsSocket, ConnectTellsARefusal) {
    LoopbackServer server;
    server.refuse();
    Socket socket;
    EXPECT_EQ(pssocket::connectWithin(socket.fd, addressOf(server.port()), 1000, kNever),
              ECONNREFUSED);
}

class StuckWrite : public testing::Test {
protected:
    StuckWrite() {
        server.setManner(LoopbackServer::Manner::hanging);
        EXPECT_EQ(pssocket::connectWithin(socket.fd, addressOf(server.port()), 1000, kNever), 0);
        server.waitForConnections(1);
        const int small = 65536;
        setsockopt(socket.fd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    }
    int write(int timeoutMs, const pssocket::StopTest& stop) {
        return pssocket::sendAll(socket.fd, bytes.data(), static_cast<long>(bytes.size()),
                                 timeoutMs, stop, &sent);
    }
    LoopbackServer server;
    Socket socket;
    const std::vector<char> bytes = std::vector<char>(2 << 20, 'x');
    long sent = 0;
};

TEST_F(StuckWrite, EndsWhenNothingMovesForTheTimeout) {
    EXPECT_EQ(write(50, kNever), EAGAIN);
    EXPECT_GT(sent, 0);
    EXPECT_LT(sent, static_cast<long>(bytes.size()));
}

TEST_F(StuckWrite, EndsAtAStopWithoutATimeout) {
    EXPECT_EQ(write(0, kAtOnce), ECANCELED);
}

TEST_F(StuckWrite, EndsAndRaisesNoSignalWhenThePeerResets) {
    int asked = 0;
    const int error = write(0, [&] {
        if (++asked == 1) server.resetConnections();
        return asked > 100;
    });
    EXPECT_EQ(error, ECONNRESET);
    EXPECT_EQ(write(0, kNever), EPIPE) << "a broken connection stays broken";
}

TEST_F(StuckWrite, CompletesOnceThePeerReads) {
    int asked = 0;
    EXPECT_EQ(write(0,
                    [&] {
                        if (++asked == 1) server.setManner(LoopbackServer::Manner::reading);
                        return false;
                    }),
              0);
    EXPECT_EQ(sent, static_cast<long>(bytes.size()));
    EXPECT_TRUE(server.waitForBytes(0, bytes.size()));
}

TEST_F(StuckWrite, WaitsForAcknowledgementsAsLongAsTheyCanCome) {
    write(50, kNever);
    ASSERT_GT(pssocket::unacknowledgedBytes(socket.fd), 0U);
    pssocket::awaitAcknowledged(socket.fd, 3600000, kAtOnce);
    pssocket::awaitAcknowledged(socket.fd, 20, kNever);
    EXPECT_GT(pssocket::unacknowledgedBytes(socket.fd), 0U) << "nobody reads";
    int asked = 0;
    pssocket::awaitAcknowledged(socket.fd, 3600000, [&] {
        if (++asked == 1) server.setManner(LoopbackServer::Manner::reading);
        return false;
    });
    EXPECT_EQ(pssocket::unacknowledgedBytes(socket.fd), 0U);
}

TEST_F(StuckWrite, WaitsForNoAcknowledgementOfABrokenConnection) {
    write(50, kNever);
    int asked = 0;
    pssocket::awaitAcknowledged(socket.fd, 3600000, [&] {
        if (++asked == 1) server.resetConnections();
        return false;
    });
    EXPECT_GT(asked, 0);
}

TEST(PsSocket, WritesNothingToAPeerThatHasClosed) {
    LoopbackServer server;
    Socket socket;
    ASSERT_EQ(pssocket::connectWithin(socket.fd, addressOf(server.port()), 1000, kNever), 0);
    ASSERT_TRUE(server.waitForConnections(1));
    server.setManner(LoopbackServer::Manner::closing);
    ASSERT_TRUE(server.waitUntilEnded());
    long sent = -1;
    const char byte = 'x';
    EXPECT_EQ(pssocket::sendAll(socket.fd, &byte, 1, 0, kNever, &sent), EPIPE);
    EXPECT_EQ(sent, 0) << "the system would have taken it, and nobody would have known";
}

}  // namespace
