#include "server/print/JsonOutput.h"

#include "server/print/JsonLine.h"

namespace server {

using dc2ps::Record;

namespace {

const char* jsonTypeOf(SpanKind kind) {
    switch (groupOf(kind)) {
        case SpanGroup::request:
        case SpanGroup::looseRequest:
            return "request";
        case SpanGroup::call:
            return "call";
        case SpanGroup::lock:
            return "lock";
        case SpanGroup::heap:
            return "heap";
        case SpanGroup::method:
            return "method";
    }
    return "";
}

const char* jsonTypeOf(const Record& record) {
    using enum dc2ps::RecordType;
    switch (dc2ps::typeOf(record)) {
        case dropped:
            return "drop";
        case psStatus:
            return "status";
        case exception:
            return "exception";
        case classLoad:
            return "classLoad";
        case classUnload:
            return "classUnload";
        case trace:
            return "trace";
        case sampling:
            return "sampling";
        case ctg:
            return "ctg";
        case mqi:
            return "mqi";
        case portalMethodName:
            return "portalMethod";
        default:
            return "portalSummary";
    }
}

const char* endingName(AgentEnding ending) {
    constexpr const char* names[] = {"orderly", "cut", "byServer"};
    return names[static_cast<std::size_t>(ending)];
}

const char* nameOf(AgentEvent event) {
    switch (event) {
        case AgentEvent::connected:
            return "connected";
        case AgentEvent::reannounced:
            return "reannounced";
        case AgentEvent::unidentified:
            return "unidentified";
        case AgentEvent::disconnected:
            return "disconnected";
    }
    return "";
}

// Writes the fields of a row, called by its fields().
struct RowWriter {
    JsonLine& line;

