// Who keeps a connection and who does not. What hostile peers do to a whole server: tests/server.
#include "server/receive/Receiver.h"

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <thread>
#include <vector>

namespace {

using asio::ip::tcp;
using server::ConnectionHandler;

// Identifies itself by its first bytes and holds as many as it gets.
class Peer final : public ConnectionHandler {
public:
    Peer(std::vector<std::string>& ends, std::size_t& taken) : ends_(ends), taken_(taken) {}
    Taken received(dc2ps::Bytes untrusted) override {
        held_ += untrusted.size();
        taken_ += untrusted.size();
        if (held_ > kFewBytes) usleep(20);  // slower than who sends
        return Taken::all;
    }
    Told closed(const Ending& ending, bool) override {
        ends_.push_back(ending.reason);
        return Told::all;
    }
    bool identified() const override { return held_ > 0; }
    std::size_t heldBytes() const override { return held_; }

private:
    static constexpr std::size_t kFewBytes = 1000;
    std::vector<std::string>& ends_;
    std::size_t& taken_;
    std::size_t held_ = 0;
};

class Receiving : public testing::Test {
protected:
    void listen(const server::ReceiveLimits& limits) {
        receiver.emplace(io,
                         server::Receiver::Owner{[this](const std::string&) {
                                                     return std::make_unique<Peer>(ends, taken);
                                                 },
                                                 [this] { ++refused; }, [] { return false; }},
                         limits);
        ASSERT_EQ(receiver->listen("127.0.0.1", 0), "");
    }
    void connect(const std::string& bytes) {
        clients.emplace_back(io).connect({asio::ip::address_v4::loopback(), receiver->port()});
        asio::write(clients.back(), asio::buffer(bytes));
        io.run_for(std::chrono::milliseconds(20));
    }

    asio::io_context io;
    std::optional<server::Receiver> receiver;
    std::vector<tcp::socket> clients;
    std::vector<std::string> ends;
    std::size_t taken = 0;
    int refused = 0;
};

TEST_F(Receiving, ClosesWhoHasNotSaidWhoItIsInTime) {
    server::ReceiveLimits limits;
    limits.silence = std::chrono::milliseconds(60);
    listen(limits);
    connect("");
    connect("known");
    io.run_for(std::chrono::milliseconds(300));
    EXPECT_EQ(ends, std::vector<std::string>{"closed: it has not said who it is"});
}

// An agent whose host has died says nothing at all: only the kernel's probes find it out.
TEST_F(Receiving, HasItsConnectionsProbed) {
    listen({});
    connect("known");
    int probed = 0;  // of our end: the descriptor whose peer is the client
    for (int fd = 0; fd < 1024; ++fd) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) != 0) continue;
        if (ntohs(peer.sin_port) != clients[0].local_endpoint().port()) continue;
        size = sizeof probed;
        EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &probed, &size), 0);
    }
    EXPECT_EQ(probed, 1);
}

TEST_F(Receiving, GivesThePlaceOfTheOldestUnknownToANewOne) {
    server::ReceiveLimits limits;
    limits.connectionsPerPeer = 2;
    listen(limits);
    connect("known");
    connect("");
    connect("also known");
    EXPECT_EQ(ends, std::vector<std::string>{"closed to make room: it had not said who it is"});
    EXPECT_EQ(refused, 0);
    connect("one too many");
    EXPECT_EQ(refused, 1);
    EXPECT_EQ(ends.size(), 1u);
}

TEST_F(Receiving, ClosesWhoHoldsMostWhenAllHoldTooMuch) {
    server::ReceiveLimits limits;
    limits.memory = 100;
    listen(limits);
    connect(std::string(70, 'x'));
    connect(std::string(20, 'x'));
    EXPECT_TRUE(ends.empty());
    connect(std::string(20, 'x'));
    EXPECT_EQ(ends, std::vector<std::string>{"closed: it held the most of the memory for all"});
    clients[1].non_blocking(true);
    std::array<char, 1> byte{};
    asio::error_code error;
    clients[1].read_some(asio::buffer(byte), error);
    EXPECT_EQ(error, asio::error::would_block) << "the others stay";
}

// A peer that sends until it sees the end, and then still has in doubt what is not acknowledged.
TEST_F(Receiving, TakesAllThatWasAcknowledgedBeforeItStops) {
    listen({});
    connect("known");
    tcp::socket& client = clients.back();
    std::size_t acknowledged = 5;
    std::thread peer([&] {
        const std::vector<char> bytes(100000);
        const int fd = client.native_handle();
        pollfd watch{fd, POLLOUT | POLLRDHUP, 0};
        while (poll(&watch, 1, 1000) == 1 && (watch.revents & POLLRDHUP) == 0)
            acknowledged += static_cast<std::size_t>(
                std::max<ssize_t>(0, send(fd, bytes.data(), bytes.size(), MSG_DONTWAIT)));
        int open = 1;
        for (int i = 0; i < 1000 && open > 0; ++i, usleep(1000)) ioctl(fd, SIOCOUTQ, &open);
        acknowledged -= static_cast<std::size_t>(open);
        client.close();
    });
    io.run_for(std::chrono::milliseconds(50));
    receiver->stop(server::Receiver::Clock::now() + std::chrono::milliseconds(500));
    io.run();
    peer.join();
    EXPECT_EQ(taken, acknowledged);
    EXPECT_EQ(ends, std::vector<std::string>{"the server stops"});
}

}  // namespace
