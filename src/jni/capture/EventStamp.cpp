#include "capture/EventStamp.h"

#include <algorithm>
#include <limits>

#include "event/ThreadData.h"
#include "foundation/Platform.h"
#include "foundation/ThreadCpuClock.h"
#include "transport/MemoryMonitor.h"

namespace capture {

Clocks clocks{getCurrentTime, ThreadCpuClock::now, ThreadCpuClock::readBoth};

void stamp(Event& event, ThreadData* thread, ClockOrder order) {
    event.threadId_ = thread == nullptr ? 0 : thread->getThreadIntId();
    jlong cpuTime = 0;
    if (clocks.both == nullptr || !clocks.both(&event.timeSec_, &event.timeUSec_, &cpuTime)) {
        if (order == ClockOrder::wallFirst) clocks.wall(&event.timeSec_, &event.timeUSec_);
        cpuTime = clocks.cpu();
        if (order == ClockOrder::cpuFirst) clocks.wall(&event.timeSec_, &event.timeUSec_);
    }
    event.cpuTime_ = thread == nullptr ? cpuTime : thread->cpuTime(cpuTime);
}

void charge(Event& event, int bytes) {
    constexpr int kMost = std::numeric_limits<std::int16_t>::max();
    event.size_ = static_cast<std::int16_t>(std::min(event.size_ + bytes, kMost));
}

char* copyText(JNIEnv* env, Event& event, const CallText& text) {
    const javatext::Text copied = text.copy(env, MemoryMonitor::getURLLimit());
    event.noteText(copied.length);
    return copied.chars;
}

char* attach(Event& event, JNIEnv* env, const CallText& text, int limit) {
    const javatext::Text copied = text.copy(env, limit > 0 ? limit : MemoryMonitor::getURLLimit());
    charge(event, copied.length - 1);
    event.noteText(copied.length);
    return copied.chars;
}

}  // namespace capture
