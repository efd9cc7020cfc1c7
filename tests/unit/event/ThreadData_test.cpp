// One thread's record: what its queue takes, what it refuses, and that nothing gets lost uncounted.
#include "event/ThreadData.h"

#include <gtest/gtest.h>

#include <thread>

#include "event/ControlEvents.h"
#include "event/LossBook.h"
#include "event/ThreadMgr.h"
#include "foundation/PropertyMgr.h"
#include "foundation/Utils.h"
#include "support/ThreadDataProbe.h"
#include "support/VelFixture.h"
#include "transport/MemoryMonitor.h"
#include "unit/event/EventMaking.h"

namespace {

class ThreadDataTest : public VelFixture {
protected:
    ThreadDataTest() { ThreadDataProbe::limit(3); }
    ~ThreadDataTest() override { ThreadMgr::destroy(); }

    static bool append(ThreadData& thread, EventType type = SERVLET, EventSubType phase = START) {
        if (type == DROPPED) return thread.appendEvent(new DroppedEvent(phase));
        return thread.appendEvent(new Event(type, phase, 10));
    }

    static std::vector<EventType> drain(ThreadData& thread) {
        std::vector<EventType> kinds;
        while (Event* const event = thread.getEvtQueue()->pop()) {
            kinds.push_back(event->getType());
            delete event;
        }
        return kinds;
    }

