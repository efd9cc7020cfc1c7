#include "server/print/QueuedSink.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <future>
#include <semaphore>

namespace {

using server::QueuedSink;
using namespace std::chrono_literals;

class Queue : public testing::Test {
protected:
    Queue() { EXPECT_EQ(pipe(ends.data()), 0); }
    ~Queue() override {
        for (const int end : ends) close(end);
    }
    std::string read(std::size_t bytes) const {
        std::string text(bytes, '\0');
        std::size_t got = 0;
        while (got < bytes) {
            const ssize_t n = ::read(ends[0], text.data() + got, bytes - got);
            if (n <= 0) break;
            got += static_cast<std::size_t>(n);
        }
        return text.substr(0, got);
    }

    std::array<int, 2> ends{};
    const std::string line = std::string(999, 'x') + "\n";
};

TEST_F(Queue, LosesNothingWhileSomebodyReadsHoweverSlowly) {
    QueuedSink sink(
        ends[1], [] {}, 10'000);
    auto text = std::async(std::launch::async, [this] {
        std::string all;
        while (all.size() < 300 * line.size()) {
            all += read(line.size());
            std::this_thread::sleep_for(100us);
        }
        return all;
    });
    for (int i = 0; i < 300; ++i) sink.write(line);
    EXPECT_EQ(sink.finish(), 0u);
    std::string expected;
    for (int i = 0; i < 300; ++i) expected += line;
    EXPECT_EQ(text.get(), expected);
}

TEST_F(Queue, CountsWhatNobodyTakesAndTellsWhenThereIsRoomAgain) {
    std::counting_semaphore<> room(0);
    QueuedSink sink(
        ends[1], [&] { room.release(); }, 100'000);
    const auto begin = QueuedSink::Clock::now();
    for (int i = 0; i < 300; ++i) sink.write(line);  // a pipe takes 64 KB
    EXPECT_LT(QueuedSink::Clock::now() - begin, 10 * QueuedSink::kPatience) << "one wait for all";
    EXPECT_TRUE(sink.crowded());
    read(100'000);
    while (sink.crowded()) room.acquire();
    EXPECT_FALSE(sink.crowded());
    sink.finishBy(QueuedSink::Clock::now());
    EXPECT_GT(sink.finish(), 100u);
}

TEST_F(Queue, EndsInTimeAlthoughAWriteBlocks) {
    QueuedSink sink(ends[1], [] {});
    for (int i = 0; i < 200; ++i) sink.write(line);
    sink.finishBy(QueuedSink::Clock::now() + 20ms);
    EXPECT_GE(sink.finish(), 200u - 66u);
}

TEST_F(Queue, TellsOfAFailureAtOnce) {
    const int full = open("/dev/full", O_WRONLY);
    std::counting_semaphore<> failed(0);
    QueuedSink sink(full, [&] { failed.release(); });
    sink.write(line);
    failed.acquire();
    EXPECT_EQ(sink.failure(), "No space left on device");
    EXPECT_EQ(sink.finish(), 0u);
    close(full);
}

}  // namespace
