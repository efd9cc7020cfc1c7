// Keeps a line that an outage would repeat every half second to one a minute.
//
// Threads: one at a time, its owner's.
#pragma once

#include <chrono>

class OncePerMinute {
public:
    using Clock = std::chrono::steady_clock;

    // True at first, and again when a minute has passed since it last was.
    bool due() {
        const Clock::time_point at = now();
        if (begun_ && at - last_ < std::chrono::minutes(1)) return false;
        begun_ = true;
        last_ = at;
        return true;
    }
    // The next time counts as the first.
    void reset() { begun_ = false; }

    static inline Clock::time_point (*now)() = [] { return Clock::now(); };  // tests replace it

private:
    bool begun_ = false;
    Clock::time_point last_{};
};