    ThreadData thread{env};
};

TEST_F(ThreadDataTest, AFullQueueRefusesAndHoldsOneMarker) {
    thread.threadIntId_ = 77;
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(append(thread));
    for (int i = 1; i <= 4; ++i) {
        EXPECT_FALSE(append(thread));
        EXPECT_EQ(thread.droppedEventCounter_, i);
        EXPECT_EQ(thread.getEvtQueueSize(), 4);
    }
    EXPECT_TRUE(thread.sentDroppedEvent_);
    for (int i = 0; i < 3; ++i) delete thread.getEvtQueue()->pop();
    const std::unique_ptr<Event> marker(thread.getEvtQueue()->pop());
    EXPECT_EQ(marker->getType(), DROPPED);
    EXPECT_EQ(marker->getSubType(), NOSTYPE);
    EXPECT_EQ(marker->threadId_, 77U);
}

TEST_F(ThreadDataTest, TheNextOverflowHasAMarkerOfItsOwn) {
    for (int i = 0; i < 4; ++i) append(thread);
    drain(thread);
    EXPECT_TRUE(thread.sentDroppedEvent_);
    EXPECT_TRUE(append(thread));
    EXPECT_FALSE(thread.sentDroppedEvent_);
    for (int i = 0; i < 3; ++i) append(thread);
    EXPECT_EQ(drain(thread), (std::vector{SERVLET, SERVLET, SERVLET, DROPPED}));
}

TEST_F(ThreadDataTest, WhatMustNotBeDroppedIsQueuedBeyondTheLimit) {
    for (int i = 0; i < 3; ++i) append(thread);
    for (const EventType kind : {CLASS, SAMPLING, DROPPED, PORTAL_METHOD_CONSTANT})
        EXPECT_TRUE(append(thread, kind)) << kind;
    EXPECT_FALSE(thread.hasRefusedCounts());
    for (int kind = 0; kind <= WS_FAULT; ++kind)
        EXPECT_EQ(Event(static_cast<EventType>(kind), START, 0).isDroppable(),
                  kind != 1 && kind != 13 && kind != 15 && kind != 44)
            << kind;
}

TEST_F(ThreadDataTest, RefusedEventsAreCountedInTheirClass) {
    for (int i = 0; i < 3; ++i) append(thread);
    const auto refuse = [&](EventType kind, EventSubType phase, int times) {
        for (int i = 0; i < times; ++i) EXPECT_FALSE(append(thread, kind, phase));
    };
    refuse(SERVLET, START, 1);
    refuse(LOCK_CONTENTION, END, 2);
    refuse(GC, START, 3);
    refuse(GPS, CONNECT, 4);  // not START, so an end
    refuse(METHOD, START, 5);
    refuse(METHOD, END, 6);
    refuse(SQL, START, 7);
    refuse(SQL, ERRORS, 8);

    DroppedEvent record(NOSTYPE);
    record.dropSQLStartCnt = 100;  // what it carries already stays
    thread.takeRefusedCounts(&record);
    EXPECT_EQ(record.dropRecStartCnt, 1 + 3);
    EXPECT_EQ(record.dropRecEndCnt, 2 + 4);
    EXPECT_EQ(record.dropMethStartCnt, 5);
    EXPECT_EQ(record.dropMethEndCnt, 6);
    EXPECT_EQ(record.dropSQLStartCnt, 107);
    EXPECT_EQ(record.dropSQLEndCnt, 8);
    EXPECT_FALSE(thread.hasRefusedCounts());
}

TEST_F(ThreadDataTest, EachKindIsChargedToItsCounter) {
    ThreadDataProbe::limit(100);
    append(thread, SERVLET);
    append(thread, CLASS);
    append(thread, METHOD);
    append(thread, METHOD);
    EXPECT_EQ(thread.jniAddCounter_, 10U);
    EXPECT_EQ(thread.jvmpiAddCounter_, 30U);
    EXPECT_EQ(thread.jniDeleteCounter_ + thread.jvmpiDeleteCounter_, 0U);
}

TEST_F(ThreadDataTest, ARefusedEventIsNotCharged) {
    for (int i = 0; i < 3; ++i) append(thread);
    const std::uint32_t charged = thread.jniAddCounter_;
    EXPECT_FALSE(append(thread));
    EXPECT_EQ(thread.jniAddCounter_, charged + EventCosts::DROP);  // the marker alone
}

TEST_F(ThreadDataTest, AnEndedThreadRefusesAndTheEventIsBooked) {
    thread.threadIntId_ = 77;
    append(thread);
    thread.resetOnThreadEnd();
    const long before = LossBook::of(Loss::threadEnded);
    EXPECT_FALSE(append(thread, SQL, END));
    EXPECT_TRUE(qlog.logged("Append Event Thread is dead: 0, EvtType: 7 Evt SubType: 1 TID: 77"));
    EXPECT_EQ(LossBook::of(Loss::threadEnded), before + 1);
    EXPECT_EQ(drain(thread), std::vector{SERVLET});  // what was queued before stays
}

TEST_F(ThreadDataTest, NoEventAndNoQueueAreTold) {
    EXPECT_FALSE(thread.appendEvent(nullptr));
    EXPECT_TRUE(qlog.logged("Append Event failed Evt is NULL "));
    VelList<Event*>* const queue = std::exchange(thread.evtQueue_, nullptr);
    EXPECT_FALSE(append(thread));
    EXPECT_FALSE(thread.appendEvent(nullptr));
    EXPECT_TRUE(qlog.logged("Append Event failed evtQueue is NULL "));
    EXPECT_EQ(thread.getEvtQueueSize(), 0);
    EXPECT_TRUE(qlog.logged("Event Queue is NULL, check.. EvtQueue: 0, TID: 0"));
    thread.evtQueue_ = queue;
}

TEST_F(ThreadDataTest, CpuTimeNeverGoesBack) {
    EXPECT_EQ(thread.saveAndTestCPUTime(9), 9);
    EXPECT_EQ(thread.saveAndTestCPUTime(5), 9);
    EXPECT_EQ(thread.saveAndTestCPUTime(10), 10);
}

TEST_F(ThreadDataTest, WhatDiesWithItsThreadIsBooked) {
    const long before = LossBook::of(Loss::threadEnded);
    {
        ThreadData ended(env);
        for (int i = 0; i < 5; ++i) append(ended);  // three queued, two refused, one marker
    }
    EXPECT_EQ(LossBook::of(Loss::threadEnded), before + 5);
}

TEST_F(ThreadDataTest, OnlyAReadyManagerMindsTheDeathOfALivingThread) {
    const std::string told = "Thread being deleted even before it died TID: 5";
    { ThreadData(env).threadIntId_ = 5; }
    EXPECT_FALSE(qlog.logged(told));
    ThreadMgr::getInstance()->start();
    { ThreadData(env).threadIntId_ = 5; }
    EXPECT_TRUE(qlog.logged(told));
    qlog.clearLines();
    {
        ThreadData ended(env);
        ended.resetOnThreadEnd();
    }
    EXPECT_FALSE(qlog.logged(told));
}

TEST_F(ThreadDataTest, AThreadStartEventGivesIdentityAndNames) {
    char name[] = "worker";
    JVMPI_Event event{};
    event.env_id = env;
    event.u.thread_start.thread_name = name;
    const ThreadData started(&event);
    EXPECT_EQ(started.getThreadId(), env);
    EXPECT_STREQ(started.getThreadName(), "worker");
    EXPECT_NE(started.getThreadName(), name);
    EXPECT_EQ(started.getGroupName(), nullptr);
    EXPECT_EQ(ThreadData(static_cast<JVMPI_Event*>(nullptr)).getThreadId(), nullptr);
}

TEST_F(ThreadDataTest, OwnedTextsAreReplacedWithoutLeakOrDangling) {
    thread.setThreadName(Utils::cstrdup("one"));
    const char* const held = thread.getThreadName();  // as a look-up by name may hold it
    thread.setThreadName(Utils::cstrdup("two"));
    EXPECT_STREQ(held, "one");
    thread.setPortalPageName(Utils::cstrdup("page"));
    thread.setPortalPageName(thread.getPortalPageName());
    EXPECT_STREQ(thread.getPortalPageName(), "page");
    thread.setSQL(Utils::cstrdup("select"));
    thread.setDSName(Utils::cstrdup("db"));
    thread.servletDepth_ = 2;
    thread.setSuspended(true);
    thread.deleteInFlightData();
    EXPECT_EQ(thread.getSQL(), nullptr);
    EXPECT_EQ(thread.getServletDepth(), 0);
    EXPECT_FALSE(thread.isSuspended());
}

TEST_F(ThreadDataTest, TheLimitComesFromTheSettingsOnceAndIsKeptSane) {
    ThreadDataProbe::limit(0);  // not read yet
    PropertyMgr::getInstance()->putProperty("internal.probe.event.queue.size.limit", "-4");
    EXPECT_TRUE(append(thread));
    EXPECT_FALSE(append(thread));  // at least one event fits
    EXPECT_EQ(qlog.messages(1101).size(), 1U);
    PropertyMgr::getInstance()->putProperty("internal.probe.event.queue.size.limit", "50");
    EXPECT_FALSE(append(thread));
    PropertyMgr::destroy();
}

// Several producers, as the special queue has, and one drain: what goes in comes out, or is
// counted.
class ThreadDataStress : public ThreadDataTest, public testing::WithParamInterface<long> {};

TEST_P(ThreadDataStress, InEqualsOutPlusDropped) {
    traceFrom(QLG_LEVEL_INFO);
    ThreadDataProbe::limit(GetParam());
    constexpr int kProducers = 4;
    constexpr int kEach = 5000;
    std::atomic<int> running{kProducers};
    std::atomic<long> accepted{0};
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([&, p] {
            for (int i = 0; i < kEach; ++i) {
                auto event = make::event<SQLEvent>((i & 1) == 0 ? START : END);
                event->sql = (i & 1) == 0 ? make::text("select") : emptyText();
                thread.saveAndTestCPUTime(i * kProducers + p);
                if (thread.appendEvent(event.release())) ++accepted;
            }
            --running;
        });

    long out = 0;
    DroppedEvent dropped(NOSTYPE);
    for (bool last = false; !last;) {
        last = running == 0;  // read first: one more round after the last producer
        while (Event* const event = thread.getEvtQueue()->pop()) {
            if (event->getType() == DROPPED)
                thread.takeRefusedCounts(&dropped);
            else
                ++out;
            MemoryMonitor::delFromMemCntr(event->getType(), event->size_, &thread);
            delete event;
        }
    }
    for (std::thread& producer : producers) producer.join();
    thread.takeRefusedCounts(&dropped);  // refused after the last marker

    EXPECT_EQ(out, accepted);
    EXPECT_EQ(out + dropped.dropSQLStartCnt + dropped.dropSQLEndCnt, kProducers * kEach);
    EXPECT_EQ(dropped.dropSQLStartCnt + dropped.dropSQLEndCnt, thread.droppedEventCounter_);
    EXPECT_EQ(thread.jniAddCounter_, thread.jniDeleteCounter_);
}

INSTANTIATE_TEST_SUITE_P(Limits, ThreadDataStress, testing::Values(1, 2, 10, 1000));

}  // namespace
