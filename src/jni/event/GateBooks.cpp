#include "event/GateBooks.h"

#include <atomic>

#include "event/ThreadData.h"

namespace {

std::atomic<int> markedThreads{0};  // records whose dropRecordsFlag_ is set
std::atomic<long> gatedCalls{0};    // calls not yet told to the operator

}  // namespace

bool GateBooks::mark(ThreadData& thread) {
    if (thread.dropRecordsFlag_.exchange(true, std::memory_order_relaxed)) return false;
    markedThreads.fetch_add(1, std::memory_order_relaxed);
    return true;
}

void GateBooks::forget(ThreadData& thread) {
    if (!thread.dropRecordsFlag_.exchange(false, std::memory_order_relaxed)) return;
    // Never below zero: a mark may stem from before a reset.
    int marked = markedThreads.load(std::memory_order_relaxed);
    while (marked > 0 && !markedThreads.compare_exchange_weak(marked, marked - 1)) {
    }
}

bool GateBooks::anyMarked() {
    return markedThreads.load(std::memory_order_relaxed) != 0;
}

void GateBooks::noteCalls(long calls) {
    if (calls > 0) gatedCalls.fetch_add(calls, std::memory_order_relaxed);
}

long GateBooks::takeCalls() {
    return gatedCalls.exchange(0, std::memory_order_relaxed);
}

void GateBooks::reset() {
    markedThreads.store(0, std::memory_order_relaxed);
}
