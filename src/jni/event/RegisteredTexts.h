// Texts that repeat (servlet and application names, statements, queue names), kept once under a
// number that the Java side holds, so that an event points at them instead of copying them.
//
// Bounded: kMaxTexts texts and kMaxBytes bytes in all; beyond that a text has no number and is
// copied as ever. What is registered stays for the life of the process: events in any queue may
// point at it.
// Threads: any; add() takes a lock, get() none.
#pragma once

#include <cstddef>

class RegisteredTexts {
public:
    RegisteredTexts() = delete;

    static constexpr int kMaxTexts = 16384;
    static constexpr std::size_t kMaxBytes = 2 << 20;

    // The number of a text (from 1), the same for equal texts; 0 when there is no room.
    static int add(const char* text);
    // The text of a number; the shared empty text for any other number. Never freed.
    static char* get(int number);
};
