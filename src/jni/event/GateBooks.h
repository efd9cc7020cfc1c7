// What the gate's turning away leaves behind: which thread records carry a marker of the stop, and
// how many calls made no event because of it. Kept with the records, which take themselves out of
// the books when they die; the memory monitor opens and closes the gate.
//
// Threads: any; all atomics.
#pragma once

class ThreadData;

class GateBooks {
public:
    GateBooks() = delete;

    // Marks the record as told of the stop. False: it had been told before.
    static bool mark(ThreadData& thread);
    // Takes the mark back, if there is one.
    static void forget(ThreadData& thread);
    // Almost always false, so that an open gate costs one load and no look-up of the thread.
    static bool anyMarked();

    static void noteCalls(long calls);
    static long takeCalls();  // noted since the last call

    static void reset();  // marks are not counted any more; what they stem from is over
};
