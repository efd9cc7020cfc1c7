// The raw monitor without a VM: exclusion, waiting, waking, and what happens to those who do not
// own it.
#include "jvmpi/Monitor.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace adapter {
namespace {

using Clock = std::chrono::steady_clock;

std::int64_t msSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

class MonitorTest : public testing::Test {
protected:
    // Runs n bodies on threads of their own and waits for them.
    template <typename Body>
    void onThreads(int n, Body body) {
        std::vector<std::thread> threads;
        for (int i = 0; i < n; ++i) threads.emplace_back(body, i);
        for (std::thread& thread : threads) thread.join();
    }

    // Whether another thread can enter within the time given; one that cannot does so later.
    bool isFree(std::chrono::milliseconds within = std::chrono::milliseconds(50)) {
        std::unique_lock lock(freeLock_);
        entered_ = false;
        std::thread other([this] {
            monitor_->enter();
            {
                const std::lock_guard guard(freeLock_);
                entered_ = true;
            }
            entering_.notify_one();
            monitor_->exit();
        });
        const bool free = entering_.wait_for(lock, within, [this] { return entered_; });
        lock.unlock();
        if (!free) {
            pending_.push_back(std::move(other));
        } else {
            other.join();
        }
        return free;
    }

    void TearDown() override {
        for (std::thread& thread : pending_) thread.join();
        EXPECT_TRUE(isFree(std::chrono::seconds(20))) << "left held";
    }

