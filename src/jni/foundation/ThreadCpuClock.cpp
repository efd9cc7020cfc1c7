#include "foundation/ThreadCpuClock.h"

#include <sys/resource.h>

#include <atomic>
#include <cstddef>
#include <ctime>

#include "foundation/Platform.h"

#if defined(__x86_64__)

// The C library's word about the areas: distance from the thread pointer, and size (0: none).
// Weak, so that the library loads beside an older one.
extern "C" {
extern const std::ptrdiff_t __rseq_offset __attribute__((weak));
extern const unsigned int __rseq_size __attribute__((weak));
}

// A sequence of one instruction that nobody ever enters. The kernel wants the signature in front of
// the abort address, and the abort address outside of the sequence.
__asm__(
    ".pushsection .text\n"
    "velora_rseq_start: nop\n"
    "velora_rseq_end: nop\n"
    ".long 0x53053053\n"
    "velora_rseq_abort: ud2\n"
    ".popsection\n");
extern "C" {
extern const char velora_rseq_start[] __attribute__((visibility("hidden")));
extern const char velora_rseq_end[] __attribute__((visibility("hidden")));
extern const char velora_rseq_abort[] __attribute__((visibility("hidden")));
}

namespace {

// struct rseq_cs of the kernel's interface.
struct alignas(32) Descriptor {
    std::uint32_t version = 0;
    std::uint32_t flags = 0;
    const char* start = nullptr;
    std::uint64_t length = 0;
    const char* abort = nullptr;
};
Descriptor neverEntered;  // filled by start(), before any thread leaves it

// Where struct rseq keeps the processor's number and the descriptor.
constexpr std::ptrdiff_t kCpuId = 4;
constexpr std::ptrdiff_t kDescriptor = 8;

char* area() {
    char* threadPointer = nullptr;
    __asm__("mov %%fs:0, %0" : "=r"(threadPointer));
    return threadPointer + __rseq_offset;
}

bool areaExists() {
    return &__rseq_size != nullptr && &__rseq_offset != nullptr && __rseq_size != 0;
}

// Negative: the C library could not register this thread's area.
bool isRegistered() {
    return __atomic_load_n(reinterpret_cast<const std::int32_t*>(area() + kCpuId),
                           __ATOMIC_RELAXED) >= 0;
}

// The kernel writes the slot on this very thread, between two of its instructions.
std::uint64_t* slot() {
    return reinterpret_cast<std::uint64_t*>(area() + kDescriptor);
}
std::uint64_t mark() {
    return reinterpret_cast<std::uint64_t>(&neverEntered);
}
void leaveMark() {
    __atomic_store_n(slot(), mark(), __ATOMIC_RELAXED);
}
bool markStands() {
    return __atomic_load_n(slot(), __ATOMIC_RELAXED) == mark();
}

void describe() {
    neverEntered.start = velora_rseq_start;
    neverEntered.length = static_cast<std::uint64_t>(velora_rseq_end - velora_rseq_start);
    neverEntered.abort = velora_rseq_abort;
}

#else

namespace {

bool areaExists() {
    return false;
}
bool isRegistered() {
    return false;
}
void leaveMark() {
}
bool markStands() {
    return false;
}
void describe() {
}

#endif

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kMillisecond = 1'000'000;
constexpr std::int64_t kPreemptionLimit = kMillisecond;  // of the start-up test, ns
constexpr std::int64_t kNoise = kMillisecond;            // differences below say nothing

// Read on every event, written at start and when the clock is found wrong.
std::atomic<bool> used{false};

// Wall time less monotonic time, and when it was taken: the wall clock may be set.
std::atomic<std::int64_t> wallOffset{0};
std::atomic<std::int64_t> offsetTaken{-kSecond};

std::int64_t read(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

struct LastReading {
    std::int64_t cpu = 0;
    std::int64_t monotonic = 0;
    std::uint32_t untilCheck = 0;
    enum { unknown, usable, unusable } area = unknown;
};
constinit thread_local LastReading last;

// The mark goes first, so that a switch between the two readings takes it away.
std::int64_t readAgain() {
    leaveMark();
    last.cpu = read(CLOCK_THREAD_CPUTIME_ID);
    last.monotonic = read(CLOCK_MONOTONIC);
    return last.cpu;
}

// Whether the time since the last reading can be taken for CPU time: less than half of it on the
// processor means that the thread was off it and the mark stood all the same.
bool holds(std::int64_t monotonic) {
    const std::int64_t passed = monotonic - last.monotonic;
    const std::int64_t real = read(CLOCK_THREAD_CPUTIME_ID) - last.cpu;
    return !markStands() || passed < kNoise || real >= passed / 2;
}

// The CPU time at a monotonic time just read; negative when it has to be read anew.
std::int64_t extrapolate(std::int64_t monotonic) {
    if (!markStands()) return -1;
    if (++last.untilCheck >= ThreadCpuClock::kReadingsToCheck) [[unlikely]] {
        last.untilCheck = 0;
        if (!holds(monotonic)) used.store(false, std::memory_order_relaxed);
        return -1;
    }
    return last.cpu + (monotonic - last.monotonic);
}

bool usableHere() {
    if (last.area == LastReading::unknown) [[unlikely]]
        last.area = isRegistered() ? LastReading::usable : LastReading::unusable;
    return last.area == LastReading::usable;
}

std::int64_t currentOffset(std::int64_t monotonic) {
    if (monotonic - offsetTaken.load(std::memory_order_relaxed) >= kSecond) [[unlikely]] {
        wallOffset.store(read(CLOCK_REALTIME) - monotonic, std::memory_order_relaxed);
        offsetTaken.store(monotonic, std::memory_order_relaxed);
    }
    return wallOffset.load(std::memory_order_relaxed);
}

long switchesByForce() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nivcsw;
}

// A switch out of a system call takes the mark away, and so does pre-emption, as far as it shows
// within the time allowed; what does not show here is found by the check of the readings.
bool kernelTakesMarkAway() {
    leaveMark();
    thread_sleep(1);
    if (markStands()) return false;
    const long before = switchesByForce();
    leaveMark();
    const std::int64_t start = read(CLOCK_MONOTONIC);
    while (markStands() && read(CLOCK_MONOTONIC) - start < kPreemptionLimit) {
    }
    return !markStands() || switchesByForce() == before;
}

}  // namespace

bool ThreadCpuClock::start(bool wanted) {
    stop();
    if (!wanted || !areaExists() || !isRegistered()) return false;
    describe();
    const bool holds = kernelTakesMarkAway();
    readAgain();  // what stands there was left without a reading
    if (!holds) return false;
    used.store(true, std::memory_order_release);
    return true;
}

bool ThreadCpuClock::inUse() {
    return used.load(std::memory_order_relaxed);
}

void ThreadCpuClock::stop() {
    used.store(false, std::memory_order_relaxed);
}

jlong ThreadCpuClock::now() {
    if (!used.load(std::memory_order_acquire) || !usableHere())
        return read(CLOCK_THREAD_CPUTIME_ID);
    const std::int64_t cpu = extrapolate(read(CLOCK_MONOTONIC));
    return cpu >= 0 ? cpu : readAgain();
}

bool ThreadCpuClock::undisturbed() {
    return used.load(std::memory_order_relaxed) && usableHere() && markStands();
}

bool ThreadCpuClock::readBoth(std::uint32_t* sec, std::uint32_t* usec, jlong* cpu) {
    if (!used.load(std::memory_order_acquire) || !usableHere()) return false;
    const std::int64_t monotonic = read(CLOCK_MONOTONIC);
    const std::int64_t cpuNow = extrapolate(monotonic);
    if (cpuNow < 0) return false;
    const std::int64_t wall = monotonic + currentOffset(monotonic);
    *sec = static_cast<std::uint32_t>(wall / kSecond);
    *usec = static_cast<std::uint32_t>(wall % kSecond / 1000);
    *cpu = cpuNow;
    return true;
}
