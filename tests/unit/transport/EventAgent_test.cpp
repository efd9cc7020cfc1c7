#include "transport/EventAgent.h"

#include <cstring>
#include <thread>

#include "TransportFixture.h"
#include "agent/ProbeMgr.h"
#include "foundation/PropertyMgr.h"

namespace {

constexpr int kSqlEnd = 10;
constexpr int kDropped = 11;
constexpr int kSampling = 39;
constexpr int kMethodName = 146;

class EventAgentTest : public TransportFixture {
protected:
    // Both kinds of agents are up, the initial records are out, nothing is queued.
    void runReady(int eventAgents = 1, int networkAgents = 1) {
        runAll(eventAgents, networkAgents);
        pass(eventAgents, networkAgents);
        pass(eventAgents, networkAgents);
    }
    // Everybody makes one pass, event agents first, and the network agents get everything out.
    void pass(int eventAgents = 1, int networkAgents = 1) {
        for (int id = 0; id < eventAgents; ++id) gate.step("e" + std::to_string(id));
        for (int i = 0; i < 3; ++i)
            for (int id = 0; id < networkAgents; ++id) gate.step("n" + std::to_string(id));
    }
    // What arrived, once as many captured events have come as drop counts and losses leave over.
    Received arrived() {
        server.waitUntil([this] { return true; });
        Received got;
        for (int i = 0; i < 2000; ++i) {
            got = received();
            if (got.events + got.dropped + LossBook::total() >= produced) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return got;
    }
    // Bytes received once what runReady() sent has been read: the sampling record is its last.
    std::size_t settledBytes() {
        for (int i = 0; i < 10000 && received().samplings == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return server.receivedBytes();
    }
    static void appendNamed(ThreadData* thread, char id) {  // not droppable
        static char name[] = "m";
        auto* const event = new PortalMethodConstantEvent(NOSTYPE);
        event->methodId = id;
        event->methodName = name;
        thread->appendEvent(event);
    }
    // An SQL event with a text of so many characters.
    void produceLong(ThreadData* thread, std::size_t length) {
        auto* const event = new SQLEvent(START);
        event->data_source_name = emptyText();
        event->sql = new char[length + 1]{};
        std::memset(event->sql, 'x', length);
        ++produced;
        thread->appendEvent(event);
    }
    static void end(ThreadData* thread) { thread->resetOnThreadEnd(); }
    std::vector<std::uint8_t> lastBytes(std::size_t count, std::size_t connection = 0) {
        std::vector<std::uint8_t> all = server.bytes(connection);
        return {all.end() - static_cast<long>(std::min(count, all.size())), all.end()};
    }
};

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
    EXPECT_EQ(thread->jniAddCounter_, thread->jniDeleteCounter_);
    expectBooksBalance();
}

// The marker itself puts the queue one over its limit, so that the next pass drops one more.
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

// --- threads and agents --------------------------------------------------------------------------

TEST_F(EventAgentTest, AFreshManagerTakesNoThread) {
    ThreadData thread(env);
    EvtAgentMgr* const manager = EvtAgentMgr::getInstance();
    EXPECT_EQ(manager->manageThreadData(&thread), 0);
    manager->start();
    EXPECT_EQ(manager->manageThreadData(&thread), 0) << "no leader yet";
    EventAgent alone(7);
    EXPECT_EQ(alone.manageThreadData(&thread), 0);
    EXPECT_EQ(alone.manageThreadData(nullptr), 0);
    EXPECT_EQ(qlog.messages(1040).size(), 1u);
}

TEST_F(EventAgentTest, ThreadsGoRoundAndPastAStoppedAgent) {
    runAll(3, 1);
    EvtAgentMgr* const manager = evtMgr_.load();
    for (const int expected : {0, 1, 2, 0, 1}) EXPECT_EQ(manager->getRoundRobinIndex(), expected);
    gate.open();
    manager->stopEvtAgent(1);
    join("e1");
    for (const int expected : {2, 0, 0, 2, 0, 0})
        EXPECT_EQ(manager->getRoundRobinIndex(), expected);
}

TEST_F(EventAgentTest, ThreadsOfAStoppedAgentAreDrainedByALivingOne) {
    runReady(2, 1);
    ThreadData* const first = newThread();
    ThreadData* const second = newThread();
    produce(first, 5);
    produce(second, 6);
    gate.release("e1");
    evtMgr_.load()->stopEvtAgent(1);
    join("e1");
    produce(second, 4);
    produce(first, 1);
    pass(1, 1);
    pass(1, 1);
    EXPECT_EQ(arrived().events, 16);
    expectBooksBalance();
}

TEST_F(EventAgentTest, AnAgentStartedAgainTakesItsThreadsBack) {
    runReady();
    ThreadData* const thread = newThread();
    produce(thread, 5);
    gate.open();
    evtMgr_.load()->stopEvtAgent(0);
    join("e0");
    produce(thread, 2);
    gate.close();
    runEventAgent(0);
    pass();
    pass();
    EXPECT_EQ(arrived().events, 7);
    expectBooksBalance();
}

TEST_F(EventAgentTest, AStopOfTheProbeCountsWhatIsLeft) {
    runReady();
    ThreadData* const thread = newThread();
    produce(thread, 9);
    stopAll();
    expectBooksBalance();
    EXPECT_FALSE(evtMgr_.load()->isReady());
}

TEST_F(EventAgentTest, ManagersMayBeDestroyedWhileEverythingRuns) {
    runReady();
    ThreadData* const thread = newThread();
    produce(thread, 9);
    EvtAgentMgr* const events = evtMgr_.load();  // as a thread that is just inside
    NetworkAgentMgr* const network = naMgr_.load();
    gate.open();
    NetworkAgentMgr::destroy();
    EvtAgentMgr::destroy();
    EXPECT_EQ(naMgr_.load(), nullptr);
    EXPECT_EQ(evtMgr_.load(), nullptr);
    EXPECT_EQ(events->manageThreadData(thread), 0);
    EXPECT_FALSE(network->isReady(this));
    EXPECT_EQ(newThread(), nullptr);
    ThreadMgr::destroy();
    expectBooksBalance();
}

TEST_F(EventAgentTest, TheCountersOfAThreadMayWrap) {
    runReady();
    ThreadData* const thread = newThread();
    thread->jniAddCounter_ = 0xFFFFFFF0u;
    thread->jniDeleteCounter_ = 0xFFFFFFF0u;
    produce(thread, 10);
    pass();
    gate.step("e0");  // takes stock anew
    EXPECT_EQ(memMon_.load()->getMemoryTaken(),
              4000000u + 232u * static_cast<unsigned>(ThreadMgr::getInstance()->getThreadCount()) +
                  static_cast<unsigned long>(naMgr_.load()->getTotalDataSize()));
    EXPECT_FALSE(MemoryMonitor::isULimitReached());
}

TEST_F(EventAgentTest, AnImproperIdIsToldAndIgnored) {
    start(2, 1);
    evtMgr_.load()->startEvtAgent(env, 2);
    evtMgr_.load()->stopEvtAgent(-1);
    EXPECT_TRUE(qlog.logged("Trying to start event agent with improper ID: 2 [0-1]"));
    EXPECT_TRUE(qlog.logged("Trying to start event agent with improper ID: -1 [0-1]"));
}

struct BadSetting {
    const char* key;
    const char* value;
};

class BadSettings : public EventAgentTest, public testing::WithParamInterface<BadSetting> {};

TEST_P(BadSettings, StillCaptureAndSend) {
    set(GetParam().key, GetParam().value);
    start(PropertyMgr::getInstance()->getIntProperty("eventagent.pool.size", 1),
          PropertyMgr::getInstance()->getIntProperty("networkagent.pool.size", 1));
    EXPECT_FALSE(qlog.messages(1101).empty());
    runNetworkAgent(0);
    runEventAgent(0);
    ThreadData* const thread = newThread();
    ASSERT_NE(thread, nullptr);
    produce(thread, 1);
    pass();
    pass();
    EXPECT_EQ(arrived().events, 1);
}

INSTANTIATE_TEST_SUITE_P(Values, BadSettings,
                         testing::Values(BadSetting{"internal.probe.publishing.frequency", "0"},
                                         BadSetting{"internal.probe.publishing.frequency", "-2000"},
                                         BadSetting{"internal.probe.publishing.frequency",
                                                    "99999999999999999999"},
                                         BadSetting{"internal.probe.event.packet.size", "-5000"},
                                         BadSetting{"internal.probe.event.packet.size", "0"},
                                         BadSetting{"internal.probe.event.queue.size.limit", "0"},
                                         BadSetting{"eventagent.pool.size", "0"},
                                         BadSetting{"networkagent.pool.size", "-1"},
                                         BadSetting{"internal.memory.limit", "lots"}));

// --- the last flush ------------------------------------------------------------------------------

TEST_F(EventAgentTest, AFlushDoesNotWaitForThePeriods) {
    vm.realWaiting = true;  // the periods would take minutes
    set("internal.probe.publishing.frequency", "60000");
    set("networkagent.publish.frequency", "60000");
    set("internal.probe.event.packet.size", "4");
    gate.open();
    runAll();
    while (!naMgr_.load()->isAnyReady()) std::this_thread::yield();
    ThreadData* thread = nullptr;
    while ((thread = newThread()) == nullptr) std::this_thread::yield();
    produce(thread, 2000);
    EXPECT_TRUE(evtMgr_.load()->flush(20000));
    EXPECT_EQ(arrived().events, 2000);
    expectBooksBalance();
    EXPECT_FALSE(EvtAgentMgr::isFlushing());
}

TEST_F(EventAgentTest, AFlushWithoutAServerReturnsAtOnceAndCounts) {
    std::atomic<int> lookups{0};
    lookupAnswer = [&] { return ++lookups, 1; };
    vm.realWaiting = true;
    server.refuse();
    gate.open();
    runAll();
    ThreadData* thread = nullptr;
    while ((thread = newThread()) == nullptr) std::this_thread::yield();
    produce(thread, 30);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(evtMgr_.load()->flush(60000));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(LossBook::of(Loss::exit), 30);
    EXPECT_EQ(qlog.messages(1125).size(), 1u);
    expectBooksBalance();
    // The process may take long to exit: the server is asked for in the usual period again.
    const int asked = lookups;
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_LE(lookups, asked + 2);
}

TEST_F(EventAgentTest, AFlushToAServerThatDoesNotReadEndsInTimeAndCounts) {
    vm.realWaiting = true;
    set("internal.probe.event.packet.size", "100000");
    set("internal.probe.event.queue.size.limit", "1000000");
    server.setManner(LoopbackServer::Manner::hanging);
    gate.open();
    runAll();
    while (!naMgr_.load()->isAnyReady()) std::this_thread::yield();
    ThreadData* thread = nullptr;
    while ((thread = newThread()) == nullptr) std::this_thread::yield();
    produce(thread, 60000);  // 1.5 MB: more than both systems' buffers
    EXPECT_FALSE(evtMgr_.load()->flush(100));
    EXPECT_EQ(LossBook::total(), 60000);
    EXPECT_EQ(lostLines(), 60000);
}

// --- many at once --------------------------------------------------------------------------------

TEST_F(EventAgentTest, TheBooksBalanceUnderOverflowAndOutages) {
    set("internal.probe.event.queue.size.limit", "100");
    set("internal.probe.event.packet.size", "8");
    set("networkagent.buffer.limit", "2");
    gate.open();
    vm.onWait = [](const std::string&, jlong) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    };
    runAll(2, 2);
    while (!naMgr_.load()->isAnyReady() || !evtMgr_.load()->isReady()) std::this_thread::yield();

