// One event agent: its packets, what it must drop, what it does while the server is away.
#include "transport/EventAgent.h"

#include "EventAgentFixture.h"

namespace {

constexpr int kSqlEnd = 10;
constexpr int kDropped = 11;
constexpr int kSampling = 39;
constexpr int kMethodName = 146;

TEST_F(EventAgentTest, AConnectionOpensWithTheInitialRecordsThenTheSamplingRates) {
    runAll();
    produce(newThread(), 2);
    pass();
    pass();
    const Received got = arrived();
    EXPECT_TRUE(got.initFirst);
    EXPECT_EQ(got.inits, 1);
    EXPECT_EQ(got.kinds, (std::vector<int>{kSampling, kSqlEnd, kSqlEnd}));
}

TEST_F(EventAgentTest, APacketIsTheHeaderWithTheCountAndTheRecordsBehindIt) {
    runReady();
    ThreadData* const thread = newThread();
    thread->threadIntId_ = 0x01020304;
    produce(thread, 2);
    pass();
    arrived();
    EXPECT_EQ(lastBytes(7 + 2 * 25),
              (std::vector<std::uint8_t>{0,  0, 0, 0, 2, 0x7F, 0x7F,  //
                                         10, 1, 2, 3, 4, 0,    0,    0, 0, 0,    0,    0,    0,
                                         0,  0, 0, 0, 0, 0,    0,    0, 0, 2,    0x7F, 0x7F, 10,
                                         1,  2, 3, 4, 0, 0,    0,    0, 0, 0,    0,    0,    0,
                                         0,  0, 0, 0, 0, 0,    0,    0, 2, 0x7F, 0x7F}));
}

TEST_F(EventAgentTest, APacketClosesBeyondItsSizeLess512Bytes) {
    set("internal.probe.event.packet.size", "4");
    runReady();
    const std::size_t before = settledBytes();
    ThreadData* const thread = newThread();
    produce(thread, 300);
    gate.step("e0");
    EXPECT_EQ(thread->getEvtQueue()->size(), 300 - 144);  // 7 + 144 * 25 = 3607 > 4096 - 512
    gate.step("n0");
    ASSERT_TRUE(server.waitUntil([] { return true; }));
    pass();
    pass();
    arrived();
    EXPECT_EQ(server.receivedBytes() - before, 3u * 7 + 300 * 25);
    expectBooksBalance();
}

TEST_F(EventAgentTest, AnEmptyPassSendsNothing) {
    runReady();
    const std::size_t before = settledBytes();
    pass();
    EXPECT_EQ(server.receivedBytes(), before);
    EXPECT_TRUE(qlog.messages(1041).empty());
}

// --- overflow ------------------------------------------------------------------------------------

TEST_F(EventAgentTest, DropsTheOldestDroppableEventsBeyondTheLimit) {
    set("internal.probe.event.queue.size.limit", "50");
    runReady();
    ThreadData* const thread = newThread();
    for (char id = 1; id <= 3; ++id) appendNamed(thread, id);
    produce(thread, 12, START);
    for (char id = 4; id <= 48; ++id) appendNamed(thread, id);  // 60 queued
    produced += 48;
    pass();
    Received got = arrived();
    EXPECT_EQ(got.dropRecords, 1);
    EXPECT_EQ(got.dropped, 7);  // of the 10 oldest three may not be dropped
    ASSERT_EQ(got.kinds.size(), 1u + 1 + 53);
    EXPECT_EQ(got.kinds[1], kDropped) << "the sampling record is the first";
    EXPECT_EQ(std::vector<int>(got.kinds.begin() + 2, got.kinds.begin() + 5),
              std::vector<int>(3, kMethodName))
        << "kept events stay ahead of newer ones";
    EXPECT_EQ(got.kinds[5], 9);
    EXPECT_EQ(qlog.messages(1044).size(), 1u);
    EXPECT_EQ(qlog.messages(1129).size(), 1u);
    EXPECT_EQ(thread->jniAddCounter_, thread->jniDeleteCounter_);
    expectBooksBalance();
}

// The marker itself puts the queue one over its limit, so that the next pass drops one more.
TEST_F(EventAgentTest, OverflowsAreToldOnceAMinuteWithTheirSum) {
    static OncePerMinute::Clock::time_point at;
    OncePerMinute::now = [] { return at; };
    set("internal.probe.event.queue.size.limit", "10");
    runReady();
    ThreadData* const threads[] = {newThread(), newThread()};
    for (int second = 0; second <= 60; second += 20) {
        for (ThreadData* const thread : threads) produce(thread, 15);  // 4 refused, 1 dropped
        at += std::chrono::seconds(20);
        pass();
    }
    OncePerMinute::now = [] { return OncePerMinute::Clock::now(); };
    EXPECT_EQ(qlog.messages(1044).size(), 2u);
    ASSERT_EQ(qlog.messages(1129).size(), 2u);
    const std::string text = qlog.messages(1129)[1].text;
    EXPECT_EQ(std::atol(text.c_str() + text.find(": ") + 2), 3 * 2 * 6) << text;
    arrived();
    expectBooksBalance();
}

TEST_F(EventAgentTest, TellsWhatTheFullQueueRefused) {
    set("internal.probe.event.queue.size.limit", "10");
    runReady();
    ThreadData* const thread = newThread();
    thread->threadIntId_ = 0x0A0B0C0D;
    produce(thread, 12, START);
    produce(thread, 3, END);
    EXPECT_EQ(thread->getEvtQueue()->size(), 11);
    pass();
    const Received got = arrived();
    EXPECT_EQ(got.dropped, 2 + 3 + 1);
    EXPECT_EQ(got.events, 9);
    EXPECT_EQ(lastBytes(31),
              (std::vector<std::uint8_t>{11, 10, 11, 12, 13, 0, 0, 0, 0, 0, 0, 0, 0, 0,    0,   0,
                                         0,  0,  0,  0,  0,  0, 0, 0, 0, 0, 0, 0, 0, 0x7F, 0x7F}))
        << "the marker has nothing left to tell";
    expectBooksBalance();
}

TEST_F(EventAgentTest, AMarkerCarriesWhatWasRefusedUntilItIsTaken) {
    set("internal.probe.event.queue.size.limit", "10");
    runReady();
    ThreadData* const thread = newThread();
    thread->threadIntId_ = 0x0A0B0C0D;
    produce(thread, 9);
    thread->appendEvent(new DroppedEvent(NOSTYPE));
    thread->sentDroppedEvent_ = true;
    produce(thread, 2, START);  // refused, as by a thread that is quicker than the drain
    produce(thread, 3, END);
    pass();
    arrived();
    EXPECT_EQ(lastBytes(26),
              (std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,    0,
                                         0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 3, 0x7F, 0x7F}));
    expectBooksBalance();
}

