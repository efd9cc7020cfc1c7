#include "transport/NetworkAgent.h"

#include <numeric>

#include "TransportFixture.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

class NetworkAgentTest : public TransportFixture {
protected:
    void runOne() {
        start();
        runNetworkAgent(0);
    }
    NetworkAgentMgr* manager() { return naMgr_.load(); }
    int send(const std::string& text, long events = 0, unsigned long connection = 0) {
        PacketInfo info{connection, false, {}};
        info.ends.add(text.size(), events);
        return manager()->sendData(this, text.data(), static_cast<int>(text.size()), info);
    }
    int sendInit(unsigned long connection) {
        return manager()->sendData(this, "init", 4, {connection, true, {}});
    }
    std::string got(std::size_t connection = 0) const {
        const Bytes bytes = server.bytes(connection);
        return {bytes.begin(), bytes.end()};
    }
    long texts(std::string_view part) const {
        long count = 0;
        for (const FakeQlog::Line& line : qlog.lines())
            if (line.text.find(part) != std::string::npos) ++count;
        return count;
    }
};

TEST_F(NetworkAgentTest, WritesOneRecordAPassAndNothingElse) {
    runOne();
    for (const char* text : {"one", "two", "three"}) EXPECT_EQ(send(text), 1);
    EXPECT_EQ(manager()->getTotalDataSize(), 11);
    gate.step("n0");
    ASSERT_TRUE(server.waitForBytes(0, 3));
    EXPECT_EQ(got(), "one");
    EXPECT_EQ(manager()->getTotalDataSize(), 8);
    gate.step("n0");
    gate.step("n0");
    ASSERT_TRUE(server.waitForBytes(0, 11));
    EXPECT_EQ(got(), "onetwothree");
    EXPECT_EQ(manager()->getTotalDataSize(), 0);
}

TEST_F(NetworkAgentTest, RefusesTheEleventhRecord) {
    runOne();
    for (int i = 0; i < 10; ++i) EXPECT_EQ(send("x"), 1) << i;
    EXPECT_EQ(send("x"), 0);
    EXPECT_EQ(qlog.messages(1057).size(), 1u);
    EXPECT_EQ(send(""), 1) << "a packet of no bytes takes no place";
    gate.step("n0");
    EXPECT_EQ(send("x"), 1);
    EXPECT_EQ(manager()->getTotalDataSize(), 10);
}

TEST_F(NetworkAgentTest, RejectsUntilTheLoopIsConnected) {
    start();
    EXPECT_EQ(send("x"), 0);
    EXPECT_EQ(qlog.messages(1056).size(), 1u);
    server.refuse();
    runNetworkAgent(0);
    EXPECT_FALSE(manager()->isReady(this));
    EXPECT_EQ(send("x"), 0);
    server.accept();
    gate.step("n0");
    EXPECT_TRUE(manager()->isReady(this));
    EXPECT_EQ(send("x"), 1);
}

TEST_F(NetworkAgentTest, KeepsTryingWhileConnectsAreRefused) {
    static OncePerMinute::Clock::time_point at;
    OncePerMinute::now = [] { return at; };
    server.refuse();
    runOne();
    for (int i = 0; i < 9; ++i) gate.step("n0");
    EXPECT_EQ(texts("socket connect() failure [127.0.0.1:"), 1) << "a day has 170,000 attempts";
    EXPECT_EQ(qlog.messages(1064).size(), 1u);
    at += std::chrono::seconds(60);
    gate.step("n0");
    EXPECT_EQ(qlog.messages(1064).size(), 2u);
    EXPECT_EQ(
        qlog.messages(1130).at(0).text,
        "No connection to PS yet: 11 attempts have failed; their reasons follow once a minute");
    OncePerMinute::now = [] { return OncePerMinute::Clock::now(); };
    server.accept();
    gate.step("n0");
    EXPECT_EQ(qlog.messages(1060).size(), 1u);
    EXPECT_EQ(qlog.messages(1063).size(), 1u);
}

TEST_F(NetworkAgentTest, StopsComplainingAboutTheLookup) {
    std::atomic<int> answer{0};
    lookupAnswer = [&] { return answer.load(); };
    runOne();
    for (int i = 0; i < 20; ++i) gate.step("n0");
    EXPECT_EQ(texts("Could not obtain PS proxy details from Kernel."), 5);
    EXPECT_EQ(qlog.messages(1065).size(), 1u);
    EXPECT_EQ(qlog.messages(1058).size(), 6u);
    answer = 1;
    gate.step("n0");
    EXPECT_TRUE(manager()->isReady(this));
}

