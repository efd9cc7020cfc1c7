// Where everything that the server has to tell goes. One implementation per format.
//
// Texts that come from agents are untrusted when they arrive here; an implementation makes them
// safe. Threads: used by the server's one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "dc2ps/Records.h"
#include "server/model/Agent.h"
#include "server/model/SpanRow.h"
#include "server/model/Statistics.h"

namespace server {

enum class AgentEvent : std::uint8_t {
    connected,     // its init packet has arrived
    reannounced,   // another init packet has arrived on the same connection
    unidentified,  // it sends records but has not said who it is
    disconnected
};

struct GcPause {
    std::optional<std::int64_t> startMicros;  // null: the start did not arrive
    const dc2ps::Gc* end = nullptr;           // never null; valid only during the call
};

class Output {
public:
    virtual ~Output() = default;

    // reason: why it was disconnected; empty for the other events. now: ms since 1970.
    virtual void agent(const Agent& agent, AgentEvent event, std::string_view reason,
                       std::int64_t nowMillis) = 0;
    // What an agent sent cannot be read; its connection is closed.
    virtual void garbage(const Agent& agent, std::uint64_t offset, std::string_view reason,
                         std::int64_t nowMillis) = 0;
    // row: valid during the call, like everything here; it may be copied.
    virtual void span(const Agent& agent, const SpanRow& row) = 0;
    virtual void gc(const Agent& agent, const GcPause& pause) = 0;
    // A record that stands for itself: dropped, status, exception, class load, summaries, ...
    virtual void note(const Agent& agent, const dc2ps::Record& record) = 0;
    virtual void summary(const Statistics& statistics) = 0;
    // Hands over what has been written so far. How many bytes were since the last time.
    virtual std::size_t flush() = 0;
};

}  // namespace server
