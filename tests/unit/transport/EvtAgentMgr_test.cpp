// The pool of event agents: who takes which thread, stops and starts, settings, the last flush.
#include "transport/EvtAgentMgr.h"

#include <thread>

#include "EventAgentFixture.h"
#include "agent/ProbeMgr.h"
#include "foundation/OncePerMinute.h"
#include "foundation/PropertyMgr.h"
#include "transport/EventAgent.h"

namespace {

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

TEST_F(EventAgentTest, AllAgentsOfAPoolSendAgainWhenTheProbeWasStoppedInAnOutage) {
    runReady(2, 1);
    server.refuse();
    server.endConnections();
    pass(2, 1);
    pass(2, 1);
    gate.open();
    NetworkAgentMgr::getInstance()->stop();
    EvtAgentMgr::getInstance()->stop();
    for (const char* const name : {"e0", "e1", "n0"}) join(name);
    server.accept();
    gate.close();
    NetworkAgentMgr::getInstance()->start();
    EvtAgentMgr::getInstance()->start();
    runNetworkAgent(0);
    runEventAgent(0);
    runEventAgent(1);
    for (ThreadData* const thread : {newThread(), newThread()}) produce(thread, 5);
    for (int i = 0; i < 3; ++i) pass(2, 1);
    EXPECT_EQ(arrived().events, 10);
    expectBooksBalance();
}

TEST_F(EventAgentTest, LossesAreWrittenAtFirstAndThenOnceAMinute) {
    static OncePerMinute::Clock::time_point at;
    OncePerMinute::now = [] { return at; };
    for (int second = 0; second <= 60; second += 20) {
        LossBook::add(Loss::tooLarge, 2);
        at += std::chrono::seconds(20);
        LossBook::write(false);
    }
    OncePerMinute::now = [] { return OncePerMinute::Clock::now(); };
    ASSERT_EQ(qlog.messages(1121).size(), 2u);
    EXPECT_EQ(std::atol(qlog.messages(1121)[1].text.c_str() + 14), 6);
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

TEST_F(EventAgentTest, BeforeTheVmDiesTheLoopsEndAndCountWhatCameAfterTheFlush) {
    vm.realWaiting = true;
    set("internal.probe.publishing.frequency", "3600000");
    set("networkagent.publish.frequency", "3600000");
    gate.open();
    runAll();
    ThreadData* thread = nullptr;
    while ((thread = newThread()) == nullptr) std::this_thread::yield();
    evtMgr_.load()->flush(20000);
    produce(thread, 3);
    EXPECT_TRUE(evtMgr_.load()->endLoops(20000));
    join("e0");
    join("n0");
    EXPECT_EQ(LossBook::of(Loss::exit), 3);
    expectBooksBalance();
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
    EXPECT_GT(lostLines(), 0);
    // It has what its system had acknowledged, to the record; on a busy machine that is nothing.
    server.setManner(LoopbackServer::Manner::reading);
    stopAll();
    EXPECT_TRUE(server.waitUntilEnded());
    expectBooksBalance();
}

// --- many at once --------------------------------------------------------------------------------

TEST_F(EventAgentTest, TheBooksBalanceUnderOverflowAndOutages) {
    // Away means that no server is known. A listener that goes away would lose the connections that
    // the system has made and it has not, with bytes in them that count as delivered.
    std::atomic<bool> away{false};
    lookupAnswer = [&away] { return away ? 0 : 1; };
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
        away = true;
        for (int i = 0; i < 10000 && !server.allEnded(); ++i) {  // one more may be on its way
            server.endConnections();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_TRUE(server.allEnded());
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        away = false;
    }
    for (std::thread& producer : producers) producer.join();
    produced = made;
    while (!naMgr_.load()->isAnyReady()) std::this_thread::yield();
    ThreadData* last = nullptr;  // the others may have lived through outages only
    while ((last = newThread()) == nullptr) std::this_thread::yield();
    produce(last, 50);
    evtMgr_.load()->flush(10000);
    stopAll();
    EXPECT_TRUE(server.waitUntilEnded());
    const Received got = received();
    EXPECT_GT(got.events, 0);
    expectBooksBalance();
}

}  // namespace