    std::unique_ptr<Monitor> monitor_{Monitor::create("_test")};
    std::mutex freeLock_;
    std::condition_variable entering_;
    bool entered_ = false;
    std::vector<std::thread> pending_;
};

TEST_F(MonitorTest, NameIsCopiedAndCut) {
    std::string name(100, 'x');
    const std::unique_ptr<Monitor> made(Monitor::create(name.c_str()));
    name.assign("changed");
    EXPECT_EQ(made->name(), std::string(63, 'x'));
    const std::unique_ptr<Monitor> nameless(Monitor::create(nullptr));
    EXPECT_STREQ(nameless->name(), "");
}

TEST_F(MonitorTest, ReentriesMustAllBeLeft) {
    monitor_->enter();
    monitor_->enter();
    monitor_->enter();
    monitor_->exit();
    monitor_->exit();
    EXPECT_FALSE(isFree());
    EXPECT_TRUE(monitor_->isMine());
    monitor_->exit();
    EXPECT_FALSE(monitor_->isMine());
}

TEST_F(MonitorTest, StrangersChangeNothing) {
    monitor_->enter();
    std::thread stranger([this] {
        monitor_->exit();
        monitor_->notifyAll();
        monitor_->wait(0);  // would never return if it waited
    });
    stranger.join();
    EXPECT_FALSE(isFree());
    monitor_->exit();
    monitor_->exit();  // no owner any more
}

TEST_F(MonitorTest, NegativeWaitKeepsHolding) {
    monitor_->enter();
    const auto start = Clock::now();
    monitor_->wait(-1);
    monitor_->wait(INT64_MIN);
    EXPECT_LT(msSince(start), 5000);
    EXPECT_FALSE(isFree());
    monitor_->exit();
}

TEST_F(MonitorTest, TimedWaitEndsInTimeAndRestoresTheEntries) {
    monitor_->enter();
    monitor_->enter();
    const auto start = Clock::now();
    monitor_->wait(30);
    EXPECT_GE(msSince(start), 30);
    EXPECT_LT(msSince(start), 5000);
    monitor_->exit();
    EXPECT_FALSE(isFree());
    monitor_->exit();
}

TEST_F(MonitorTest, WaitLetsOthersInAlthoughEnteredTwice) {
    bool waiting = false;  // guarded by the monitor, as are the others
    bool answered = false;
    std::thread other([&] {
        for (;;) {
            monitor_->enter();
            if (waiting) break;
            monitor_->exit();
        }
        answered = true;
        monitor_->notifyAll();
        monitor_->exit();
    });
    monitor_->enter();
    monitor_->enter();
    waiting = true;
    while (!answered)
        monitor_->wait(INT64_MAX);  // the largest wait must not overflow into a short one
    monitor_->exit();
    EXPECT_TRUE(monitor_->isMine());
    monitor_->exit();
    other.join();
}

TEST_F(MonitorTest, NotifyAllWakesEveryWaiter) {
    constexpr int kWaiters = 6;
    int waiting = 0;
    bool go = false;
    int woken = 0;
    std::thread notifier([&] {
        for (;;) {
            monitor_->enter();
            if (waiting == kWaiters) break;
            monitor_->exit();
            std::this_thread::yield();
        }
        go = true;
        monitor_->notifyAll();
        monitor_->exit();
    });
    onThreads(kWaiters, [&](int) {
        monitor_->enter();
        ++waiting;
        while (!go) monitor_->wait(0);
        ++woken;
        monitor_->exit();
    });
    notifier.join();
    EXPECT_EQ(woken, kWaiters);
}

TEST_F(MonitorTest, ExcludesWhileManyFight) {
    constexpr int kThreads = 8;
    constexpr int kTurns = 20000;
    long count = 0;  // not atomic: only the monitor protects it
    onThreads(kThreads, [&](int i) {
        for (int turn = 0; turn < kTurns; ++turn) {
            monitor_->enter();
            if (turn % 3 == 0) monitor_->enter();
            ++count;
            if ((turn + i) % 1000 == 0) std::this_thread::yield();  // makes the others sleep
            if (turn % 3 == 0) monitor_->exit();
            monitor_->exit();
        }
    });
    EXPECT_EQ(count, static_cast<long>(kThreads) * kTurns);
}

// A hand-over-hand queue: no item may be lost and no thread left asleep, whatever overtakes
// whatever.
TEST_F(MonitorTest, ProducersAndConsumersLoseNothing) {
    constexpr int kPairs = 3;
    constexpr int kItems = 3000;
    constexpr int kCapacity = 2;
    int held = 0;
    long produced = 0;
    long consumed = 0;
    onThreads(2 * kPairs, [&](int i) {
        for (int n = 0; n < kItems; ++n) {
            monitor_->enter();
            if (i < kPairs) {
                while (held == kCapacity) monitor_->wait(0);
                ++held;
                ++produced;
            } else {
                while (held == 0) monitor_->wait(n % 2 == 0 ? 0 : 1);
                --held;
                ++consumed;
            }
            monitor_->notifyAll();
            monitor_->exit();
        }
    });
    EXPECT_EQ(produced, kPairs * kItems);
    EXPECT_EQ(consumed, produced);
    EXPECT_EQ(held, 0);
}

void ignoreSignal(int) {
}

TEST_F(MonitorTest, SignalsDoNotEndAWait) {
    struct sigaction action {};
    action.sa_handler = ignoreSignal;  // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    const pthread_t waiter = pthread_self();
    std::atomic<bool> done{false};
    std::thread disturber([&] {
        while (!done) {
            pthread_kill(waiter, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    monitor_->enter();
    const auto start = Clock::now();
    monitor_->wait(40);
    EXPECT_GE(msSince(start), 40);
    monitor_->exit();
    done = true;
    disturber.join();
}

// Agents destroy a monitor as soon as they own it last, while the previous owner is still on its
// way out.
TEST_F(MonitorTest, MayBeDestroyedRightAfterAnotherThreadLeft) {
    for (int i = 0; i < 2000; ++i) {
        Monitor* shared = Monitor::create("_short");
        shared->enter();
        std::thread last([shared] {
            shared->enter();
            shared->exit();
            delete shared;
        });
        shared->exit();
        last.join();
    }
}

}  // namespace
}  // namespace adapter
