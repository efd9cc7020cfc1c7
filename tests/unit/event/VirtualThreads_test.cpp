// Records of virtual threads: found on whatever carrier they are mounted, taken over by the next
// thread when one ends, and gone when nobody needs them.
#include "event/VirtualThreads.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <utility>

#include "event/RecordPins.h"
#include "event/ThreadAgents.h"
#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "support/VelFixture.h"
#include "unit/event/EventMaking.h"

class VirtualThreadsProbe {
public:
    static void forget() { VirtualThreads::forget(); }
};

namespace {

// A VM whose virtual threads are mounted by hand.
JVMPI_VirtualThreadHandlers handlers{};
struct VirtualThread {
    void* stored = nullptr;
    void end(JNIEnv* env) { handlers.ended(env, std::exchange(stored, nullptr)); }
    ~VirtualThread() {
        if (stored != nullptr) end(nullptr);
    }
};
jint offered = JVMPI_FOLLOWS_MOUNTS;
bool followed = false;
thread_local VirtualThread* onBoard = nullptr;
thread_local JNIEnv* carrier = nullptr;

JVMPI_VirtualThreads table = {
    .GetCurrentThread =
        [](JNIEnv** env, void** stored) {
            *env = carrier;
            *stored = onBoard == nullptr ? nullptr : onBoard->stored;
            return jint{onBoard == nullptr ? JVMPI_CARRIER_THREAD : JVMPI_VIRTUAL_THREAD};
        },
    .Follow =
        [](const JVMPI_VirtualThreadHandlers* wanted, jboolean mounts) {
            handlers = *wanted;
            followed = true;
            return mounts != JNI_TRUE && offered == JVMPI_FOLLOWS_MOUNTS ? JVMPI_FOLLOWS_ENDS
                                                                         : offered;
        },
    .Store = [](void* pointer) -> jint {
        onBoard->stored = pointer;
        return JVMPI_SUCCESS;
    },
};

bool tellsMounts() {
    return followed && offered == JVMPI_FOLLOWS_MOUNTS;
}

void mount(JNIEnv* env, VirtualThread& thread) {
    onBoard = &thread;
    carrier = env;
    if (tellsMounts()) handlers.mounted(env, thread.stored);
}

void unmount() {
    if (tellsMounts()) handlers.unmounted(carrier);
    onBoard = nullptr;
}

void end() {
    if (followed) onBoard->end(carrier);
    unmount();
}

class TakesAll : public ThreadAgents {
public:
    bool isReady() const override { return true; }
    int manageThreadData(ThreadData*) override { return 1; }
};

class VirtualThreadsTest : public VelFixture {
protected:
    VirtualThreadsTest() : mgr(*ThreadMgr::getInstance()) {
        vm.virtualThreads = &table;
        offered = JVMPI_FOLLOWS_MOUNTS;
        followed = false;
        carrier = env;
        ThreadMgr::useAgents(&agents);
        ThreadMgr::stopIndex_ = -1;
        mgr.start();
    }
    ~VirtualThreadsTest() override {
        ThreadMgr::destroy();
        ThreadMgr::useAgents(nullptr);
        VirtualThreadsProbe::forget();
        onBoard = nullptr;
    }

    // A virtual thread's record, from a call of its own; the thread goes on unmounted.
    ThreadData* capture(VirtualThread& thread) {
        mount(env, thread);
        ThreadData* const record = mgr.getThreadData(env);
        EXPECT_EQ(mgr.getThreadData(env), record);
        EXPECT_EQ(mgr.getThreadDataIfPresent(env), record);
        unmount();
        return record;
    }
    ThreadData* captureAndEnd(VirtualThread& thread) {
        mount(env, thread);
        ThreadData* const record = mgr.getThreadData(env);
        end();
        return record;
    }