struct LookupFault {
    const char* name;
    const char* method;
    const char* hostField;
    const char* portField;
    bool throws;
    std::size_t described;
};

class LookupFaults : public NetworkAgentTest, public testing::WithParamInterface<LookupFault> {};

TEST_P(LookupFaults, LeaveNoExceptionAndNoReferenceAndAreTriedAgain) {
    const LookupFault& fault = GetParam();
    javaSide = [&] {
        FakeJni::Class lookup = jni.defineClass("com/velora/publish/pe_lookup");
        lookup.staticMethod(fault.method, "()I",
                            [&](JNIEnv* caller, jobject, const FakeJni::Args&) {
                                if (fault.throws)
                                    jni.throwNow(caller, "java/lang/IllegalStateException");
                                return FakeJni::of(jint{1});
                            });
        const jstring host = fault.described > 0 ? jni.string("127.0.0.1") : nullptr;
        lookup.staticField(fault.hostField, "Ljava/lang/String;", FakeJni::of(host));
        lookup.staticField(fault.portField, "I", FakeJni::of(jint{server.port()}));
        lookup.staticField("sendBuffSize_", "I", FakeJni::of(jint{65536}));
    };
    runOne();
    EXPECT_FALSE(manager()->isReady(this));
    EXPECT_EQ(jni.described().size(), fault.described);
    for (int i = 0; i < 30; ++i) gate.step("n0");
    EXPECT_LE(jni.described().size(), 6u) << "standard error must not fill up";
    EXPECT_LE(jni.peakLocalRefs(workerEnvs["n0"]), 4);
}

