// The format for people: a table of requests and calls, and a line that begins with "--" for
// everything else; below the line of an exception stands its stack. Class records and portal method
// names are left out: they are for programs.
#pragma once

#include "server/model/LineSink.h"
#include "server/model/Output.h"
#include "server/print/LineBuffer.h"

namespace server {

class TableOutput final : public Output {
public:
    explicit TableOutput(LineSink& sink);

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
    void beginNote(const Agent& agent, std::int64_t timeMicros, std::string_view what);
    void endLine();

    LineBuffer buffer_;
};

}  // namespace server