TEST_F(EventAgentTest, RefusedEventsOfAnEndedThreadAreStillTold) {
    set("internal.probe.event.queue.size.limit", "10");
    set("internal.probe.event.packet.size", "4");
    runReady();
    ThreadData* const thread = newThread();
    produce(thread, 14);
    pass();  // the marker told 4
    produce(thread, 10);
    thread->sentDroppedEvent_ = true;  // as if the marker had just been taken
    produce(thread, 5);
    end(thread);
    const int records = ThreadMgr::getInstance()->getThreadCount();
    pass();
    EXPECT_FALSE(ThreadMgr::getInstance()->owns(thread));
    EXPECT_LE(ThreadMgr::getInstance()->getThreadCount(), records);
    EXPECT_EQ(arrived().dropped, 4 + 1 + 5);
    expectBooksBalance();
}

// --- records that cannot be sent -----------------------------------------------------------------

TEST_F(EventAgentTest, ARecordThatFitsNoPacketIsLeftOutAndToldOncePerKind) {
    set("internal.probe.event.packet.size", "4");
    runReady();
    ThreadData* const thread = newThread();
    for (int i = 0; i < 3; ++i) {
        produceLong(thread, 5000);
        produce(thread, 1);
    }
    pass();
    EXPECT_EQ(arrived().events, 3);
    EXPECT_EQ(LossBook::of(Loss::tooLarge), 3);
    EXPECT_EQ(thread->jniAddCounter_, thread->jniDeleteCounter_);
    EXPECT_EQ(thread->getHeldBeyond(), 0U);
    EXPECT_EQ(qlog.messages(1123).size(), 1u);
    expectBooksBalance();
}

