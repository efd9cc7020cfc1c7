// The registry: who is found, which ids are given, what happens when threads end, and that a record
// never disappears under a thread that is looking at it.
#include "event/ThreadMgr.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "event/LossBook.h"
#include "event/RecordPins.h"
#include "event/ThreadData.h"
#include "foundation/Utils.h"
#include "support/VelFixture.h"
#include "transport/EvtAgentMgr.h"
#include "unit/event/EventMaking.h"

extern "C" {
jstring Java_com_velora_probe_ThreadManager_getNativeProbeStatus(JNIEnv*, jclass);
jstring Java_com_velora_probe_ThreadManager_getNativeStoppedThreadIDs(JNIEnv*, jclass);
}

namespace {

// One event agent that stands still in its first wait, so that threads can be assigned and nothing
// is drained.
class HeldAgent {
public:
    HeldAgent(FakeJvmpi& vm, FakeJni& jni) {
        vm.onWait = [this](const std::string&, jlong) {
            if (std::this_thread::get_id() == runner_.get_id()) hold();
        };
        EvtAgentMgr::getInstance()->start();
        std::unique_lock guard(lock_);
        runner_ = std::thread([this, env = jni.newEnv()] {
            { const std::lock_guard started(lock_); }
            EvtAgentMgr::getInstance()->startEvtAgent(env, 0);
        });
        changed_.wait(guard, [this] { return held_; });
    }
    ~HeldAgent() {
        {
            const std::lock_guard guard(lock_);
            released_ = true;
        }
        changed_.notify_all();
        EvtAgentMgr::getInstance()->stop();
        runner_.join();
    }

private:
    void hold() {
        std::unique_lock guard(lock_);
        held_ = true;
        changed_.notify_all();
        changed_.wait(guard, [this] { return released_; });
    }

    std::mutex lock_;
    std::condition_variable changed_;
    bool held_ = false;
    bool released_ = false;
    std::thread runner_;
};

std::uint32_t frozenClock() {
    return 1000;
}

class ThreadMgrTest : public VelFixture {
protected:
    ThreadMgrTest() : mgr(*ThreadMgr::getInstance()) {
        clock_ = std::exchange(ThreadMgr::getTimeStamp, frozenClock);
        ThreadMgr::stopIndex_ = -1;
    }
    ~ThreadMgrTest() override {
        agent.reset();
        EvtAgentMgr::destroy();
        ThreadMgr::destroy();
        ThreadMgr::getTimeStamp = clock_;
    }

    // With its agent's own record, which has the first id: 1000.
    void startAll() {
        mgr.start();
        agent = std::make_unique<HeldAgent>(vm, jni);
    }

    // Runs on a thread of its own, to its end.
    template <typename Body>
    static void onThread(Body body) {
        std::thread(body).join();
    }

