// What the record layouts are made of; Records.h is their document.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "dc2ps/RecordRows.h"

namespace dc2ps {

using Bytes = std::span<const std::uint8_t>;

// Wall-clock time of capture. The microseconds are untrusted and may exceed 999999.
struct WallTime {
    std::uint32_t seconds = 0;       // since 1970
    std::uint32_t microseconds = 0;  // within the second
    std::int64_t micros() const { return std::int64_t{seconds} * 1000000 + microseconds; }
};

// What the records of a unit of work have in common: byte type, int thread, byte depth, int
// seconds, int microseconds, long CPU time, then the fields of the phase, and the byte probe level.
struct Timed {
    RecordType type{};
    Phase phase = Phase::start;
    std::uint8_t depth = 0;  // nesting level on the thread; the agent's counter cut to 8 bits
    std::uint8_t probeLevel = 0;
    std::uint32_t threadId = 0;
    WallTime time;
    std::int64_t cpuTime = 0;  // CPU time of the thread, ns

    // Three kinds, which say so, put the probe level before their fields.
    static constexpr bool kLevelFirst = false;
};

// Bytes that are not text.
struct RawBytes {
    std::string_view bytes;
};

// A correlation token: exactly four bytes, the most significant first.
struct Token : RawBytes {};

// A type number that no agent sends.
struct NoLayout {};

}  // namespace dc2ps
