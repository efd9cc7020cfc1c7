// What the writers of all families of records share. Only the Protocol*.cpp files include this.
#pragma once

#include <cstdint>

#include "event/ProtocolVisitor.h"
#include "event/WireWriter.h"
#include "foundation/ProbeState.h"

namespace recordparts {

// An event whose phase or action has no record type. A record of type 0 would be taken for a packet
// header and put the reader out of step for good, so such an event is not written; its agent counts
// it as lost.
[[gnu::cold]] bool refuseNoRecord(const Event& event, int action = 0);

inline std::uint32_t low32(const void* id) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(id));
}

// The common prefix of timed records: 22 bytes.
inline void putFrame(WireWriter& out, int type, const Event& event, int depth) {
    out.putByte(type);
    out.putInt(event.threadId_);
    out.putByte(depth);
    out.putInt(event.timeSec_);
    out.putInt(event.timeUSec_);
    out.putLong(event.cpuTime_);
}

inline void putLevel(WireWriter& out) {
    out.putByte(ProbeState::level());
}

inline bool finish(WireWriter& out) {
    out.putTrailer();
    return out.done();
}

inline bool finishWithLevel(WireWriter& out) {
    putLevel(out);
    return finish(out);
}

inline bool isStart(const Event& event) {
    return event.subType_ == START;
}

inline int startOrEnd(const Event& event, int startType) {
    return isStart(event) ? startType : startType + 1;
}

// For the kinds that know no other phases; 0 for those.
inline int strictStartOrEnd(const Event& event, int startType) {
    if (event.subType_ == START) return startType;
    return event.subType_ == END ? startType + 1 : DC2PS_HEADER_RECORD;
}

inline void putCountAndTime(WireWriter& out, std::int32_t count, std::int64_t avgTime) {
    out.putInt(static_cast<std::uint32_t>(count));
    out.putLong(avgTime);
}

}  // namespace recordparts