    ThreadMgr& mgr;
    std::unique_ptr<HeldAgent> agent;

private:
    std::uint32_t (*clock_)();
};

TEST_F(ThreadMgrTest, BeforeTheStartNothingIsServed) {
    EXPECT_EQ(mgr.getThreadData(env), nullptr);
    EXPECT_TRUE(qlog.logged("ThreadMgr not started, returning null"));
    EXPECT_EQ(mgr.getThreadCount(), 0);
    EXPECT_FALSE(mgr.deleteThreadData(nullptr));
    EXPECT_TRUE(qlog.logged("ThreadMgr not started, returning false"));
    JVMPI_Event event{};
    event.env_id = env;
    EXPECT_EQ(mgr.getThreadData(&event), nullptr);
    char name[] = "x";
    EXPECT_EQ(mgr.getThreadData(name, name), nullptr);
}

TEST_F(ThreadMgrTest, WithoutEventAgentsOrInterfaceNoRecordIsMade) {
    mgr.start();
    EXPECT_EQ(mgr.getThreadData(env), nullptr);
    EXPECT_TRUE(qlog.logged("EventMgr not ready, returning null"));
    startAll();
    jvmpi.store(nullptr);
    EXPECT_EQ(mgr.getThreadData(env), nullptr);
    jvmpi.store(vm.interface());
    EXPECT_NE(mgr.getThreadData(env), nullptr);
}

TEST_F(ThreadMgrTest, WithoutAMonitorForItsQueueAThreadGetsNoRecord) {
    startAll();
    testing::internal::CaptureStderr();
    vm.failCreate(1);
    EXPECT_THROW(mgr.getThreadData(env), std::bad_alloc);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(mgr.getThreadCount(), 1);
    EXPECT_NE(mgr.getThreadData(env), nullptr);
}

TEST_F(ThreadMgrTest, NullKeysAreRefused) {
    startAll();
    EXPECT_EQ(mgr.getThreadData(static_cast<JNIEnv*>(nullptr)), nullptr);
    EXPECT_TRUE(qlog.logged("NULL Env id"));
    EXPECT_EQ(mgr.getThreadData(static_cast<JVMPI_Event*>(nullptr)), nullptr);
    EXPECT_TRUE(qlog.logged("NULL env id in getThreadDataJVMPI"));
    EXPECT_EQ(mgr.getThreadDataIfPresent(nullptr), nullptr);
    EXPECT_EQ(mgr.createThreadData(nullptr), nullptr);
    EXPECT_TRUE(qlog.logged("Insertion into Hashtable failed (JNI based) for Thread with ID: 0"));
    EXPECT_FALSE(mgr.deleteThreadData(nullptr));
    EXPECT_FALSE(mgr.removeThreadData(nullptr));
    EXPECT_FALSE(mgr.updateOnThreadEnd(nullptr));
    EXPECT_FALSE(mgr.threadExists(4711));
}

TEST_F(ThreadMgrTest, AThreadKeepsItsRecordAndFindsItWithoutTheTable) {
    startAll();
    ThreadData* const mine = mgr.getThreadData(env);
    ASSERT_NE(mine, nullptr);
    EXPECT_EQ(mine->getThreadId(), env);
    EXPECT_EQ(mgr.getThreadCount(), 2);
    const long entered = vm.counts().enter;
    JVMPI_Event event{};
    event.env_id = env;
    EXPECT_EQ(mgr.getThreadData(env), mine);
    EXPECT_EQ(mgr.getThreadData(&event), mine);
    EXPECT_EQ(mgr.getThreadLocalStorage(env), mine);
    EXPECT_EQ(mgr.getThreadDataIfPresent(env), mine);
    EXPECT_EQ(vm.counts().enter, entered) << "a look-up took a lock";
    EXPECT_EQ(mgr.getThreadCount(), 2);
}

TEST_F(ThreadMgrTest, IdsStartAtTheClockAndSkipTheTaken) {
    startAll();  // the agent has 1000
    EXPECT_EQ(mgr.getThreadData(env)->getThreadIntId(), 1001U);
    JNIEnv* const other = jni.newEnv();
    EXPECT_EQ(mgr.getThreadData(other)->getThreadIntId(), 1002U);
    EXPECT_EQ(mgr.findJNIEnv(1002), other);
    EXPECT_TRUE(mgr.threadExists(1002));
    unsigned id = 0;
    EXPECT_TRUE(mgr.findThreadId(other, &id));
    EXPECT_EQ(id, 1002U);
    EXPECT_EQ(mgr.CastThreadId(other), 1002U);
    EXPECT_TRUE(mgr.removeThreadFromMap(1001U));
    EXPECT_FALSE(mgr.removeThreadFromMap(1001U));
    EXPECT_TRUE(mgr.removeThreadFromMap(other));
    EXPECT_EQ(mgr.findJNIEnv(1002), nullptr);
    EXPECT_FALSE(mgr.findThreadId(other, &id));
    EXPECT_EQ(mgr.CastThreadId(other), reinterpret_cast<std::uintptr_t>(other));
}

TEST_F(ThreadMgrTest, NoThreadHasTheIdZero) {
    ThreadMgr::getTimeStamp = [] { return std::uint32_t{0}; };
    startAll();
    EXPECT_EQ(mgr.getThreadData(env)->getThreadIntId(), 2U);
}

TEST_F(ThreadMgrTest, TheSpecialQueueNeedsNobodyReady) {
    ThreadData* const special = mgr.createSpecialEventQueue(env);
    ASSERT_NE(special, nullptr);
    EXPECT_EQ(special->getThreadIntId(), 1000U);
    EXPECT_EQ(mgr.createSpecialEventQueue(env), special);
    EXPECT_EQ(mgr.getThreadDataIfPresent(env), special);
}

TEST_F(ThreadMgrTest, AnEndedThreadIsUnregisteredAndItsQueueKept) {
    startAll();
    ThreadData* const ended = mgr.getThreadData(env);
    ended->appendEvent(new GCEvent(START));
    ended->setSQL(Utils::cstrdup("select"));
    ended->resetOnThreadEnd();
    EXPECT_FALSE(ended->isAlive());
    EXPECT_EQ(ended->getSQL(), nullptr);
    EXPECT_EQ(ended->getEvtQueueSize(), 1);
    EXPECT_TRUE(mgr.owns(ended));
    EXPECT_EQ(mgr.getThreadDataIfPresent(env), nullptr);
    EXPECT_EQ(mgr.findJNIEnv(1001), nullptr);
    EXPECT_EQ(mgr.getAllStoppedThreadIDs(), 1);
    EXPECT_EQ(ThreadMgr::stoppedTIDCopyArr_[0], 1001U);
    EXPECT_FALSE(mgr.updateOnThreadEnd(env));
    EXPECT_TRUE(qlog.logged("ThreadData was not there in table, TID: "));
    EXPECT_TRUE(qlog.logged("Removal from the thread map failed"));
}

TEST_F(ThreadMgrTest, AReusedEnvGetsARecordOfItsOwn) {
    startAll();
    ThreadData* const first = mgr.getThreadData(env);
    first->resetOnThreadEnd();
    ThreadData* const second = mgr.getThreadData(env);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, first);
    EXPECT_TRUE(second->isAlive());
    // The same, with the old owner's memory of it on another operating-system thread.
    JNIEnv* const shared = jni.newEnv();
    ThreadData* third = nullptr;
    onThread([&] { third = mgr.getThreadData(shared); });
    EXPECT_EQ(mgr.getThreadData(shared), third);
    onThread([&] { mgr.getThreadDataIfPresent(shared)->resetOnThreadEnd(); });
    ThreadData* const fourth = mgr.getThreadData(shared);
    EXPECT_NE(fourth, third);
    EXPECT_TRUE(fourth->isAlive());
}

