#include "foundation/Platform.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <ctime>
#include <string>

#include "foundation/ProcStat.h"

namespace {

TEST(Platform, TheWallClockIsTheSystems) {
    std::uint32_t sec = 0;
    std::uint32_t usec = 0;
    const std::time_t before = std::time(nullptr);
    getCurrentTime(&sec, &usec);
    EXPECT_GE(static_cast<std::time_t>(sec) + 1, before);
    EXPECT_LE(static_cast<std::time_t>(sec), std::time(nullptr) + 1);
    EXPECT_LT(usec, 1'000'000U);
}

TEST(Platform, ASignalDoesNotCutASleepShort) {
    struct sigaction quiet {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGUSR1, &quiet, nullptr);
    const pid_t sender = fork();
    if (sender == 0) {
        usleep(5000);
        kill(getppid(), SIGUSR1);
        _exit(0);
    }
    const auto start = std::chrono::steady_clock::now();
    thread_sleep(40);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(39));
    waitpid(sender, nullptr, 0);
    thread_sleep(0);
    thread_sleep(-1);
}

TEST(CommandLine, IsWhatMainGot) {
    EXPECT_EQ(readCommandLine(), testing::internal::GetArgvs());
}

// The test above in a process of its own, with an empty argument and one that no page holds.
TEST(CommandLine, MayBeOfAnyLength) {
    const std::string longOne(70000, 'x');
    const pid_t child = fork();
    if (child == 0) {
        execl("/proc/self/exe", "u", "--gtest_filter=CommandLine.IsWhatMainGot", "",
              longOne.c_str(), static_cast<char*>(nullptr));
        _exit(99);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

struct StatCase {
    const char* name;
    std::string stat;
    bool good;
    long long userMs, systemMs;
};

class ProcessStatTest : public ::testing::TestWithParam<StatCase> {};

TEST_P(ProcessStatTest, ReadsTicksBehindTheName) {
    const StatCase& c = GetParam();
    long long user = -1;
    long long system = -1;
    EXPECT_EQ(parseProcessCpuTimes(c.stat, 100, &user, &system), c.good);
    EXPECT_EQ(user, c.good ? c.userMs : -1);
    EXPECT_EQ(system, c.good ? c.systemMs : -1);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ProcessStatTest,
    testing::Values(
        StatCase{"usual", "42 (java) S 1 42 42 0 -1 4194560 9 8 7 6 123 45 3 2 20 0\n", true, 1230,
                 450},
        StatCase{"nameWithBlanksAndBrackets", "42 (a) R (1 2) S 1 2 3 4 5 6 7 8 9 10 11 12 13",
                 true, 110, 120},
        StatCase{"hugeTicks", "1 (x) S 1 2 3 4 5 6 7 8 9 10 18446744073709551615 0", true,
                 LLONG_MAX, 0},
        StatCase{"cutInside", "42 (java) S 1 42 42 0 -1 4194560 9 8 7 6 123", false, 0, 0},
        StatCase{"noName", "42 java S 1 42 42 0 -1 4194560 9 8 7 6 123 45", false, 0, 0},
        StatCase{"lettersForTicks", "42 (java) S 1 42 42 0 -1 4194560 9 8 7 6 12x 45", false, 0, 0},
        StatCase{"negativeTicks", "42 (java) S 1 42 42 0 -1 4194560 9 8 7 6 -1 45", false, 0, 0},
        StatCase{"tooManyDigits", "1 (x) S 1 2 3 4 5 6 7 8 9 10 99999999999999999999999 0", false,
                 0, 0},
        StatCase{"empty", "", false, 0, 0}),
    [](const auto& c) { return std::string(c.param.name); });

TEST(ProcStat, SystemTimesOfOldAndNewKernels) {
    unsigned long long out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_FALSE(parseSystemCpuTimes("", out));
    EXPECT_FALSE(parseSystemCpuTimes("cpu0 1 2 3 4\n", out));
    EXPECT_FALSE(parseSystemCpuTimes("cpu 1 2 3\ncpu0 1 2 3 4\n", out));
    EXPECT_FALSE(parseSystemCpuTimes("cpu 1 2 3 4 x\n", out));
    EXPECT_EQ(out[0] + out[7], 18U);  // untouched by failures
    EXPECT_TRUE(parseSystemCpuTimes("cpu  1 2 3 4\ncpu0 5 6 7 8\n", out));
    EXPECT_EQ(out[3], 4U);
    EXPECT_EQ(out[4] + out[7], 0U);
    EXPECT_TRUE(parseSystemCpuTimes("cpu  10 20 30 40 50 60 70 80 90 100\ncpu0 1\n", out));
    EXPECT_EQ(out[7], 80U);
}

TEST(ProcStat, ResidentBytes) {
    EXPECT_EQ(parseResidentBytes("1000 25 3 1 0 9 0\n", 4096), 25 * 4096);
    for (const char* damaged : {"", "1000", "1000 x", "1000 -4", "1 9223372036854775807"})
        EXPECT_EQ(parseResidentBytes(damaged, 4096), 0) << damaged;
}

// Against this very process: plausible, and moving the right way.
TEST(ProcStat, ThisProcessAndMachine) {
    long long user = -1;
    long long system = -1;
    ASSERT_TRUE(processCpuTimes(&user, &system));
    EXPECT_GE(user, 0);
    EXPECT_GE(system, 0);
    unsigned long long times[8] = {};
    ASSERT_TRUE(systemCpuTimes(times));
    EXPECT_GT(times[0] + times[2] + times[3], 0U);
    EXPECT_GE(cpuCount(), 1);
    EXPECT_GT(processResidentBytes(), 100'000);
    EXPECT_EQ(readProcFile("/proc/self/no-such-file"), "");
}

}  // namespace
