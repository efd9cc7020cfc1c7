// Keeps a thread record's memory until nobody can be looking at it any more.
//
// Why: a native looks its record up and uses it without a lock; meanwhile another thread may delete
// it (the probe stops, or an event agent has drained an ended thread that an administrative native
// just found). Touching freed memory would take the host down with us.
//
// How: a thread that looks a record up notes it in its own pins, one for its own record and three
// in turn for records of others. Deleting a record empties it at once, but its memory goes only
// when no pin of another thread names it and no living virtual thread holds it; until then it waits
// in a list. A pin stays after the
// native has returned, which is what makes the usual look-up free: the same thread asking again
// finds its record still pinned and, by the generation, still registered. A pin goes when its
// thread looks up something else or ends.
//
// Why that is safe: a look-up writes its pin and then reads the generation again; a deletion takes
// the record out of the table, raises the generation and then reads the pins. In the one order of
// these sequentially consistent operations either the deletion sees the pin and waits, or the
// look-up sees the new generation and starts over, no longer finding the record.
//
// Cost: threads that never call again after a stop keep one emptied record each (some 500 bytes).
#pragma once

#include <jni.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

class ThreadData;

class RecordPins {
public:
    RecordPins() = delete;

    // The calling thread's own record, when it asked for the same env before and no record has been
    // unregistered since; else null. Walks no shared table and takes no lock.
    static ThreadData* own(JNIEnv* env) {
        const Pins* const pins = mine_;
        if (pins == nullptr || pins->env != env ||
            pins->generation != ownGeneration_.load(std::memory_order_acquire))
            return nullptr;
        return pins->pinned[kOwn].load(std::memory_order_relaxed);
    }

    // What find() finds, pinned for the calling thread: as its own record, or as one of others.
    template <typename Find>
    static ThreadData* pinOwn(JNIEnv* env, Find find) {
        Pins* const pins = mine();
        if (pins == nullptr) return find();
        // Read first: a change on the way only makes the next call look again.
        const std::uint64_t seen = ownGeneration_.load(std::memory_order_seq_cst);
        ThreadData* const record = pin(pins->pinned[kOwn], find);
        pins->env = record == nullptr ? nullptr : env;
        pins->generation = seen;
        return record;
    }
    template <typename Find>
    static ThreadData* pinOther(Find find) {
        Pins* const pins = mine();
        if (pins == nullptr) return find();
        pins->turn = pins->turn % kOthers + 1;
        return pin(pins->pinned[pins->turn], find);
    }

    // The calling thread will not touch the record again.
    static void unpin(const ThreadData* record);
    // What the calling thread has pinned as its own is its own no longer: another virtual thread
    // runs on it now. The record stays pinned until the next look-up.
    static void forgetOwn() {
        if (mine_ != nullptr) mine_->env = nullptr;
    }

    // A record has been taken out of the table: whoever looks from now on must not find it.
    static void recordsChanged() {
        spareGone();
        ownGeneration_.fetch_add(1, std::memory_order_seq_cst);
    }
    // The same of a record that no thread has as its own: all others keep theirs.
    static void spareGone() { generation_.fetch_add(1, std::memory_order_seq_cst); }

    // Deletes a record that is registered no more, now or when the last pin has gone. The calling
    // thread's own pins do not count: it is the one that gives the record up.
    static void freeWhenUnpinned(ThreadData* record);
    // Frees what has become free meanwhile.
    static void sweep();
    static std::size_t waiting() { return waiting_.load(std::memory_order_relaxed); }

private:
    static constexpr int kOwn = 0;
    static constexpr int kOthers = 3;  // more than any native uses at a time

    // One thread's pins. Never freed, but reused: other threads walk the list without a lock.
    struct Pins {
        std::array<std::atomic<ThreadData*>, 1 + kOthers> pinned{};
        JNIEnv* env = nullptr;         // of pinned[kOwn]; this and the next two: owner only
        std::uint64_t generation = 0;  // at which pinned[kOwn] was registered
        int turn = 0;                  // last used among the others
        std::atomic<bool> taken{true};
        Pins* next = nullptr;  // final once published
    };
    // Gives a thread's pins back when the thread ends.
    struct Leaver {
        ~Leaver();
        void touch() noexcept {}
    };

    template <typename Find>
    static ThreadData* pin(std::atomic<ThreadData*>& slot, Find find) {
        for (;;) {
            const std::uint64_t seen = generation_.load(std::memory_order_seq_cst);
            ThreadData* const record = find();
            slot.store(record, std::memory_order_seq_cst);
            if (record == nullptr || generation_.load(std::memory_order_seq_cst) == seen)
                return record;
        }
    }

    static Pins* mine() { return mine_ != nullptr ? mine_ : join(); }
    static Pins* join();  // null once the thread is past its end
    static bool isPinned(const ThreadData* record);

    static inline constinit thread_local Pins* mine_ = nullptr;
    static inline constinit std::atomic<std::uint64_t> generation_{1};
    static inline constinit std::atomic<std::uint64_t> ownGeneration_{1};
    static inline constinit std::atomic<Pins*> all_{nullptr};
    static inline constinit std::atomic<std::size_t> waiting_{0};  // records in the waiting list
};