// Deleting is the draining agent's business; here the test stands in for it, with a record that no
// agent has.
TEST_F(ThreadMgrTest, DeletingReleasesTheRecordAndBooksItsEvents) {
    mgr.start();
    ThreadData* const ended = mgr.createSpecialEventQueue(env);
    ended->appendEvent(make::event<GCEvent>(START).release());
    ended->resetOnThreadEnd();
    const long before = LossBook::of(Loss::threadEnded);
    ended->pid_ = 42;
    traceFrom(kDebugMax);
    EXPECT_TRUE(mgr.deleteThreadData(ended));
    EXPECT_TRUE(qlog.logged("Thread being deleted.   pid = 42"));
    EXPECT_EQ(LossBook::of(Loss::threadEnded), before + 1);
    EXPECT_FALSE(mgr.owns(ended));
    EXPECT_EQ(RecordPins::waiting(), 0U);
}

TEST_F(ThreadMgrTest, ARecordStaysWhileAnotherThreadLooksAtIt) {
    mgr.start();
    std::mutex turn;
    std::condition_variable changed;
    int step = 0;
    const auto go = [&](int to) {
        const std::lock_guard guard(turn);
        step = to;
        changed.notify_all();
    };
    const auto await = [&](int at) {
        std::unique_lock guard(turn);
        changed.wait(guard, [&] { return step >= at; });
    };
    ThreadData* const record = mgr.createSpecialEventQueue(env);
    std::thread reader([&] {
        ThreadData* const seen = mgr.getThreadDataIfPresent(env);
        go(1);
        await(2);
        // Deleted by now: it can be read, it takes nothing, and no fault follows.
        EXPECT_FALSE(seen->isAlive());
        seen->setCancelled(true);
        EXPECT_FALSE(seen->appendEvent(new GCEvent(START)));
        go(3);
        await(4);
    });
    await(1);
    record->resetOnThreadEnd();
    EXPECT_TRUE(mgr.deleteThreadData(record));
    EXPECT_EQ(RecordPins::waiting(), 1U);
    go(2);
    await(3);
    RecordPins::sweep();
    EXPECT_EQ(RecordPins::waiting(), 1U);
    go(4);
    reader.join();
    RecordPins::sweep();  // the thread has ended and looks no more
    EXPECT_EQ(RecordPins::waiting(), 0U);
}

TEST_F(ThreadMgrTest, StoppingTakesEveryRecordEndedOnesToo) {
    startAll();
    const long before = LossBook::total();
    ThreadData* const ended = mgr.getThreadData(jni.newEnv());
    ended->appendEvent(new GCEvent(START));
    ended->resetOnThreadEnd();
    mgr.getThreadData(env)->appendEvent(new GCEvent(START));
    agent
        .reset();  // its last pass may have discarded the ended thread's event for want of a server
    mgr.stop();
    EXPECT_EQ(LossBook::total(), before + 2);
    EXPECT_EQ(qlog.messages(1073).size(), 1U);
    EXPECT_EQ(mgr.getThreadDataIfPresent(env), nullptr);
    EXPECT_EQ(mgr.getThreadData(env), nullptr);
    EXPECT_FALSE(qlog.logged("Thread being deleted even before it died"));
    EXPECT_EQ(RecordPins::waiting(), 0U);
}

