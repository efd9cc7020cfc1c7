// The list of all threads' pins, and the records that wait for the last pin to go.
#include "event/RecordPins.h"

#include <mutex>
#include <new>
#include <utility>

#include "event/ThreadData.h"

namespace {

// Guards the chain of waiting records. Plain and never destroyed: threads may outlive main().
constinit std::mutex waitingLock;
constinit ThreadData* firstWaiting = nullptr;

constinit thread_local bool threadIsOver = false;

}  // namespace

RecordPins::Leaver::~Leaver() {
    threadIsOver = true;
    Pins* const pins = std::exchange(mine_, nullptr);
    if (pins == nullptr) return;
    for (auto& slot : pins->pinned) slot.store(nullptr, std::memory_order_release);
    pins->env = nullptr;
    // Waiting records are not freed here: the thread has left the VM, and freeing them means
    // monitors.
    pins->taken.store(false, std::memory_order_release);
}

RecordPins::Pins* RecordPins::join() {
    if (threadIsOver) return nullptr;
    static thread_local Leaver leaver;
    leaver.touch();  // books the destructor
    for (Pins* pins = all_.load(std::memory_order_acquire); pins != nullptr; pins = pins->next) {
        bool expected = false;
        if (pins->taken.compare_exchange_strong(expected, true, std::memory_order_acq_rel))
            return mine_ = pins;
    }
    auto* const pins = new (std::nothrow) Pins;
    if (pins == nullptr) return nullptr;
    pins->next = all_.load(std::memory_order_relaxed);
    while (!all_.compare_exchange_weak(pins->next, pins, std::memory_order_seq_cst)) {
    }
    return mine_ = pins;
}

void RecordPins::unpin(const ThreadData* record) {
    Pins* const pins = mine_;
    if (pins == nullptr) return;
    if (pins->pinned[kOwn].load(std::memory_order_relaxed) == record) pins->env = nullptr;
    for (auto& slot : pins->pinned)
        if (slot.load(std::memory_order_relaxed) == record)
            slot.store(nullptr, std::memory_order_release);
}

bool RecordPins::isPinned(const ThreadData* record) {
    if (record->held_.load(std::memory_order_seq_cst)) return true;
    for (Pins* pins = all_.load(std::memory_order_seq_cst); pins != nullptr; pins = pins->next)
        for (const auto& slot : pins->pinned)
            if (slot.load(std::memory_order_seq_cst) == record) return true;
    return false;
}

void RecordPins::freeWhenUnpinned(ThreadData* record) {
    unpin(record);
    recordsChanged();
    if (!isPinned(record)) {
        delete record;
        return;
    }
    const std::lock_guard hold(waitingLock);
    record->nextWaiting_ = std::exchange(firstWaiting, record);
    waiting_.fetch_add(1, std::memory_order_relaxed);
}

void RecordPins::sweep() {
    if (waiting() == 0) return;
    ThreadData* free = nullptr;
    {
        const std::lock_guard hold(waitingLock);
        for (ThreadData** link = &firstWaiting; *link != nullptr;) {
            ThreadData* const record = *link;
            if (isPinned(record)) {
                link = &record->nextWaiting_;
                continue;
            }
            *link = record->nextWaiting_;
            record->nextWaiting_ = std::exchange(free, record);
            waiting_.fetch_sub(1, std::memory_order_relaxed);
        }
    }
    // Outside the lock: freeing a record takes its queue's monitor apart and writes log lines.
    while (free != nullptr) delete std::exchange(free, free->nextWaiting_);
}