    TakesAll agents;
    ThreadMgr& mgr;
};

TEST_F(VirtualThreadsTest, EachHasItsRecordOnWhateverCarrier) {
    ThreadData* const own = mgr.getThreadData(env);
    EXPECT_FALSE(followed) << "nothing is paid before a virtual thread asks";
    VirtualThread one;
    VirtualThread other;
    ThreadData* const first = capture(one);
    ThreadData* const second = capture(other);
    EXPECT_EQ((std::set{own, first, second, static_cast<ThreadData*>(nullptr)}.size()), 4U);
    JNIEnv* const elsewhere = jni.newEnv();
    std::thread([&] {
        carrier = elsewhere;
        EXPECT_NE(mgr.getThreadData(elsewhere), first);
        mount(elsewhere, one);
        EXPECT_EQ(mgr.getThreadData(elsewhere), first);
        // Asked for by its id, and by the carrier's environment from another thread.
        JNIEnv* const key = mgr.findJNIEnv(first->getThreadIntId());
        EXPECT_EQ(mgr.getThreadDataIfPresent(key), first);
        EXPECT_EQ(mgr.getThreadDataIfPresent(env), own);
        unsigned id = 0;
        EXPECT_TRUE(mgr.findThreadId(elsewhere, &id));
        EXPECT_EQ(id, first->getThreadIntId());
        unmount();
    }).join();
    EXPECT_EQ(mgr.getThreadData(env), own);
}

TEST_F(VirtualThreadsTest, CpuTimeIsThatOfItsMountedStretches) {
    VirtualThread one;
    ThreadData* const record = capture(one);
    record->mounted(0);
    const jlong before = record->cpuTime(0);
    record->unmounted(50);
    record->mounted(700000);
    EXPECT_EQ(record->cpuTime(700005), before + 55) << "the time between two mounts is nobody's";
    record->unmounted(700010);
    record->mounted(30);  // another carrier's clock
    EXPECT_EQ(record->cpuTime(70), before + 100);
}

TEST_F(VirtualThreadsTest, CpuTimeIsNotMeasuredWhereMountsAreNotTold) {
    offered = JVMPI_FOLLOWS_ENDS;
    VirtualThread one;
    VirtualThread other;
    ThreadData* const first = capture(one);
    EXPECT_NE(capture(other), first);
    EXPECT_EQ(capture(one), first);
    EXPECT_EQ(first->cpuTime(4711), -1);
    EXPECT_EQ(mgr.getThreadData(env)->cpuTime(4711), 4711) << "the carrier's own";
}

TEST_F(VirtualThreadsTest, WithoutAnyMeansThereIsNoRecordRatherThanTheCarriers) {
    offered = JVMPI_FOLLOWS_NOTHING;
    VirtualThread one;
    EXPECT_EQ(capture(one), nullptr);
    EXPECT_EQ(qlog.messages(1142).size(), 1U);
}

TEST_F(VirtualThreadsTest, AnEndedThreadsRecordIsTheNextOnesUnlessItsQueueIsLong) {
    VirtualThread one;
    mount(env, one);
    ThreadData* const record = mgr.getThreadData(env);
    record->servletDepth_ = 3;
    record->nestedRequestDepth_ = 1;
    record->appendEvent(make::event<GCEvent>(START).release());
    end();
    VirtualThread next;
    EXPECT_EQ(captureAndEnd(next), record);
    EXPECT_EQ(record->servletDepth_ + record->nestedRequestDepth_, 0);
    EXPECT_EQ(record->getEvtQueueSize(), 1) << "what is queued is sent";
    for (int queued = 1; queued < 2501; ++queued)
        record->appendEvent(make::event<GCEvent>(START).release());
    VirtualThread last;
    EXPECT_NE(captureAndEnd(last), record);
}

TEST_F(VirtualThreadsTest, RecordsThatNobodyNeedsGo) {
    const int before = mgr.getThreadCount();
    VirtualThread many[3];
    ThreadData* records[3];
    for (int i = 0; i < 3; ++i) {
        mount(env, many[i]);
        records[i] = mgr.getThreadData(env);
        unmount();
    }
    for (VirtualThread& thread : many) {
        mount(env, thread);
        end();
    }
    mgr.endUnusedSpares();
    EXPECT_EQ(mgr.getThreadCount(), before + 3) << "needed in this period";
    VirtualThread again;
    EXPECT_EQ(captureAndEnd(again), records[0]);
    mgr.endUnusedSpares();
    EXPECT_EQ(mgr.getThreadCount(), before + 1);
    EXPECT_EQ(mgr.takeStoppedThreadIDs().size(), 2U);
    EXPECT_TRUE(mgr.deleteThreadData(records[1]) && mgr.deleteThreadData(records[2]));
}

TEST_F(VirtualThreadsTest, AStopEmptiesTheRecordAndItsThreadGetsAnother) {
    VirtualThread one;
    ThreadData* const first = capture(one);
    mgr.stop();
    EXPECT_FALSE(first->isAlive()) << "its memory stays while the thread may look";
    mgr.start();
    mount(env, one);
    ThreadData* const second = mgr.getThreadData(env);
    EXPECT_TRUE(second->isAlive());
    EXPECT_EQ(RecordPins::waiting(), 0U) << "the first has gone";
    mgr.stop();
    EXPECT_EQ(RecordPins::waiting(), 1U);
    end();
    EXPECT_EQ(RecordPins::waiting(), 0U);
}

}  // namespace
