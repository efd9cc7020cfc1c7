// The CPU time of the calling thread, most of the time without a system call.
//
// A thread that the kernel has not taken off its processor since its CPU clock was last read has
// used exactly as much CPU time as monotonic time has passed. The kernel tells us when it did take
// it off: it clears a restartable-sequence descriptor (rseq_cs, see the kernel's rseq(2)) that the
// thread has left in its area, unless the thread is inside that sequence, at every context switch
// and signal. So a reading leaves the descriptor of a sequence that is never entered, and as long
// as it still stands there, CPU time = last reading + monotonic time since. When it is gone, the
// CPU clock is read again: one system call for each context switch instead of one for each event.
//
// What it needs: the C library registers the area of each thread (glibc 2.35 and later), and the
// kernel clears the descriptor on every switch. start() proves that on this kernel; every
// kReadingsToCheck readings of a thread are compared with the system call, and if they differ the
// system call is used from then on. The descriptor must stay mapped as long as any thread may carry
// it, so a library with this clock is never unloaded (-z nodelete). Another user of the area in the
// same thread only overwrites the pointer, which reads as "gone". While the hypervisor runs
// somebody else, time passes here and not in the CPU clock; the next system call puts that right.
//
// Threads: any; each reads its own.
#pragma once

#include <jni.h>

#include <cstdint>

class ThreadCpuClock {
public:
    ThreadCpuClock() = delete;

    // Tries the clock out (some 2 ms) and uses it when it holds and is wanted; else the system
    // call. Returns whether it is in use.
    static bool start(bool wanted);
    static bool inUse();
    static void stop();  // the system call from now on

    // CPU time of the calling thread, ns.
    static jlong now();

    // Whether the calling thread has stayed on its processor since its last reading: no more than
    // its mark is looked at. False where the clock is not in use.
    static bool undisturbed();

    // Both clocks from one reading: wall time, and CPU time in ns. False, and nothing written, when
    // the thread has been off its processor since its last reading, or the clock is not in use.
    static bool readBoth(std::uint32_t* sec, std::uint32_t* usec, jlong* cpu);

    static constexpr std::uint32_t kReadingsToCheck = 1024;
};
