// One JSON object per line, for programs. docs/PUBLISH_SERVER.md lists the types and their fields.
#pragma once

#include "server/model/LineSink.h"
#include "server/model/Output.h"
#include "server/print/LineBuffer.h"

namespace server {

class JsonLine;

class JsonOutput final : public Output {
public:
    explicit JsonOutput(LineSink& sink) : buffer_(sink) {}

    void agent(const Agent& agent, AgentEvent event, std::string_view reason,
               std::int64_t nowMillis) override;
    void garbage(const Agent& agent, std::uint64_t offset, std::string_view reason,
                 std::int64_t nowMillis) override;
    void span(const Agent& agent, const SpanRow& row) override;
    void gc(const Agent& agent, const GcPause& pause) override;
    void note(const Agent& agent, const dc2ps::Record& record) override;
    void summary(const Statistics& statistics) override;
    std::size_t flush() override;

private:
    void finish(JsonLine& line);

    LineBuffer buffer_;
};

}  // namespace server
