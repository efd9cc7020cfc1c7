#include "server/print/QueuedSink.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

namespace server {

namespace {

constexpr std::size_t kPiece = 16u << 10;  // bytes of one write: a sign of life from the reader
constexpr std::size_t kKeptCapacity = 1u << 20;
constexpr std::chrono::milliseconds kKnock{5};
constexpr int kWakeUp = SIGUSR1;

std::uint64_t linesIn(std::string_view text) {
    return static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
}

// A blocked write() ends when its thread gets a signal that has a handler which does not restart
// it.
void letSignalsInterrupt() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(kWakeUp, &action, nullptr);
}

}  // namespace

QueuedSink::QueuedSink(int fd, std::function<void()> changed, std::size_t maxBytes)
    : fd_(fd), changed_(std::move(changed)), maxBytes_(maxBytes) {
    letSignalsInterrupt();
    thread_ = std::thread([this] {
        empty();
        ended_ = true;
    });
}

QueuedSink::~QueuedSink() {
    finishBy(Clock::now());
    finish();
}

void QueuedSink::write(std::string_view lines) {
    if (lines.empty()) return;
    std::unique_lock lock(mutex_);
    const auto fits = [&] { return queued_ + lines.size() <= maxBytes_; };
    while (!fits() && !stuck_ && failure_.empty() && lines.size() <= maxBytes_) {
        const std::uint64_t before = gone_;
        room_.wait_until(lock, std::min(Clock::now() + kPatience, deadline_),
                         [&] { return gone_ != before; });
        stuck_ = gone_ == before;
        if (Clock::now() >= deadline_) break;
    }
    if (!failure_.empty()) return;
    if (!fits()) {
        lost_ += linesIn(lines);
        return;
    }
    waiting_ += lines;
    queued_ += lines.size();
    if (queued_ > maxBytes_ / 4 * 3) crowded_ = true;
    work_.notify_one();
}

std::string QueuedSink::failure() const {
    const std::lock_guard lock(mutex_);
    return failure_;
}

void QueuedSink::finishBy(Clock::time_point deadline) {
    const std::lock_guard lock(mutex_);
    deadline_ = deadline;
}

std::uint64_t QueuedSink::finish() {
    {
        std::unique_lock lock(mutex_);
        ending_ = true;
        work_.notify_one();
        while (queued_ > 0 && failure_.empty() && Clock::now() < deadline_)
            room_.wait_until(lock, std::min(Clock::now() + kPatience, deadline_));
    }
    if (!thread_.joinable()) return lost_;
    abandoned_ = true;
    while (!ended_) {  // the signal may come a moment before the write that it is to end
        pthread_kill(thread_.native_handle(), kWakeUp);
        std::this_thread::sleep_for(kKnock);
    }
    thread_.join();
    return lost_;
}

// The thread: takes what waits in one piece, so that writers hardly ever meet it.
void QueuedSink::empty() {
    std::string lines;
    while (true) {
        {
            std::unique_lock lock(mutex_);
            work_.wait(lock, [this] { return !waiting_.empty() || ending_; });
            if (waiting_.empty()) return;
            lines.swap(waiting_);
        }
        if (!writeOut(lines)) return;
        lines.clear();
        if (lines.capacity() > kKeptCapacity) lines.shrink_to_fit();
    }
}

// False: there is no point in going on.
bool QueuedSink::writeOut(std::string_view lines) {
    while (!lines.empty() && !abandoned_) {
        const ssize_t written = ::write(fd_, lines.data(), std::min(lines.size(), kPiece));
        if (written >= 0) {
            lines.remove_prefix(static_cast<std::size_t>(written));
            took(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {  // whoever gave us the descriptor had made it non-blocking
            pollfd ready{fd_, POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            fail(errno);
            return false;
        }
    }
    if (lines.empty()) return true;
    const std::lock_guard lock(mutex_);
    lost_ += linesIn(lines) + linesIn(waiting_);
    return false;
}

void QueuedSink::took(std::size_t bytes) {
    bool tell = false;
    {
        const std::lock_guard lock(mutex_);
        queued_ -= bytes;
        gone_ += bytes;
        stuck_ = false;
        tell = crowded_ && queued_ <= maxBytes_ / 2;
        if (tell) crowded_ = false;
        room_.notify_one();
    }
    if (tell) changed_();
}

void QueuedSink::fail(int error) {
    {
        const std::lock_guard lock(mutex_);
        failure_ = std::strerror(error);
        crowded_ = false;
        room_.notify_one();
    }
    changed_();
}

}  // namespace server
