// Hands everything on to several outputs, in the order in which they were added.
//
// An output must not hold up the others: one that can be slow writes through a queue of its own
// (print/QueuedSink). Threads: like every output, used by the server's one thread.
#pragma once

#include <vector>

#include "server/model/Output.h"

namespace server {

class Fanout final : public Output {
public:
    void add(Output& output) { outputs_.push_back(&output); }  // outlives the fan-out

    void agent(const Agent& agent, AgentEvent event, std::string_view reason,
               std::int64_t nowMillis) override;
    void garbage(const Agent& agent, std::uint64_t offset, std::string_view reason,
                 std::int64_t nowMillis) override;
    void span(const Agent& agent, const SpanRow& row) override;
    void gc(const Agent& agent, const GcPause& pause) override;
    void note(const Agent& agent, const dc2ps::Record& record) override;
    void summary(const Statistics& statistics) override;
    std::size_t flush() override;  // of all together

private:
    std::vector<Output*> outputs_;
};

}  // namespace server
