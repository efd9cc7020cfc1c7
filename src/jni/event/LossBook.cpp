#include "event/LossBook.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>

#include "event/ControlEvents.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/OncePerMinute.h"

namespace {

constexpr std::size_t kReasons = static_cast<std::size_t>(Loss::count_);

constexpr const char* kReasonTexts[kReasons] = {
    "packet refused by the network agent",
    "connection lost while sending",
    "sent but never acknowledged",
    "connection ended before their turn",
    "queue cut while the server was away",
    "thread ended while the server was away",
    "record larger than a packet",
    "no record format",
    "still queued at stop",
    "not sent before exit",
    "no memory to capture them",
};

std::array<std::atomic<long>, kReasons> counted{};

// Held while lines are written, so that the totals in them rise in the order of the lines.
std::mutex writing;
struct Written {
    long events = 0;
    OncePerMinute pace;
};
std::array<Written, kReasons> written{};  // under writing
long writtenInAll = 0;                    // under writing

}  // namespace

void LossBook::add(Loss reason, long events) {
    if (events > 0)
        counted[static_cast<std::size_t>(reason)].fetch_add(events, std::memory_order_relaxed);
}

void LossBook::write(bool everything) {
    const std::lock_guard hold(writing);
    for (std::size_t reason = 0; reason < kReasons; ++reason) {
        Written& done = written[reason];
        const long fresh = counted[reason].load(std::memory_order_relaxed) - done.events;
        if (fresh == 0 || (!done.pace.due() && !everything)) continue;
        done.events += fresh;
        writtenInAll += fresh;
        logMessage(msg::kRecordsLost, fresh, kReasonTexts[reason], writtenInAll);
    }
}

long LossBook::total() {
    long sum = 0;
    for (const auto& count : counted) sum += count.load(std::memory_order_relaxed);
    return sum;
}

long LossBook::of(Loss reason) {
    return counted[static_cast<std::size_t>(reason)].load(std::memory_order_relaxed);
}

long LossBook::eventsIn(const Event* event) {
    if (event->getType() == SAMPLING) return 0;
    if (event->getType() != DROPPED) return 1;
    return static_cast<const DroppedEvent*>(event)->sum();
}
