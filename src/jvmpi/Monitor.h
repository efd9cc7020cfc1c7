// The raw monitor behind RawMonitorEnter and its sisters: re-entrant, with timed wait and
// notify-all.
//
// Made of an owner word and two futexes instead of the VM's own raw monitors, because those crash
// when waited on before the VM is up or on a thread that the VM does not know, swallow a Java
// thread's interrupt, and cost a VM transition. This one works in every phase, on every thread and
// in exit handlers. A thread that blocks here is "in native" for the VM and holds up no safepoint.
//
// Cost: an uncontended enter or exit is one atomic operation; re-entries are plain arithmetic.
// Not fair: a running thread may overtake a sleeping one.
#pragma once

#include <atomic>
#include <cstdint>

namespace adapter {

class Monitor {
public:
    // Null only when memory is exhausted. The name is copied (cut to 63 characters).
    static Monitor* create(const char* name) noexcept;

    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    void enter() noexcept {
        const std::uintptr_t self = threadMark();
        std::uintptr_t seen = 0;
        if (!owner_.compare_exchange_strong(seen, self, std::memory_order_acquire,
                                            std::memory_order_relaxed)) {
            enterSlowly(self, seen);
        }
    }

    // Ignored when the caller is not the owner.
    void exit() noexcept {
        if (!isMine()) return;
        if (reentries_ != 0) {
            --reentries_;
            return;
        }
        release();
    }

    // Gives the monitor up completely, sleeps until a notify or for ms milliseconds (0: without
    // limit), takes it back with the former entry count. Returns at once when the caller is not the
    // owner or ms is negative. May also return early, as every monitor wait may.
    void wait(std::int64_t ms) noexcept;

    // Wakes every waiter; ignored when the caller is not the owner.
    void notifyAll() noexcept;

    bool isMine() const noexcept {
        return (owner_.load(std::memory_order_relaxed) & ~kSleepers) == threadMark();
    }
    const char* name() const noexcept { return name_; }

private:
    Monitor() = default;

    // Bit 0 of the owner word: somebody sleeps, or may sleep, until the monitor is free.
    static constexpr std::uintptr_t kSleepers = 1;

    // Tells living threads apart: the address of the thread's control block, one register read.
    static std::uintptr_t threadMark() noexcept {
#if defined(__x86_64__)
        std::uintptr_t mark;
        __asm__("mov %%fs:0, %0" : "=r"(mark));
        return mark;
#else
        return reinterpret_cast<std::uintptr_t>(__builtin_thread_pointer());
#endif
    }

    void enterSlowly(std::uintptr_t self, std::uintptr_t seen) noexcept;
    void sleepUntilEntered(std::uintptr_t self) noexcept;
    void release() noexcept {
        if (owner_.exchange(0, std::memory_order_release) & kSleepers) wakeOne();
    }
    void wakeOne() noexcept;

    std::atomic<std::uintptr_t> owner_{0};  // thread mark and kSleepers; 0: free
    std::uint32_t reentries_ = 0;           // entries beyond the first; touched by the owner only
    std::uint32_t waiters_ = 0;             // threads inside wait(); touched by the owner only
    std::atomic<std::uint32_t> notifications_{
        0};  // changed by the owner only; what waiters sleep on
    char name_[64] = {};
};

}  // namespace adapter