TEST_F(EventAgentTest, ARecordThatDoesNotFitWaitsForTheNextPacket) {
    set("internal.probe.event.packet.size", "4");
    runReady();
    ThreadData* const thread = newThread();
    produce(thread, 100);  // 2507 bytes: not full
    produceLong(thread, 2000);
    produce(thread, 2);
    gate.step("e0");
    EXPECT_EQ(thread->getEvtQueue()->size(), 3);
    pass();
    const Received got = arrived();
    EXPECT_EQ(got.kinds.at(101), 9) << "the order is kept";
    EXPECT_EQ(got.events, 103);
    expectBooksBalance();
}

TEST_F(EventAgentTest, AnEventWithoutARecordIsCounted) {
    runReady();
    ThreadData* const thread = newThread();
    thread->appendEvent(new ServerNameEvent(NOSTYPE));
    ++produced;
    produce(thread, 1);
    pass();
    EXPECT_EQ(arrived().events, 1);
    EXPECT_EQ(LossBook::of(Loss::notEncodable), 1);
    expectBooksBalance();
}

TEST_F(EventAgentTest, ARefusedPacketIsCounted) {
    set("networkagent.buffer.limit", "1");
    runReady();
    ThreadData* const thread = newThread();
    produce(thread, 4);
    gate.step("e0");
    produce(thread, 6);
    gate.step("e0");
    EXPECT_EQ(qlog.messages(1041).size(), 1u);
    EXPECT_EQ(LossBook::of(Loss::packetRefused), 6);
    pass();
    arrived();
    expectBooksBalance();
}

// --- the server away -----------------------------------------------------------------------------

TEST_F(EventAgentTest, CutsTheQueuesAfterThirtySecondsWithoutAServer) {
    server.refuse();
    runAll();
    ThreadData* const thread = newThread();
    produce(thread, 1500);
    for (int passes = 2; passes <= 14; ++passes) gate.step("e0");
    EXPECT_EQ(thread->getEvtQueue()->size(), 1500);
    gate.step("e0");
    gate.step("e0");
    EXPECT_EQ(thread->getEvtQueue()->size(), 1000);
    EXPECT_EQ(LossBook::of(Loss::serverAway), 500);
    server.accept();
    gate.step("n0");
    pass();
    pass();
    EXPECT_EQ(arrived().events, 1000);
    expectBooksBalance();
}

TEST_F(EventAgentTest, ALoopStartedAnewGivesTheServerItsThirtySecondsAgain) {
    server.refuse();
    runAll();
    for (int passes = 1; passes <= 17; ++passes) gate.step("e0");
    gate.release("e0");
    EvtAgentMgr::getInstance()->stopEvtAgent(0);
    join("e0");
    runEventAgent(0);
    ThreadData* const thread = newThread();
    produce(thread, 1500);
    for (int passes = 2; passes <= 14; ++passes) gate.step("e0");
    EXPECT_EQ(thread->getEvtQueue()->size(), 1500);
    gate.step("e0");
    gate.step("e0");
    EXPECT_EQ(thread->getEvtQueue()->size(), 1000);
}

TEST_F(EventAgentTest, EventsOfThreadsThatEndWhileTheServerIsAwayAreCounted) {
    set("internal.probe.event.queue.size.limit", "20");
    server.refuse();
    runAll();
    ThreadData* const thread = newThread();
    produce(thread, 25);
    end(thread);
    for (int i = 0; i < 8; ++i) gate.step("e0");
    EXPECT_FALSE(ThreadMgr::getInstance()->owns(thread));
    EXPECT_EQ(LossBook::of(Loss::threadEnded), 25);
    EXPECT_EQ(qlog.messages(1043).size(), 1u);
    expectBooksBalance();
}

