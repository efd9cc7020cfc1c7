#include "server/model/Fanout.h"

namespace server {

void Fanout::agent(const Agent& agent, AgentEvent event, std::string_view reason,
                   std::int64_t nowMillis) {
    for (Output* each : outputs_) each->agent(agent, event, reason, nowMillis);
}

void Fanout::garbage(const Agent& agent, std::uint64_t offset, std::string_view reason,
                     std::int64_t nowMillis) {
    for (Output* each : outputs_) each->garbage(agent, offset, reason, nowMillis);
}

void Fanout::span(const Agent& agent, const SpanRow& row) {
    for (Output* each : outputs_) each->span(agent, row);
}

void Fanout::gc(const Agent& agent, const GcPause& pause) {
    for (Output* each : outputs_) each->gc(agent, pause);
}

void Fanout::note(const Agent& agent, const dc2ps::Record& record) {
    for (Output* each : outputs_) each->note(agent, record);
}

void Fanout::summary(const Statistics& statistics) {
    for (Output* each : outputs_) each->summary(statistics);
}

std::size_t Fanout::flush() {
    std::size_t bytes = 0;
    for (Output* each : outputs_) bytes += each->flush();
    return bytes;
}

}  // namespace server
