#include "foundation/BlockPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace {

// Each test has a size of its own, hence a depot of its own; pooling is on whatever the build.
template <std::size_t size>
using Pool = BlockPool<size, true>;

TEST(BlockPool, ReusesWhatTheSameThreadFreed) {
    void* const block = Pool<16>::allocate();
    Pool<16>::release(block);
    EXPECT_EQ(Pool<16>::allocate(), block);
    Pool<16>::release(block);
    Pool<16>::release(nullptr);
}

TEST(BlockPool, AFreeingThreadHandsBatchesToTheNextProducer) {
    using P = Pool<48>;
    std::vector<void*> blocks;
    for (std::size_t i = 0; i < 4 * P::kBatch; ++i) blocks.push_back(P::allocate());
    std::thread([&] {
        for (void* block : blocks) P::release(block);
        EXPECT_EQ(P::depotBlocks(), 2 * P::kBatch);  // two more wait in the thread
    }).join();
    EXPECT_EQ(P::depotBlocks(), 4 * P::kBatch);  // its end gave the rest
    const std::set<void*> known(blocks.begin(), blocks.end());
    std::vector<void*> again;
    for (std::size_t i = 0; i < 4 * P::kBatch; ++i) {
        again.push_back(P::allocate());
        EXPECT_EQ(known.count(again.back()), 1U);
    }
    EXPECT_EQ(P::depotBlocks(), 0U);
    for (void* block : again) P::release(block);
}

TEST(BlockPool, TheDepotIsBounded) {
    using P = Pool<64>;
    const std::size_t most = P::kBatch * P::kDepotBatches;
    std::vector<void*> blocks;
    for (std::size_t i = 0; i < most + 10 * P::kBatch; ++i) blocks.push_back(P::allocate());
    std::thread([&] {
        for (void* block : blocks) P::release(block);
    }).join();
    EXPECT_EQ(P::depotBlocks(), most);
}

// Thread-local objects that are older than the pool's own part of the thread die after it.
TEST(BlockPool, WorksWhileAThreadEnds) {
    using P = Pool<80>;
    struct Late {
        void* block = nullptr;
        ~Late() {
            void* const more = P::allocate();
            std::memset(more, 1, 80);
            P::release(block);
            P::release(more);
        }
    };
    std::thread([] {
        static thread_local Late late;  // made before the pool's part, so it goes after it
        late.block = P::allocate();
        P::release(P::allocate());
    }).join();
    EXPECT_EQ(P::depotBlocks(), 1U);  // freed while the thread ran; the others went to the heap
}

// Producers allocate and fill, drains check and free, as monitored threads and event agents do.
TEST(BlockPool, ManyThreadsNeverShareABlock) {
    using P = Pool<96>;
    constexpr int kProducers = 3;
    constexpr int kDrains = 2;
    constexpr int kEach = 8000;
    std::mutex lock;  // guards queue
    std::vector<unsigned char*> queue;
    std::atomic<int> drained{0};
    std::atomic<int> damaged{0};
    std::vector<std::thread> threads;
    for (int p = 0; p < kProducers; ++p)
        threads.emplace_back([&, p] {
            for (int i = 0; i < kEach; ++i) {
                auto* const block = static_cast<unsigned char*>(P::allocate());
                std::memset(block, 1 + p, 96);
                if (i % 3 == 0) {
                    P::release(block);  // some never leave their thread
                    continue;
                }
                const std::lock_guard hold(lock);
                queue.push_back(block);
            }
        });
    constexpr int kQueued = kProducers * (kEach - (kEach + 2) / 3);
    for (int d = 0; d < kDrains; ++d)
        threads.emplace_back([&] {
            while (drained < kQueued) {
                std::vector<unsigned char*> mine;
                {
                    const std::lock_guard hold(lock);
                    mine.swap(queue);
                }
                for (unsigned char* block : mine) {
                    for (int i = 1; i < 96; ++i)
                        if (block[i] != block[0]) ++damaged;
                    P::release(block);
                }
                drained += static_cast<int>(mine.size());
                if (mine.empty()) std::this_thread::yield();
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(damaged, 0);
    EXPECT_EQ(drained, kQueued);
}

}  // namespace
