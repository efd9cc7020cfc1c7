// Lines on their way to a descriptor whose reader may be slow: a bounded queue, and a thread that
// empties it. Whoever writes is held up for moments only; what does not fit then is lost, and
// counted.
//
// Threads: one writes and asks; the thread that empties the queue is the sink's own. mutex_ guards
// what both use and is held for memory work only.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "server/model/LineSink.h"

namespace server {

class QueuedSink final : public LineSink {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t kMaxBytes = 2u << 20;
    // How long a write waits for room while the reader takes nothing at all.
    static constexpr std::chrono::milliseconds kPatience{100};

    // changed: called by the sink's thread, without a lock, when there is room again after
    // crowded() and when writing has failed. The descriptor is not owned.
    QueuedSink(int fd, std::function<void()> changed, std::size_t maxBytes = kMaxBytes);
    ~QueuedSink() override;
    QueuedSink(const QueuedSink&) = delete;
    QueuedSink& operator=(const QueuedSink&) = delete;

    void write(std::string_view lines) override;
    // Three quarters of the queue are full, and not half of it has been emptied since: whoever can
    // should make fewer lines.
    bool crowded() const { return crowded_.load(std::memory_order_relaxed); }
    // Why nothing can be written any more; what is written after a failure is thrown away.
    std::string failure() const;

    // From now on nothing waits beyond that time.
    void finishBy(Clock::time_point deadline);
    // Waits for the queue to get empty, until then at most; ends the thread. The lines that were
    // lost.
    std::uint64_t finish();

private:
    void empty();
    bool writeOut(std::string_view lines);
    void took(std::size_t bytes);
    void fail(int error);

    const int fd_;
    const std::function<void()> changed_;
    const std::size_t maxBytes_;

    mutable std::mutex mutex_;
    std::condition_variable work_;  // there are lines, or the end has come
    std::condition_variable room_;  // lines have gone
    std::string waiting_;
    std::size_t queued_ = 0;  // bytes waiting or being written
    std::uint64_t gone_ = 0;  // bytes written so far: tells a slow reader from none
    std::uint64_t lost_ = 0;  // lines
    bool stuck_ = false;      // the reader has outlasted our patience; until it takes something
    bool ending_ = false;
    Clock::time_point deadline_ = Clock::time_point::max();
    std::string failure_;
    std::atomic<bool> crowded_{false};
    std::atomic<bool> abandoned_{false};  // the thread is to leave whatever it is about
    std::atomic<bool> ended_{false};      // it has
    std::thread thread_;
};

}  // namespace server
