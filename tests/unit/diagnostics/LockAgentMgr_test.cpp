#include "diagnostics/LockAgentMgr.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "capture/EventStamp.h"
#include "support/CaptureFixture.h"

namespace {

class LockAgentTest : public VelFixture {
protected:
    LockAgentTest() : locks(LockAgentMgr::getInstance()) {}
    ~LockAgentTest() override { LockAgentMgr::destroy(); }
    LockAgentMgr* locks;
};

TEST_F(LockAgentTest, EnteringMakesTheLock) {
    locks->start();
    EXPECT_TRUE(qlog.logged("LockAgentMgr started"));
    EXPECT_EQ(lockMgr_.load(), locks);
    EXPECT_FALSE(locks->exitManagedLock("a"));
    EXPECT_TRUE(locks->enterManagedLock("a"));
    EXPECT_EQ(vm.heldMonitors().size(), 1U);
    EXPECT_TRUE(locks->exitManagedLock("a"));
    EXPECT_TRUE(vm.heldMonitors().empty());
}

TEST_F(LockAgentTest, NamesAreComparedByContent) {
    locks->start();
    const std::string one = "name";
    const std::string other = "name";
    VelLock* const made = locks->createManagedLock(one.c_str());
    EXPECT_EQ(locks->createManagedLock(other.c_str()), made);
    EXPECT_NE(locks->createManagedLock("names"), made);
}

TEST_F(LockAgentTest, NullIsRefused) {
    locks->start();
    EXPECT_EQ(locks->createManagedLock(nullptr), nullptr);
    EXPECT_FALSE(locks->enterManagedLock(nullptr));
    EXPECT_FALSE(locks->exitManagedLock(nullptr));
    EXPECT_FALSE(locks->destroyManagedLock(nullptr));
}

TEST_F(LockAgentTest, DestroyingForgetsNameAndLock) {
    locks->start();
    const std::size_t before = vm.liveMonitors().size();
    locks->createManagedLock("a");
    locks->createManagedLock("b");
    EXPECT_TRUE(locks->destroyManagedLock("a"));
    EXPECT_FALSE(locks->destroyManagedLock("a"));
    EXPECT_FALSE(locks->exitManagedLock("a"));
    EXPECT_EQ(vm.liveMonitors().size(), before + 1);
    EXPECT_TRUE(locks->enterManagedLock("b"));
    EXPECT_TRUE(locks->exitManagedLock("b"));
}

TEST_F(LockAgentTest, StopDestroysEveryLockAndTheManagerGoesOn) {
    locks->start();
    const std::size_t before = vm.liveMonitors().size();
    for (int i = 0; i < 40; ++i) locks->createManagedLock(std::to_string(i).c_str());
    locks->stop();
    EXPECT_EQ(vm.liveMonitors().size(), before);
    EXPECT_TRUE(qlog.logged("LockAgentMgr stopped"));
    locks->start();
    EXPECT_TRUE(locks->enterManagedLock("1"));
    EXPECT_TRUE(locks->exitManagedLock("1"));
}

TEST_F(LockAgentTest, BeforeTheInterfaceTheSetUpIsRetried) {
    jvmpi = nullptr;
    EXPECT_FALSE(locks->initializeAfterJVMPI());
    locks->start();
    EXPECT_TRUE(qlog.logged("initializeAfterJVMPI was called before JVMPI was initialized"));
    EXPECT_FALSE(locks->enterManagedLock("early"));  // there is no monitor to enter
    locks->acquireGlobalLock();
    locks->releaseGlobalLock();
    locks->stop();
    jvmpi = vm.interface();
    locks->start();
    EXPECT_TRUE(locks->enterManagedLock("late"));
    EXPECT_TRUE(locks->exitManagedLock("late"));
    locks->acquireGlobalLock();
    EXPECT_EQ(vm.heldMonitors().size(), 1U);
    locks->releaseGlobalLock();
}

TEST_F(LockAgentTest, DestroyLeavesNoMonitorBehind) {
    locks->start();
    locks->createManagedLock("a");
    LockAgentMgr::destroy();
    EXPECT_EQ(lockMgr_.load(), nullptr);
    EXPECT_TRUE(vm.liveMonitors().empty());
}

// Four threads take turns through locks that a fifth keeps making and destroying under other names:
// the table changes under every look-up.
TEST_F(LockAgentTest, LookUpsWhileTheTableChanges) {
    locks->start();
    locks->createManagedLock("shared");
    std::atomic<bool> stop{false};
    long counter = 0;  // guarded by "shared"
    std::thread churn([&] {
        for (int i = 0; !stop; i = (i + 1) % 64) {
            const std::string name = "churn" + std::to_string(i);
            locks->createManagedLock(name.c_str());
            locks->destroyManagedLock(name.c_str());
        }
    });
    std::vector<std::thread> users;
    for (int t = 0; t < 4; ++t)
        users.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                ASSERT_TRUE(locks->enterManagedLock("shared"));
                ++counter;
                ASSERT_TRUE(locks->exitManagedLock("shared"));
            }
        });
    for (auto& user : users) user.join();
    stop = true;
    churn.join();
    EXPECT_EQ(counter, 2000);
}

