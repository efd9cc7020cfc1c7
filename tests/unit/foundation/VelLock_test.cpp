#include "foundation/VelLock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "foundation/VelOsLock.h"
#include "support/VelFixture.h"

namespace {

class VelLockTest : public VelFixture {
protected:
    void TearDown() override {
        VelLock::destroyGlobalLock();
        VelFixture::TearDown();
    }

    static std::string nameOf(const VelLock& lock) {
        char name[50];
        std::snprintf(name, sizeof name, "_%pVelLock", static_cast<const void*>(&lock));
        return name;
    }
};

using Calls = std::vector<std::string>;

TEST_F(VelLockTest, EveryEntryPassesTheGlobalMonitor) {
    ASSERT_TRUE(VelLock::populateGlobalLock());
    VelLock lock(false);
    const std::string own = nameOf(lock);
    vm.recordCalls(true);
    EXPECT_TRUE(lock.enterLock());
    EXPECT_TRUE(lock.enterLock());
    EXPECT_TRUE(lock.exitLock());
    EXPECT_TRUE(lock.exitLock());
    EXPECT_EQ(vm.calls(),
              (Calls{"enter _VelLockGlobalLock", "create " + own, "exit _VelLockGlobalLock",
                     "enter " + own, "enter _VelLockGlobalLock", "exit _VelLockGlobalLock",
                     "enter " + own, "exit " + own, "exit " + own}));
}

TEST_F(VelLockTest, TheConstructorMakesTheMonitorUnlessToldNot) {
    const VelLock unmade(false);
    EXPECT_EQ(vm.counts().create, 0);
    {
        const VelLock made;
        EXPECT_EQ(vm.liveMonitors(), Calls{nameOf(made)});
    }
    EXPECT_EQ(vm.liveMonitors(), Calls());
    EXPECT_EQ(vm.counts().destroy, 1);
}

TEST_F(VelLockTest, IsMadeOnceTheInterfaceIsThere) {
    jvmpi.store(nullptr);
    VelLock lock;
    EXPECT_FALSE(lock.makeLock());
    EXPECT_FALSE(lock.enterLock());
    EXPECT_FALSE(lock.exitLock());
    EXPECT_FALSE(lock.wait(10));
    jvmpi.store(vm.interface());
    EXPECT_FALSE(lock.exitLock());  // never made
    EXPECT_TRUE(lock.enterLock());
    EXPECT_TRUE(lock.exitLock());
}

TEST_F(VelLockTest, AFailedCreationIsToldOnceAndTriedAgain) {
    VelLock lock(false);
    testing::internal::CaptureStderr();
    for (int i = 0; i < 2; ++i) {
        vm.failCreate(1);
        EXPECT_FALSE(lock.enterLock());
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "## ERROR: JVMPI could not create a Raw Monitor\n");
    EXPECT_TRUE(lock.enterLock());
    EXPECT_TRUE(lock.exitLock());
}

TEST_F(VelLockTest, WaitIsAPauseOfItsOwn) {
    VelLock lock(false);
    const std::string own = nameOf(lock);
    vm.recordCalls(true);
    EXPECT_TRUE(lock.wait(10000));
    EXPECT_EQ(vm.calls(),
              (Calls{"create " + own, "enter " + own, "wait " + own + " 10000", "exit " + own}));
    EXPECT_EQ(vm.waitedMs(), 10000);
}

TEST_F(VelLockTest, WaitNeverWaitsForEver) {
    VelLock lock;
    EXPECT_TRUE(lock.wait(0));
    EXPECT_TRUE(lock.wait(-1));
    EXPECT_EQ(vm.endlessWaits(), 0);
    EXPECT_EQ(vm.counts().enter, 2);
}

TEST_F(VelLockTest, NotifyAllCutsAWaitShort) {
    VelLock lock;
    vm.realWaiting = true;
    std::thread waiter([&] { EXPECT_TRUE(lock.wait(60000)); });
    while (vm.counts().wait == 0) std::this_thread::yield();
    lock.notifyAll();  // the waiter released the monitor before the notifier could enter it
    waiter.join();
    EXPECT_EQ(vm.counts().notify, 1);
}

TEST_F(VelLockTest, TheGlobalMonitorIsMadeOnce) {
    EXPECT_FALSE(VelLock::destroyGlobalLock());
    EXPECT_TRUE(VelLock::populateGlobalLock());
    EXPECT_TRUE(VelLock::populateGlobalLock());
    EXPECT_EQ(vm.counts().create, 1);
    EXPECT_TRUE(VelLock::destroyGlobalLock());
    EXPECT_FALSE(VelLock::destroyGlobalLock());
}

TEST_F(VelLockTest, TheGlobalMonitorSaysWhyItIsMissing) {
    vm.failCreate(1);
    EXPECT_FALSE(VelLock::populateGlobalLock());
    jvmpi.store(nullptr);
    EXPECT_FALSE(VelLock::populateGlobalLock());
    ASSERT_EQ(qlog.lines().size(), 2U);
    EXPECT_EQ(qlog.messages(1037).at(0).text,
              "JVMPI could not create a Raw Monitor for GlobalLock");
    EXPECT_EQ(qlog.messages(1038).at(0).text,
              "Global lock being created even before initialization of JVMPI");
    EXPECT_EQ(qlog.messages(1038).at(0).level, QLG_LEVEL_ERROR);
}

// With and without the global monitor, which is not there yet while the collector starts.
TEST_F(VelLockTest, LazyCreationMakesOneMonitorAndExcludes) {
    for (const bool global : {false, true}) {
        ASSERT_TRUE(!global || VelLock::populateGlobalLock());
        VelLock lock(false);
        int counter = 0;  // guarded by lock
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&] {
                for (int i = 0; i < 300; ++i) {
                    const VelLockGuard hold(lock);
                    ++counter;
                }
            });
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(counter, 4 * 300);
        EXPECT_EQ(vm.liveMonitors().size(), global ? 2U : 1U);
    }
}

TEST(VelOsLock, ExcludesAndPauses) {
    VelOsLock lock;
    int counter = 0;  // guarded by lock
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) {
                const VelOsLockGuard hold(&lock);
                ++counter;
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(counter, 3000);
    EXPECT_FALSE(lock.notifyAll());
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(lock.wait(15));
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(14));
    EXPECT_TRUE(lock.wait(0));
    EXPECT_TRUE(lock.wait(-5));
    const VelOsLockGuard nothing(nullptr);
}

}  // namespace
