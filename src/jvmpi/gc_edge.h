// An addition of our adapter to the interface's garbage collection events: when the pause really
// began or ended. The events come from a thread that wakes up only when the world moves again, and
// short pauses are over by then. The times stand behind gc_info in the event's union; other VMs
// leave those bytes as they are, so a mark tells that they are there.
#pragma once

#include <cstdint>
#include <cstring>

#include "jvmpi/jvmpi.h"

struct GcEdge {
    static constexpr std::uint64_t kMark = 0x9E3779B97F4A7C15u;

    std::uint64_t mark = 0;
    std::uint32_t sec = 0;  // wall clock
    std::uint32_t usec = 0;

    bool known() const { return mark == kMark; }
    void putInto(JVMPI_Event* event) const { std::memcpy(placeIn(event), this, sizeof *this); }
    static GcEdge of(const JVMPI_Event* event) {
        GcEdge edge;
        std::memcpy(&edge, placeIn(const_cast<JVMPI_Event*>(event)), sizeof edge);
        return edge;
    }

private:
    static void* placeIn(JVMPI_Event* event) {
        static_assert(sizeof event->u.gc_info + sizeof(GcEdge) <= sizeof event->u);
        return reinterpret_cast<char*>(&event->u) + sizeof event->u.gc_info;
    }
};