// --- the native
// -----------------------------------------------------------------------------------

class LockEventTest : public CaptureFixture {
protected:
    jboolean append(jbyte kind) {
        return Java_com_velora_probe_lock_LockAnalysisRuntime_appendEvent(
            env, nullptr, kind, jni.string(u"java/lang/Object"), 11, 4, jni.string(u"req"),
            jni.string(u"app"), 22, 33);
    }
};

struct KindCase {
    const char* name;
    jbyte kind;
    EventType type;
    EventSubType phase;
};
class LockKinds : public LockEventTest, public ::testing::WithParamInterface<KindCase> {};

TEST_P(LockKinds, BecomeEvents) {
    thread->servletDepth_ = 2;
    EXPECT_EQ(append(GetParam().kind), JNI_TRUE);
    const auto event = takeOne<LockEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->getType(), GetParam().type);
    EXPECT_EQ(event->getSubType(), GetParam().phase);
    EXPECT_EQ(event->method_id, capture::methodIdFrom(11));
    EXPECT_STREQ(event->className, "java/lang/Object");
    EXPECT_EQ(event->depth, 2);
    EXPECT_EQ(event->threadId_, thread->getThreadIntId());
}

INSTANTIATE_TEST_SUITE_P(Kinds, LockKinds,
                         ::testing::Values(KindCase{"beginAcquisition", 1, LOCK_ACQUISITION, START},
                                           KindCase{"endAcquisition", 2, LOCK_ACQUISITION, END},
                                           KindCase{"beginContention", 3, LOCK_CONTENTION, START},
                                           KindCase{"endContention", 4, LOCK_CONTENTION, END},
                                           KindCase{"beginRelease", 5, LOCK_RELEASE, START},
                                           KindCase{"endRelease", 6, LOCK_RELEASE, END}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(LockEventTest, ContentionNamesTheOwner) {
    append(3);
    const auto event = takeOne<LockContentionEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->owningRequestType, 4);
    EXPECT_STREQ(event->owningRequestName, "req");
    EXPECT_STREQ(event->owningApplicationName, "app");
    EXPECT_EQ(event->owning_method_id, capture::methodIdFrom(22));
    EXPECT_EQ(event->size_, 96 + 16 + 3 + 3);
}

TEST_F(LockEventTest, NullNamesBecomeEmptyTexts) {
    EXPECT_EQ(Java_com_velora_probe_lock_LockAnalysisRuntime_appendEvent(
                  env, nullptr, 4, nullptr, 0, 0, nullptr, nullptr, 0, 0),
              JNI_TRUE);
    const auto event = takeOne<LockContentionEvent>();
    EXPECT_EQ(event->className, emptyText());
    EXPECT_EQ(event->owningRequestName, emptyText());
    EXPECT_EQ(event->owningApplicationName, emptyText());
}

TEST_F(LockEventTest, OtherKindsAndAClosedGateRecordNothing) {
    EXPECT_EQ(append(0), JNI_FALSE);
    EXPECT_EQ(append(7), JNI_FALSE);
    EXPECT_EQ(append(-1), JNI_FALSE);
    EXPECT_TRUE(take().empty());
    closeGate();
    EXPECT_EQ(append(1), JNI_FALSE);
    EXPECT_NE(takeOne<DroppedEvent>(), nullptr);
}

TEST_F(LockEventTest, AThreadWithoutARecordMakesNoEvent) {
    EXPECT_EQ(Java_com_velora_probe_lock_LockAnalysisRuntime_appendEvent(
                  jni.newEnv(), nullptr, 3, nullptr, 0, 0, nullptr, nullptr, 0, 0),
              JNI_FALSE);
}

}  // namespace