TEST_F(EventAgentTest, AReconnectOpensAnewAndHasTheClassEventsSentAgain) {
    std::atomic<int> resends{0};
    jni.defineClass("com/velora/bcm/bootstrap/BcmRoot")
        .staticMethod("sendAllClassEvents", "()V", [&](JNIEnv*, jobject, const FakeJni::Args&) {
            ++resends;
            return FakeJni::none();
        });
    runReady();
    ThreadData* const thread = newThread();
    produce(thread, 3);
    pass();
    arrived();
    EXPECT_EQ(resends, 0);
    CommonEvent::setMaped(IIOP_CLIENT);
    server.endConnections();
    produce(thread, 5);
    pass();
    produce(thread, 7);
    pass();
    pass();
    pass();
    arrived();
    EXPECT_EQ(resends, 1);
    EXPECT_FALSE(CommonEvent::hasMaped(IIOP_CLIENT));  // names are sent again
    EXPECT_EQ(server.connections(), 2u);
    EXPECT_GE(LossBook::total(), 5);
    EXPECT_EQ(received().inits, 2);
    expectBooksBalance();
}

TEST_F(EventAgentTest, ResetsOfOurOwnLoseNothing) {
    set("networkagent.socket.resettime", "500");  // in every pass
    runReady(2, 2);
    for (int round = 0; round < 8; ++round) {
        ThreadData* const threads[] = {newThread(), newThread()};
        for (ThreadData* const thread : threads) {
            produce(thread, 5);
            end(thread);
        }
        for (int i = 0; i < round % 3; ++i) gate.step("n1");
        pass(2, 2);
    }
    for (int i = 0; i < 4; ++i) pass(2, 2);
    EXPECT_EQ(arrived().events, 80);
    EXPECT_EQ(LossBook::total(), 0);
    EXPECT_GT(server.connections(), 4u);
    expectBooksBalance();
}

TEST_F(EventAgentTest, AMissingRootClassIsToldOnceAndLeftAlone) {
    set("networkagent.socket.resettime", "500");  // a reset in every pass
    runReady();
    for (int i = 0; i < 10; ++i) pass();
    EXPECT_EQ(qlog.messages(1126).size(), 1u);
    int described = 0;
    for (const std::string& exception : jni.described())
        described += exception.find("BcmRoot") != std::string::npos ? 1 : 0;
    EXPECT_EQ(described, 1);
    arrived();
    EXPECT_TRUE(received().initFirst);
}

TEST_F(EventAgentTest, EveryConnectionOfAPoolOpensWithTheInitialRecords) {
    runReady(3, 3);
    std::vector<ThreadData*> threads;
    for (int i = 0; i < 6; ++i) threads.push_back(newThread());
    for (int round = 0; round < 3; ++round) {
        for (ThreadData* const thread : threads) produce(thread, 4);
        pass(3, 3);
        pass(3, 3);
        arrived();
        server.endConnections();
        for (int i = 0; i < 6; ++i) pass(3, 3);
    }
    arrived();
    EXPECT_GE(server.connections(), 6u);
    expectBooksBalance();
}

TEST_F(EventAgentTest, OthersOfTheLeadersConnectionWaitForItsInitialRecords) {
    start(3, 1);
    runNetworkAgent(0);
    for (const int id : {0, 1, 2}) runEventAgent(id);
    for (int i = 0; i < 6; ++i) produce(newThread(), 2);
    gate.step("e1");
    gate.step("e2");
    gate.step("n0");
    EXPECT_EQ(server.receivedBytes(), 0u);
    for (int i = 0; i < 4; ++i) pass(3, 1);
    EXPECT_EQ(arrived().inits, 1);
    expectBooksBalance();
}

}  // namespace
