// One JSON object per line, for programs. docs/PUBLISH_SERVER.md lists the types and their fields.
#pragma once

#include <string>

#include "server/join/SpanLabels.h"
#include "server/model/LineSink.h"
#include "server/model/Output.h"

namespace server {

class JsonLine;

class JsonOutput final : public Output {
public:
    explicit JsonOutput(LineSink& sink) : sink_(sink) {}

    void agent(const Agent& agent, AgentEvent event, std::string_view reason,
               std::int64_t nowMillis) override;
    void garbage(const Agent& agent, std::uint64_t offset, std::string_view reason,
                 std::int64_t nowMillis) override;
    void span(const Agent& agent, const Span& span) override;
    void gc(const Agent& agent, const GcPause& pause) override;
    void note(const Agent& agent, const dc2ps::Record& record) override;
    void summary(const Statistics& statistics) override;
    void flush() override;

private:
    void details(JsonLine& line, const Agent& agent, const Span& span);
    void finish(JsonLine& line);

    LineSink& sink_;
    std::string buffer_;
    SpanLabels labels_;   // scratch
    SpanLabels request_;  // scratch
};

}  // namespace server
