#include "foundation/ThreadCpuClock.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <string>
#include <thread>

#include "foundation/Platform.h"

namespace {

constexpr jlong kMs = 1'000'000;

jlong read(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * 1000 * kMs + now.tv_nsec;
}

void burn(jlong ms) {
    for (const jlong end = read(CLOCK_MONOTONIC) + ms * kMs; read(CLOCK_MONOTONIC) < end;)
        ThreadCpuClock::now();
}

// Whatever the machine can do, the clock answers: by itself where it is in use, else by system
// call.
class ThreadCpuClockTest : public ::testing::Test {
protected:
    ThreadCpuClockTest() { ThreadCpuClock::start(true); }
    ~ThreadCpuClockTest() override { ThreadCpuClock::stop(); }
};

struct WorkCase {
    const char* name;
    void (*work)();
};
class Work : public ThreadCpuClockTest, public ::testing::WithParamInterface<WorkCase> {};

TEST_P(Work, AgreesWithTheSystemCall) {
    const jlong mine = ThreadCpuClock::now();
    const jlong real = read(CLOCK_THREAD_CPUTIME_ID);
    for (int i = 0; i < 20; ++i) GetParam().work();
    const jlong mineUsed = ThreadCpuClock::now() - mine;
    const jlong realUsed = read(CLOCK_THREAD_CPUTIME_ID) - real;
    // What a hypervisor takes away between two switches counts here and not there.
    EXPECT_NEAR(static_cast<double>(mineUsed), static_cast<double>(realUsed),
                static_cast<double>(realUsed) * 0.2 + 3 * kMs);
}
INSTANTIATE_TEST_SUITE_P(Kinds, Work,
                         ::testing::Values(WorkCase{"blocking", [] { thread_sleep(5); }},
                                           WorkCase{"burning", [] { burn(5); }},
                                           WorkCase{"yielding",
                                                    [] {
                                                        for (int i = 0; i < 100; ++i) {
                                                            sched_yield();
                                                            ThreadCpuClock::now();
                                                        }
                                                    }},
                                           WorkCase{"byTurns",
                                                    [] {
                                                        burn(2);
                                                        thread_sleep(2);
                                                    }}),
                         [](const auto& info) { return std::string(info.param.name); });

// Two busy threads on one processor have half of it each: neither may be given the other's time.
TEST_F(ThreadCpuClockTest, PreemptedWorkIsNotCounted) {
    constexpr jlong kBusyMs = 200;
    std::array<jlong, 2> used{};
    const auto work = [&used](std::size_t i) {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(0, &one);
        if (sched_setaffinity(0, sizeof one, &one) != 0) return;  // not ours: nothing to show
        const jlong start = ThreadCpuClock::now();
        burn(kBusyMs);
        used[i] = ThreadCpuClock::now() - start;
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    first.join();
    second.join();
    EXPECT_LE(used[0] + used[1], kBusyMs * kMs * 3 / 2);
}

TEST_F(ThreadCpuClockTest, ReadsWallTimeAlong) {
    if (!ThreadCpuClock::inUse()) GTEST_SKIP() << "not usable on this machine";
    std::uint32_t sec = 0;
    std::uint32_t usec = 0;
    jlong cpu = 0;
    for (int i = 0; i < 1000 && !ThreadCpuClock::readBoth(&sec, &usec, &cpu); ++i)
        ThreadCpuClock::now();
    std::uint32_t wallSec = 0;
    std::uint32_t wallUsec = 0;
    getCurrentTime(&wallSec, &wallUsec);
    const auto apart = (std::int64_t{wallSec} - sec) * 1'000'000 + wallUsec - usec;
    EXPECT_LT(apart < 0 ? -apart : apart, 100'000) << "microseconds";
    EXPECT_LE(cpu, ThreadCpuClock::now());
}

TEST(ThreadCpuClock, IsTheSystemCallWhenNotWanted) {
    EXPECT_FALSE(ThreadCpuClock::start(false));
    std::uint32_t untouched = 7;
    jlong cpu = 0;
    EXPECT_FALSE(ThreadCpuClock::readBoth(&untouched, &untouched, &cpu));
    EXPECT_EQ(untouched, 7U);
    const jlong before = read(CLOCK_THREAD_CPUTIME_ID);
    EXPECT_GE(ThreadCpuClock::now(), before);
}

}  // namespace