TEST_F(ThreadMgrTest, CopiesCarryTheProcessIdsOfEveryRecord) {
    EXPECT_EQ(mgr.getAllThreadDataCopies(), nullptr);
    startAll();
    mgr.getThreadData(env)->pid_ = 7;
    mgr.getThreadData(env)->ppid_ = 8;
    ThreadDataCopy** const copies = mgr.getAllThreadDataCopies();
    int count = 0;
    int sum = 0;
    for (; copies[count] != nullptr; ++count) {
        sum += copies[count]->getPID() * 10 + copies[count]->getPPID();
        delete copies[count];
    }
    delete[] copies;
    EXPECT_EQ(count, 2);
    EXPECT_EQ(sum, 78);
}

TEST_F(ThreadMgrTest, TheRingOfStoppedIdsHas301Slots) {
    EXPECT_EQ(mgr.getAllStoppedThreadIDs(), 0);
    for (unsigned id = 1; id <= 302; ++id) mgr.setThreadStopped(id);
    EXPECT_EQ(ThreadMgr::stoppedTIDArr_[0], 302U);
    EXPECT_EQ(ThreadMgr::stoppedTIDArr_[300], 301U);
    EXPECT_EQ(mgr.getAllStoppedThreadIDs(), 1);
    for (unsigned id = 1; id <= 301; ++id) mgr.setThreadStopped(id);
    EXPECT_EQ(mgr.takeStoppedThreadIDs().size(), 301U);
    for (unsigned id = 1; id <= 3; ++id) mgr.setThreadStopped(id);
    EXPECT_EQ(mgr.getAllStoppedThreadIDs(), 3);
    EXPECT_EQ(mgr.getAllStoppedThreadIDs(), 0);
}

TEST_F(ThreadMgrTest, StoppedIdsReachJavaAsAText) {
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_getNativeStoppedThreadIDs(env, nullptr), nullptr);
    mgr.setThreadStopped(7);
    mgr.setThreadStopped(12);
    jstring const ids = Java_com_velora_probe_ThreadManager_getNativeStoppedThreadIDs(env, nullptr);
    EXPECT_EQ(jni.text(ids), "                    7;                   12;");
    mgr.setThreadStopped(1);
    jni.fail("NewStringUTF");
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_getNativeStoppedThreadIDs(env, nullptr), nullptr);
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_getNativeProbeStatus(env, nullptr), nullptr);
    jni.returnToJava(env);
}

TEST_F(ThreadMgrTest, ThreadingModelIsDecidedByTheSecondProcessId) {
    EXPECT_EQ(mgr.setLinuxThreadingModel(100), ThreadModelUnknown);
    EXPECT_EQ(mgr.setLinuxThreadingModel(101), EachThreadIsAProcess);
    EXPECT_EQ(mgr.setLinuxThreadingModel(100), EachThreadIsAProcess);
    ThreadMgr another;
    another.setLinuxThreadingModel(100);
    EXPECT_EQ(another.setLinuxThreadingModel(100), AllThreadsInOneProcess);
}

// Natives on many threads, threads that end, an administrator who looks at others, and a probe that
// is stopped and started again meanwhile. The sanitizers are the judges.
TEST_F(ThreadMgrTest, StopsAndEndsDoNotDisturbRunningNatives) {
    traceFrom(QLG_LEVEL_INFO);
    startAll();
    constexpr int kThreads = 4;
    std::vector<JNIEnv*> envs;
    for (int i = 0; i < kThreads; ++i) envs.push_back(jni.newEnv());
    std::atomic<bool> over{false};
    std::atomic<long> appended{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, mine = envs[i]] {
            for (int call = 1; !over; ++call) {
                ThreadData* const record = mgr.getThreadData(mine);
                if (record == nullptr) continue;
                if (call % 8 == 0) std::this_thread::yield();  // let a stop come in between
                ++record->servletDepth_;
                if (record->appendEvent(new GCEvent(START))) ++appended;
                if (mgr.getThreadLocalStorage(mine) == record) --record->servletDepth_;
                if (call % 16 == 0) record->resetOnThreadEnd();
            }
        });
    std::thread administrator([&] {
        while (!over)
            for (JNIEnv* const theirs : envs)
                if (ThreadData* const record = mgr.getThreadDataIfPresent(theirs);
                    record != nullptr) {
                    record->setCancelled(!record->isCancelled());
                    std::this_thread::yield();
                    record->getEvtQueueSize();
                }
    });
    for (int round = 0; round < 10; ++round) {
        const long before = appended;
        while (appended < before + 100) std::this_thread::yield();
        agent.reset();
        mgr.stop();
        startAll();
    }
    over = true;
    for (std::thread& thread : threads) thread.join();
    administrator.join();
    agent.reset();
    mgr.stop();
    RecordPins::sweep();
    EXPECT_EQ(RecordPins::waiting(), 0U);
}

}  // namespace