    void operator()(const char* key, SpanKind kind) const { line.text(key, spanKindName(kind)); }
    void operator()(const char* key, Outcome outcome) const {
        line.text(key, outcomeName(outcome));
    }
    void operator()(const char* key, GivenUp why) const {
        if (why != GivenUp::no) line.text(key, givenUpName(why));
    }
    void operator()(const char* key, MicroTime time) const {
        line.time(key, time.time_since_epoch().count());
    }
    void operator()(const char* key, const Micros& wall) const { millis(key, wall, 3); }
    void operator()(const char* key, const Nanos& cpu) const { millis(key, cpu, 6); }
    template <class Detail>
    void operator()(const char* key, const std::optional<Detail>& detail) const {
        if (detail) line(key, *detail);
    }
    template <class Field>
    void operator()(const char* key, const Field& field) const {
        line(key, field);
    }

private:
    template <class Duration>
    void millis(const char* key, const Duration& duration, int decimals) const {
        duration ? line.decimal(key, duration->count(), decimals) : line.null(key);
    }
};

void where(JsonLine& line, const Agent& agent) {
    line.number("connection", agent.connection);
    line.text("node", agent.node);
    line.text("server", agent.server);
}

void outcomes(JsonLine& line, const char* key, const Statistics::Outcomes& counts) {
    const std::string prefix = key;
    line.number(prefix, counts.total());
    line.number(prefix + "Ok", counts.byOutcome[0]);
    line.number(prefix + "Error", counts.byOutcome[1]);
    line.number(prefix + "Unfinished", counts.byOutcome[2]);
    line.number(prefix + "NoStart", counts.byOutcome[3]);
}

}  // namespace

void JsonOutput::agent(const Agent& agent, AgentEvent event, std::string_view reason,
                       std::int64_t nowMillis) {
    JsonLine line(buffer_.text, "agent");
    line.text("event", nameOf(event));
    line.time("time", nowMillis * 1000);
    where(line, agent);
    line.text("peer", agent.peer);
    if (event == AgentEvent::connected || event == AgentEvent::reannounced) {
        line.text("componentId", agent.componentId);
        line.text("cluster", agent.cluster);
        std::string version;
        for (const std::uint8_t part : agent.version) {
            if (!version.empty()) version += '.';
            dc2ps::appendNumber(version, std::uint64_t{part});
        }
        line.text("version", version);
        line.text("kind", agent.standalone ? "standalone" : "applicationServer");
        line.number("adminPort", agent.adminPort);
        line.number("platform", agent.platform);
        line.number("agentMillis", agent.agentMillis);
    }
    if (event == AgentEvent::disconnected) {
        line.text("reason", reason);
        line.number("bytes", agent.bytes);
        line.number("packets", agent.packets);
        line.number("records", agent.records);
        line.text("end", endingName(agent.ending));
        line.number("open", agent.openAtEnd);
    }
    finish(line);
}

void JsonOutput::garbage(const Agent& agent, std::uint64_t offset, std::string_view reason,
                         std::int64_t nowMillis) {
    JsonLine line(buffer_.text, "garbage");
    line.time("time", nowMillis * 1000);
    where(line, agent);
    line.text("peer", agent.peer);
    line.number("offset", offset);
    line.text("reason", reason);
    finish(line);
}

void JsonOutput::span(const Agent&, const SpanRow& row) {
    JsonLine line(buffer_.text, jsonTypeOf(row.kind));
    SpanRow::fields(row, RowWriter{line});
    finish(line);
}

void JsonOutput::gc(const Agent& agent, const GcPause& pause) {
    JsonLine line(buffer_.text, "gc");
    const std::int64_t end = pause.end->time.micros();
    line.time("time", pause.startMicros.value_or(end));
    where(line, agent);
    line.number("thread", pause.end->threadId);
    pause.startMicros ? line.decimal("pauseMs", end - *pause.startMicros, 3) : line.null("pauseMs");
    line.number("usedObjects", pause.end->usedObjects);
    line.number("usedSpace", pause.end->usedSpace);
    line.number("totalSpace", pause.end->totalSpace);
    finish(line);
}

void JsonOutput::note(const Agent& agent, const Record& record) {
    JsonLine line(buffer_.text, jsonTypeOf(record));
    where(line, agent);
    std::visit(
        [&](const auto& r) {
            using R = std::decay_t<decltype(r)>;
            if constexpr (std::is_same_v<R, dc2ps::PortalAverage> ||
                          std::is_same_v<R, dc2ps::PortalCredentialVault> ||
                          std::is_same_v<R, dc2ps::PortalContentAccess>)
                line.text("kind", dc2ps::recordTypeName(r.type));
            if constexpr (std::is_same_v<R, dc2ps::Mqi>) {
                line.text("queueManager", r.queueManager);
                line.text("queue", r.queue);
                line.number("snapshotTime", r.snapshotTime);
                line.beginArray("calls");
                for (std::size_t i = 0; i < static_cast<std::size_t>(r.elementCount); ++i) {
                    const dc2ps::Mqi::Element element = r.element(i);
                    line.beginElement();
                    line.number("callType", element.callType);
                    line.number("count", element.count);
                    line.number("averageTime", element.averageTime);
                    line.end('}');
                }
                line.end(']');
            } else {
                R::fields(r, line);
            }
        },
        record);
    finish(line);
}

void JsonOutput::summary(const Statistics& statistics) {
    JsonLine line(buffer_.text, "summary");
    line.number("connections", statistics.connections);
    line.number("refusedConnections", statistics.refusedConnections);
    line.number("garbageConnections", statistics.garbageConnections);
    line.number("bytes", statistics.bytes);
    line.number("packets", statistics.packets);
    line.number("records", statistics.records);
    outcomes(line, "requests", statistics.requests);
    outcomes(line, "calls", statistics.calls);
    line.number("dropRecords", statistics.dropRecords);
    line.number("droppedEvents", statistics.droppedEvents);
    line.beginObject("recordsByType");
    for (std::size_t type = 0; type < statistics.recordsByType.size(); ++type)
        if (statistics.recordsByType[type] > 0)
            line.number(dc2ps::recordTypeName(static_cast<dc2ps::RecordType>(type)),
                        statistics.recordsByType[type]);
    line.end('}');
    finish(line);
}

void JsonOutput::finish(JsonLine& line) {
    line.finish();
    buffer_.lineEnds();
}

std::size_t JsonOutput::flush() {
    return buffer_.flush();
}

}  // namespace server