INSTANTIATE_TEST_SUITE_P(
    Java, LookupFaults,
    testing::Values(LookupFault{"noMethod", "other", "hostName_", "port_", false, 1},
                    LookupFault{"noHostField", "initialize", "other", "port_", false, 1},
                    LookupFault{"noPortField", "initialize", "hostName_", "other", false, 1},
                    LookupFault{"nullHost", "initialize", "hostName_", "port_", false, 0},
                    LookupFault{"throws", "initialize", "hostName_", "port_", true, 1}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(NetworkAgentTest, AMissingLookupClassIsLookedForAgain) {
    javaSide = [] {};
    runOne();
    EXPECT_EQ(jni.described().size(), 1u);
    definePsLookup();
    gate.step("n0");
    EXPECT_TRUE(manager()->isReady(this));
}

TEST_F(NetworkAgentTest, ResetsTheConnectionAfterTheSetNumberOfPasses) {
    set("networkagent.socket.resettime", "10000");
    runOne();  // its first pass counts
    for (int i = 0; i < 18; ++i) gate.step("n0");
    EXPECT_EQ(manager()->lineOf(this).connection, 1u);
    gate.step("n0");
    EXPECT_EQ(manager()->lineOf(this).connection, 2u);
    for (int i = 0; i < 20; ++i) gate.step("n0");
    EXPECT_EQ(manager()->lineOf(this).connection, 3u);
}

TEST_F(NetworkAgentTest, WhatWaitsAtAResetOfOurOwnGoesOutBehindTheNextInitialRecords) {
    set("networkagent.socket.resettime", "500");  // in every pass
    runOne();
    sendInit(1);
    send("first", 5, 1);
    gate.step("n0");  // the initial records are never left behind
    gate.step("n0");
    EXPECT_EQ(manager()->lineOf(this).connection, 2u);
    EXPECT_EQ(send("late", 7, 1), 1) << "built before we reset the connection";
    for (int i = 0; i < 3; ++i) gate.step("n0");
    EXPECT_EQ(manager()->lineOf(this).connection, 2u) << "put off";
    EXPECT_EQ(sendInit(1), 0);
    EXPECT_EQ(sendInit(2), 1);
    for (int i = 0; i < 3; ++i) gate.step("n0");
    EXPECT_EQ(manager()->lineOf(this).connection, 3u);
    EXPECT_EQ(sendInit(3), 1);
    for (int i = 0; i < 3; ++i) gate.step("n0");
    ASSERT_TRUE(server.waitForBytes(2, 8));
    EXPECT_EQ(got(0) + "|" + got(1) + "|" + got(2), "init|initfirst|initlate");
    EXPECT_EQ(LossBook::total(), 0);
}

TEST_F(NetworkAgentTest, AResetTimeBelowThePeriodResetsNothing) {
    set("networkagent.socket.resettime", "499");
    runOne();
    for (int i = 0; i < 50; ++i) gate.step("n0");
    EXPECT_EQ(manager()->lineOf(this).connection, 1u);
}

TEST_F(NetworkAgentTest, CountsWhatABrokenConnectionTakesAlong) {
    runOne();
    ASSERT_TRUE(server.waitForConnections(1));
    send("first", 5, 1);
    gate.step("n0");
    ASSERT_TRUE(server.waitForBytes(0, 5));
    send("queued", 7, 1);
    send("queued too", 11, 1);
    server.endConnections();
    gate.step("n0");  // notices before it writes: what the system took now would be lost unseen
    EXPECT_FALSE(manager()->isReady(this));
    gate.step("n0");  // discards the queue, connects anew
    EXPECT_EQ(LossBook::of(Loss::connectionGone), 18);
    EXPECT_EQ(LossBook::total(), 18) << "the first has arrived";
    EXPECT_EQ(manager()->lineOf(this).connection, 2u);
    EXPECT_EQ(send("old", 1, 1), 0) << "built for the connection that has gone";
    EXPECT_EQ(send("new", 1, 2), 1);
    gate.step("n0");
    ASSERT_TRUE(server.waitForBytes(1, 3));
    EXPECT_EQ(got(1), "new");
    EXPECT_EQ(qlog.messages(1124).at(0).text,
              "Connection to PS ended [127.0.0.1:" + std::to_string(server.port()) +
                  "] after 1 packets with 5 records");
}

TEST_F(NetworkAgentTest, AnIdleConnectionThatEndsIsMadeAnew) {
    runOne();
    ASSERT_TRUE(server.waitForConnections(1));
    server.endConnections();
    gate.step("n0");
    gate.step("n0");
    EXPECT_EQ(manager()->lineOf(this).connection, 2u);
    EXPECT_TRUE(manager()->isReady(this));
}

TEST_F(NetworkAgentTest, CountsWrittenPacketsThatNeverLeftTheSendBuffer) {
    server.setManner(LoopbackServer::Manner::hanging);
    runOne();
    ASSERT_TRUE(server.waitForConnections(1));
    send(std::string(40000, 'x'), 5, 1);  // more than the server's system takes, less than ours
    gate.step("n0");
    send(std::string(8 << 20, 'x'), 7, 1);
    std::thread stepper([&] { gate.step("n0"); });  // stuck until the connection breaks
    while (manager()->getTotalDataSize() != 0) std::this_thread::yield();
    server.resetConnections();
    stepper.join();
    EXPECT_EQ(LossBook::of(Loss::writeFailed), 7);
    EXPECT_EQ(LossBook::of(Loss::notAcknowledged), 5);
    EXPECT_EQ(qlog.messages(1061).size(), 1u);
}

TEST_F(NetworkAgentTest, CountsTheRecordsThatABrokenConnectionCutOff) {
    server.setManner(LoopbackServer::Manner::hanging);
    runOne();
    ASSERT_TRUE(server.waitForConnections(1));
    const std::string big(8 << 20, 'x');
    PacketInfo info{1, false, {}};
    info.ends.add(100, 3);  // has arrived
    info.ends.add(4 << 20, 1);
    info.ends.add(big.size(), 7);
    manager()->sendData(this, big.data(), static_cast<int>(big.size()), info);
    std::thread stepper([&] { gate.step("n0"); });  // stuck until the connection breaks
    while (manager()->getTotalDataSize() != 0) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    server.resetConnections();
    stepper.join();
    EXPECT_EQ(LossBook::of(Loss::writeFailed), 8);
}

TEST_F(NetworkAgentTest, LeavesAServerThatTakesNothingAnyMore) {
    set("networkagent.socket.timeout", "2");
    server.setManner(LoopbackServer::Manner::hanging);
    runOne();
    ASSERT_TRUE(server.waitForConnections(1));
    send(std::string(40000, 'x'), 5, 1);
    for (int pass = 0; pass < 5; ++pass) gate.step("n0");
    EXPECT_TRUE(manager()->isReady(this)) << "its system took some of it in the first pass";
    gate.step("n0");
    EXPECT_FALSE(manager()->isReady(this));
    EXPECT_EQ(qlog.messages(1127).size(), 1u);
    EXPECT_EQ(LossBook::of(Loss::notAcknowledged), 5);
    server.setManner(LoopbackServer::Manner::reading);
    gate.step("n0");
    EXPECT_EQ(manager()->lineOf(this).connection, 2u);
    EXPECT_LT(server.bytes(0).size(), 40000u) << "nothing arrives that has been counted";
}

TEST_F(NetworkAgentTest, AFailedBindStillConnects) {
    set("networkagent.socket.ip", "203.0.113.77");
    set("networkagent.socket.port", "1");
    runOne();
    EXPECT_TRUE(qlog.logged("socket bind() failure [203.0.113.77:1]"));
    EXPECT_TRUE(manager()->isReady(this));
}

TEST_F(NetworkAgentTest, AHostNameIsNoAddress) {
    lookupHost = "localhost";
    runOne();
    EXPECT_FALSE(manager()->isReady(this));
    EXPECT_TRUE(qlog.logged("socket connect() failure [localhost:"));
}

// --- stopping ------------------------------------------------------------------------------------

TEST_F(NetworkAgentTest, StopsInEveryState) {
    start();
    manager()->stopNetworkAgent(env, 0);  // never started
    EXPECT_EQ(vm.waitedMs(), 0);

    server.refuse();
    runNetworkAgent(0);  // looking for the server
    gate.open();
    manager()->stopNetworkAgent(env, 0);
    join("n0");
    EXPECT_FALSE(manager()->isReady(this));
}

TEST_F(NetworkAgentTest, StopsWhileAWriteIsStuckAndCountsIt) {
    server.setManner(LoopbackServer::Manner::hanging);
    runOne();
    const std::string big(32 << 20, 'x');
    EXPECT_EQ(send(big, 3, 1), 1);
    EXPECT_EQ(send("next", 2, 1), 1);
    gate.open();
    while (manager()->getTotalDataSize() != 4) std::this_thread::yield();  // the big one is in hand
    manager()->stopNetworkAgent(env, 0);
    join("n0");
    EXPECT_EQ(LossBook::of(Loss::writeFailed), 3);
    EXPECT_EQ(LossBook::of(Loss::connectionGone), 2);
    EXPECT_EQ(manager()->getTotalDataSize(), 0);
}

TEST_F(NetworkAgentTest, StartedAgainItConnectsAnew) {
    runOne();
    gate.open();
    manager()->stopNetworkAgent(env, 0);
    join("n0");
    gate.close();
    runNetworkAgent(0);
    EXPECT_EQ(manager()->lineOf(this).connection, 2u);
    EXPECT_TRUE(manager()->lineOf(this).needsInit);
}

// --- the manager ---------------------------------------------------------------------------------

TEST_F(NetworkAgentTest, ClientsKeepTheirAgentsInTurn) {
    start(1, 3);
    const void* agents[4];
    int clients[4];
    for (int round = 0; round < 2; ++round)
        for (int i = 0; i < 4; ++i) {
            const void* const agent = manager()->lineOf(&clients[i]).agent;
            if (round == 0) agents[i] = agent;
            EXPECT_EQ(agent, agents[i]);
        }
    EXPECT_NE(agents[0], agents[1]);
    EXPECT_NE(agents[1], agents[2]);
    EXPECT_NE(agents[2], agents[0]);
    EXPECT_EQ(agents[0], agents[3]);
}

TEST_F(NetworkAgentTest, AStoppedManagerTakesNothing) {
    runOne();
    EXPECT_EQ(send("x"), 1);
    gate.open();
    manager()->stop();
    EXPECT_EQ(send("x"), 0);
    EXPECT_FALSE(manager()->isReady(this));
    EXPECT_EQ(manager()->getTotalDataSize(), 0);
    manager()->startNetworkAgent(env, 0);  // comes too late: returns at once
    EXPECT_EQ(qlog.messages(1067).size(), 1u);
}

TEST_F(NetworkAgentTest, AnImproperIdIsToldAndIgnored) {
    start(1, 2);
    manager()->startNetworkAgent(env, 2);
    manager()->stopNetworkAgent(env, -1);
    EXPECT_TRUE(qlog.logged("Trying to start Network agent with improper ID: 2 [0-1]"));
    EXPECT_TRUE(qlog.logged("Trying to start Network agent with improper ID: -1 [0-1]"));
}

TEST_F(NetworkAgentTest, BadSettingsAreReplacedAndTold) {
    set("networkagent.publish.frequency", "0");
    set("networkagent.socket.resettime", "100");
    set("networkagent.buffer.limit", "-3");
    set("networkagent.socket.timeout", "-9");
    runOne();
    EXPECT_EQ(qlog.messages(1101).size(), 3u);
    EXPECT_TRUE(manager()->isReady(this));
    EXPECT_EQ(send("x"), 1);
    EXPECT_EQ(send("x"), 0) << "a limit of one";
}

}  // namespace
