// What stands around a record's fields. Writer, size and decoder all go by onWire(), so that they
// cannot come to differ.
#pragma once

#include <cstdint>
#include <type_traits>

#include "dc2ps/Records.h"

namespace dc2ps {

constexpr std::uint16_t kTrailer = 0x7F7F;  // ends every record

// Calls f("name", field) for every field of a record in the order of the wire: byte type, and for a
// unit of work int thread, byte depth, int seconds, int microseconds, long CPU time, the fields of
// the phase, byte probe level (before the fields in three kinds). What follows the fields (a list
// of elements, the trailer) is the caller's. A reader sets the phase beforehand.
template <class R, class F>
constexpr void onWire(R& r, F& f) {
    using Layout = std::remove_const_t<R>;
    if constexpr (std::is_same_v<Layout, AgentInit>) {  // its version stands before its type
        f("version", r.version);
        f("type", r.type);
        Layout::behindType(r, f);
    } else if constexpr (std::is_base_of_v<Timed, Layout>) {
        f("type", r.type);
        f("thread", r.threadId);
        f("depth", r.depth);
        f("time", r.time);
        f("cpu", r.cpuTime);
        if constexpr (Layout::kLevelFirst) f("level", r.probeLevel);
        Layout::fields(r, f);
        if constexpr (!Layout::kLevelFirst) f("level", r.probeLevel);
    } else {
        f("type", r.type);
        Layout::fields(r, f);
    }
}

}  // namespace dc2ps
