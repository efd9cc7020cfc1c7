// Recycles the small blocks of the capture path: events, their list nodes, table nodes.
//
// A monitored thread makes an event and its queue node, an event agent frees both two seconds later
// on another thread. A general heap pays for that crossing on both sides; here the agent collects
// what it frees into batches and hands each over with one short lock, and a producer takes a whole
// batch at a time.
//
// Shape: per thread two chains (active and spare) of at most kBatch free blocks each; per process
// one depot of at most kDepotBatches chains. Every block is a plain heap block of its own, so
// whatever does not fit (a full depot, a thread past its end) simply goes to the heap.
//
// Threads: any thread at any time, also while it exits and while the process exits; allocate() in
// one and release() in another. The fast path takes no lock. Under AddressSanitizer and
// ThreadSanitizer pooling is off, so that they see every block's true life.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <new>

#include "foundation/Sanitizers.h"

// Blocks of one size in bytes; users round up to a few size classes so that they share chains.
template <std::size_t BlockSize, bool Pooled = !VEL_ASAN && !VEL_TSAN>
class BlockPool {
    static_assert(BlockSize >= sizeof(void*) && BlockSize % alignof(std::max_align_t) == 0);

public:
    static constexpr std::size_t kBatch = std::clamp<std::size_t>(16384 / BlockSize, 8, 64);
    static constexpr std::size_t kDepotBatches = 512;  // at most 8 MB per size of up to 2 KB

    // A block of BlockSize bytes, aligned as the heap aligns; std::bad_alloc when there is no
    // memory.
    [[nodiscard]] static void* allocate() {
        if constexpr (Pooled) {
            Cache& mine = cache_;
            if (mine.active.head != nullptr || refill(mine)) [[likely]]
                return mine.active.pop();
        }
        return ::operator new(BlockSize);
    }

    // Takes back a block of allocate(); null does nothing.
    static void release(void* block) noexcept {
        if (block == nullptr) return;
        if constexpr (Pooled) {
            Cache& mine = cache_;
            if (mine.active.count < mine.limit || makeRoom(mine)) [[likely]] {
                mine.active.push(block);
                return;
            }
        }
        ::operator delete(block);
    }

    // Blocks that wait in the depot, for tests and statistics.
    static std::size_t depotBlocks() {
        const std::lock_guard hold(depot_.lock);
        std::size_t blocks = 0;
        for (std::size_t i = 0; i < depot_.used; ++i) blocks += depot_.chains[i].count;
        return blocks;
    }

private:
    static constexpr std::size_t kCacheLine = 64;
    static constexpr std::size_t kFetched = 256;  // an event's fields; longer blocks are rare

    struct Free {
        Free* next;
    };

    struct Chain {
        Free* head;
        std::size_t count;

        void push(void* block) noexcept {
            head = ::new (block) Free{head};
            ++count;
        }
        void* pop() noexcept {
            Free* const block = head;
            head = block->next;
            --count;
            fetch(head);
            return block;
        }
        // The block that goes out next was last written by the thread that freed it: bringing it
        // here while the caller works on this one saves the next caller a wait of some 100 ns.
        static void fetch(const void* block) noexcept {
            const auto* const bytes = static_cast<const char*>(block);
            for (std::size_t at = 0; at < std::min(BlockSize, kFetched); at += kCacheLine)
                __builtin_prefetch(bytes + at, 1);
        }
    };

    // Plain data: usable before and after every constructor and destructor of its thread.
    struct Cache {
        Chain active;
        Chain
            spare;  // full or empty: keeps a thread that swings around a batch's edge off the depot
        std::size_t limit;  // of active: 0 until the thread's reaper is set up and after it has run
        bool over;          // the reaper has run: straight to the heap from here on
    };

    // Gives a thread's leftovers to the depot when the thread ends.
    struct Reaper {
        ~Reaper() {
            Cache& mine = cache_;
            mine.over = true;
            mine.limit = 0;
            handOver(mine.active);
            handOver(mine.spare);
        }
        void touch() noexcept {}
    };

    struct Depot {
        std::mutex lock;                   // guards writes of used, and chains
        std::atomic<std::size_t> used{0};  // read ahead of the lock: an empty depot costs no lock
        std::array<Chain, kDepotBatches> chains{};
    };

    [[gnu::noinline]] static bool refill(Cache& mine) {
        if (mine.over) return false;
        if (mine.spare.head != nullptr) {
            mine.active = mine.spare;
            mine.spare = {};
            return true;
        }
        setUp(mine);
        if (depot_.used.load(std::memory_order_relaxed) == 0) return false;
        const std::lock_guard hold(depot_.lock);
        if (depot_.used == 0) return false;
        mine.active = depot_.chains[--depot_.used];
        return true;
    }

    [[gnu::noinline]] static bool makeRoom(Cache& mine) noexcept {
        if (mine.over) return false;
        setUp(mine);
        if (mine.active.count < mine.limit) return true;
        if (mine.spare.head == nullptr)
            mine.spare = mine.active;
        else
            handOver(mine.active);
        mine.active = {};
        return true;
    }

    static void setUp(Cache& mine) noexcept {
        if (mine.limit != 0) return;
        reaper_.touch();  // the first use on a thread books its destructor
        mine.limit = kBatch;
    }

    // Leaves chain empty. What the depot cannot take goes to the heap.
    static void handOver(Chain& chain) noexcept {
        if (chain.head == nullptr) return;
        {
            const std::lock_guard hold(depot_.lock);
            if (depot_.used < kDepotBatches) {
                depot_.chains[depot_.used++] = chain;
                chain = {};
                return;
            }
        }
        while (chain.head != nullptr) ::operator delete(chain.pop());
    }

    // The depot is never destroyed (nothing in it needs to be), so that threads which outlive
    // main() may use it.
    static inline constinit Depot depot_{};
    static inline constinit thread_local Cache cache_{};
    static inline thread_local Reaper reaper_{};
};

// The pool for objects of this many bytes: the next multiple of 16.
template <std::size_t ObjectSize>
using PoolFor = BlockPool<(ObjectSize + 15) / 16 * 16>;
