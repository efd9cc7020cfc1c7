// The slow roads of the raw monitor: contention, waiting, waking.
#include "jvmpi/Monitor.h"

#include <errno.h>
#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <bit>
#include <cstring>
#include <new>

namespace adapter {
namespace {

// The futex looks at 32 bits. The low half of the owner word holds kSleepers; two owners whose
// marks agree in it can only be confused while both have sleepers, and then sleeping on is right.
static_assert(std::endian::native == std::endian::little, "the owner word's low half comes first");

std::uint32_t* lowHalf(std::atomic<std::uintptr_t>& word) {
    return reinterpret_cast<std::uint32_t*>(&word);
}

// Sleeps while *word == expected, at most until the CLOCK_MONOTONIC time (null: without limit).
// False: time is up.
bool futexWait(std::uint32_t* word, std::uint32_t expected, const timespec* until) {
    const long rc = syscall(SYS_futex, word, FUTEX_WAIT_BITSET_PRIVATE, expected, until, nullptr,
                            FUTEX_BITSET_MATCH_ANY);
    return rc == 0 || errno != ETIMEDOUT;
}

void futexWake(std::uint32_t* word, int threads) {
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, threads, nullptr, nullptr, 0);
}

// The largest wait ends in some 290 million years; the kernel takes that as it is.
timespec deadlineIn(std::int64_t ms) {
    timespec at{};
    clock_gettime(CLOCK_MONOTONIC, &at);
    at.tv_sec += ms / 1000;
    at.tv_nsec += (ms % 1000) * 1000000;
    if (at.tv_nsec >= 1000000000) {
        at.tv_nsec -= 1000000000;
        ++at.tv_sec;
    }
    return at;
}

void relaxCpu() {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#endif
}

// How many turns to watch a held monitor before sleeping: the sections behind it are short, so its
// owner is usually gone sooner than a sleep and a wake-up take. With one processor the owner cannot
// run meanwhile.
int spinTurns() {
    static const int turns = [] {
        cpu_set_t mine;
        CPU_ZERO(&mine);
        const bool known = sched_getaffinity(0, sizeof mine, &mine) == 0;
        return known && CPU_COUNT(&mine) == 1 ? 0 : 100;
    }();
    return turns;
}

}  // namespace

Monitor* Monitor::create(const char* name) noexcept {
    Monitor* made = new (std::nothrow) Monitor;
    if (made != nullptr && name != nullptr) strncpy(made->name_, name, sizeof made->name_ - 1);
    return made;
}

void Monitor::enterSlowly(std::uintptr_t self, std::uintptr_t seen) noexcept {
    if ((seen & ~kSleepers) == self) {
        ++reentries_;
        return;
    }
    for (int turn = spinTurns(); turn > 0; --turn) {
        relaxCpu();
        seen = owner_.load(std::memory_order_relaxed);
        if (seen == 0 && owner_.compare_exchange_weak(seen, self, std::memory_order_acquire,
                                                      std::memory_order_relaxed)) {
            return;
        }
    }
    sleepUntilEntered(self);
}

void Monitor::sleepUntilEntered(std::uintptr_t self) noexcept {
    std::uintptr_t seen = owner_.load(std::memory_order_relaxed);
    for (;;) {
        if (seen == 0) {
            // Entered with the bit set: others may sleep on, and only this thread's exit will wake
            // them.
            if (owner_.compare_exchange_weak(seen, self | kSleepers, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
                return;
            }
            continue;
        }
        if ((seen & kSleepers) == 0 &&
            !owner_.compare_exchange_weak(seen, seen | kSleepers, std::memory_order_relaxed)) {
            continue;
        }
        futexWait(lowHalf(owner_), static_cast<std::uint32_t>(seen | kSleepers), nullptr);
        seen = owner_.load(std::memory_order_relaxed);
    }
}

// The monitor may be gone already when the wake-up is sent: its next owner may have destroyed it.
// The kernel then finds nobody at that address, or wakes a sleeper that checks and sleeps on.
void Monitor::wakeOne() noexcept {
    futexWake(lowHalf(owner_), 1);
}

void Monitor::wait(std::int64_t ms) noexcept {
    if (ms < 0 || !isMine()) return;
    // Read while owning: a notify that comes after the release changes it, so no wake-up is lost.
    const std::uint32_t before = notifications_.load(std::memory_order_relaxed);
    const std::uint32_t reentries = reentries_;
    const timespec until = deadlineIn(ms);
    reentries_ = 0;
    ++waiters_;
    release();
    auto* word = reinterpret_cast<std::uint32_t*>(&notifications_);
    while (notifications_.load(std::memory_order_relaxed) == before &&
           futexWait(word, before, ms == 0 ? nullptr : &until)) {
    }
    enter();
    --waiters_;
    reentries_ = reentries;
}

void Monitor::notifyAll() noexcept {
    if (!isMine() || waiters_ == 0) return;
    notifications_.fetch_add(1, std::memory_order_relaxed);
    futexWake(reinterpret_cast<std::uint32_t*>(&notifications_), INT32_MAX);
}

}  // namespace adapter
