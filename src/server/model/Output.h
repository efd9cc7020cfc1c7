// Where everything that the server has to tell goes. One implementation per format.
//
// Texts that come from agents are untrusted when they arrive here; an implementation makes them
// safe. Threads: used by the server's one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "dc2ps/Records.h"
#include "server/join/SpanJoiner.h"
#include "server/model/Agent.h"
#include "server/model/Statistics.h"

namespace server {

enum class AgentEvent : std::uint8_t {
    connected,     // its init packet has arrived
    reannounced,   // another init packet has arrived on the same connection
    unidentified,  // it sends records but has not said who it is
    disconnected
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
    virtual void span(const Agent& agent, const Span& span) = 0;
    virtual void gc(const Agent& agent, const GcPause& pause) = 0;
    // A record that stands for itself: dropped, status, exception, class load, summaries, ...
    virtual void note(const Agent& agent, const dc2ps::Record& record) = 0;
    virtual void summary(const Statistics& statistics) = 0;
    // Hands over to the sink what has been written so far.
    virtual void flush() = 0;
};

}  // namespace server
