// What the server has counted since it started.
#pragma once

#include <array>
#include <cstdint>

#include "dc2ps/Records.h"
#include "server/model/SpanRow.h"

namespace server {

struct Statistics {
    struct Outcomes {
        std::array<std::uint64_t, 4> byOutcome{};  // indexed by Outcome
        std::uint64_t total() const {
            return byOutcome[0] + byOutcome[1] + byOutcome[2] + byOutcome[3];
        }
        void count(Outcome outcome) { ++byOutcome[static_cast<std::size_t>(outcome)]; }
    };

    std::uint64_t connections = 0;
    std::uint64_t refusedConnections = 0;  // beyond the limit of connections
    std::uint64_t garbageConnections = 0;  // closed because of what they sent
    std::uint64_t bytes = 0;
    std::uint64_t packets = 0;  // init packets included
    std::uint64_t records = 0;  // headers and init records not included
    std::array<std::uint64_t, 256> recordsByType{};
    Outcomes requests;
    Outcomes calls;                   // everything else that starts and ends
    std::uint64_t dropRecords = 0;    // drop records received
    std::uint64_t droppedEvents = 0;  // events that agents reported as dropped

    void count(const dc2ps::Dropped& r);
};

}  // namespace server