    std::atomic<long> made{0};
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p)
        producers.emplace_back([this, &made] {
            for (int life = 0; life < 3; ++life) {  // each a Java thread of its own
                JNIEnv* const mine = jni.newEnv();
                jni.bindThread(mine);
                ThreadData* const thread = ThreadMgr::getInstance()->getThreadData(mine);
                if (thread == nullptr) continue;
                for (int i = 0; i < 4000; ++i) {
                    auto* const event = new SQLEvent(i % 2 == 0 ? START : END);
                    event->threadId_ = thread->getThreadIntId();
                    event->data_source_name = emptyText();
                    event->sql = emptyText();
                    thread->appendEvent(event);
                    ++made;
                    if (i % 50 == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
                }
                thread->resetOnThreadEnd();
            }
        });
    for (int outage = 0; outage < 4; ++outage) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        server.refuse();
        server.endConnections();
        EXPECT_TRUE(server.waitUntilEnded());
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        server.accept();
    }
    for (std::thread& producer : producers) producer.join();
    produced = made;
    while (!naMgr_.load()->isAnyReady()) std::this_thread::yield();
    evtMgr_.load()->flush(10000);
    stopAll();
    EXPECT_TRUE(server.waitUntilEnded());
    const Received got = received();
    EXPECT_GT(got.events, 0);
    expectBooksBalance();
}

}  // namespace
