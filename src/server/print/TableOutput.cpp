#include "server/print/TableOutput.h"

#include <algorithm>

#include "dc2ps/RecordPrinter.h"
#include "dc2ps/Text.h"
#include "server/print/ExceptionNote.h"
#include "server/print/LockSentence.h"
#include "server/print/RequestTable.h"

namespace server {

using dc2ps::appendDecimal;
using dc2ps::appendIsoTime;
using dc2ps::appendNumber;
using dc2ps::Escape;

namespace {

constexpr std::size_t kMaxBuffer = 1u << 20;  // bytes written before they are handed over

void appendCount(std::string& out, std::int64_t count, const char* what) {
    if (count == 0) return;
    if (out.back() != ':') out += ',';
    out += ' ';
    appendNumber(out, count);
    out += ' ';
    out += what;
}

void appendDrop(std::string& out, const dc2ps::Dropped& drop) {
    out += "dropped on thread ";
    appendNumber(out, std::uint64_t{drop.threadId});
    out += ':';
    appendCount(out, drop.requestStarts, "request starts");
    appendCount(out, drop.requestEnds, "request ends");
    appendCount(out, drop.methodStarts, "method entries");
    appendCount(out, drop.methodEnds, "method exits");
    appendCount(out, drop.sqlStarts, "SQL starts");
    appendCount(out, drop.sqlEnds, "SQL ends");
    if (out.back() == ':') out += " capture has stopped, nothing is counted until it resumes";
}

void appendOutcomes(std::string& out, const Statistics::Outcomes& counts, const char* what) {
    appendNumber(out, counts.total());
    out.append(" ").append(what).append(" (");
    for (std::size_t i = 0; i < counts.byOutcome.size(); ++i) {
        if (i > 0) out += ", ";
        appendNumber(out, counts.byOutcome[i]);
        out.append(" ").append(outcomeName(static_cast<Outcome>(i)));
    }
    out += ')';
}

// A start record without its fields stands in where only the end has arrived.
template <class R>
R startOf(const Span& span) {
    return span.start ? std::get<R>(*span.start) : R{};
}

}  // namespace

TableOutput::TableOutput(LineSink& sink) : sink_(sink) {
    appendTableHeader(buffer_);
}

void TableOutput::beginNote(const Agent& agent, std::int64_t timeMicros, std::string_view what) {
    buffer_ += "-- ";
    if (timeMicros >= 0) {
        appendIsoTime(buffer_, timeMicros);
        buffer_ += ' ';
    }
    if (agent.known) {
        dc2ps::appendText(buffer_, agent.node, Escape::terminal);
        buffer_ += '/';
        dc2ps::appendText(buffer_, agent.server, Escape::terminal);
    } else {
        buffer_ += agent.peer;
    }
    buffer_ += ' ';
    buffer_ += what;
}

// Much may be written before the next flush, so the buffer is kept small here.
void TableOutput::endLine() {
    buffer_ += '\n';
    if (buffer_.size() >= kMaxBuffer) flush();
}

void TableOutput::agent(const Agent& agent, AgentEvent event, std::string_view reason,
                        std::int64_t nowMillis) {
    beginNote(agent, nowMillis * 1000, "agent ");
    switch (event) {
        case AgentEvent::connected:
            buffer_ += "connected from " + agent.peer;
            if (agent.adminPort > 0) {
                buffer_ += ", admin port ";
                appendNumber(buffer_, std::int64_t{agent.adminPort});
            }
            break;
        case AgentEvent::reannounced:
            buffer_ += "sends its first records again";
            break;
        case AgentEvent::unidentified:
            buffer_ += "sends records without having said who it is";
            break;
        case AgentEvent::disconnected:
            buffer_ += "disconnected: ";
            buffer_ += reason;
            buffer_ += " (";
            appendNumber(buffer_, agent.records);
            buffer_ += " records in ";
            appendNumber(buffer_, agent.packets);
            buffer_ += " packets, ";
            appendNumber(buffer_, agent.bytes);
            buffer_ += " bytes)";
            break;
    }
    buffer_ += ", connection ";
    appendNumber(buffer_, agent.connection);
    endLine();
}

void TableOutput::garbage(const Agent& agent, std::uint64_t offset, std::string_view reason,
                          std::int64_t nowMillis) {
    beginNote(agent, nowMillis * 1000, "garbage at byte ");
    appendNumber(buffer_, offset);
    buffer_ += ": ";
    buffer_ += reason;
    endLine();
}

void TableOutput::span(const Agent& agent, const Span& span) {
    labelSpan(span, agent.names, labels_);
    if (groupOf(span.kind) == SpanGroup::lock)
        lock(agent, span);
    else
        row(agent, span);
    if (buffer_.size() >= kMaxBuffer) flush();
}

void TableOutput::row(const Agent& agent, const Span& span) {
    std::string time, thread, depth, wall, cpu;  // short: no allocation but the time's
    appendIsoTime(time, timeOf(span));
    appendNumber(thread, std::uint64_t{span.threadId});
    appendNumber(depth, std::uint64_t{span.depth});
    span.wallMicros ? appendDecimal(wall, *span.wallMicros, 3) : void(wall = "-");
    span.cpuNanos ? appendDecimal(cpu, *span.cpuNanos / 1000, 3) : void(cpu = "-");
    std::string outcome = outcomeName(span.outcome);
    if (span.why != GivenUp::no) outcome.append(" (").append(givenUpName(span.why)).append(")");
    TableRow row;
    row.time = time;
    row.node = agent.node;
    row.server = agent.server;
    row.kind = spanKindName(span.kind);
    row.name = labels_.name;
    row.application = labels_.application;
    row.url = labels_.url;
    row.user = labels_.user;
    row.thread = thread;
    row.depth = depth;
    row.wallMs = wall;
    row.cpuMs = cpu;
    row.outcome = outcome;
    row.level = span.level;
    appendTableRow(buffer_, row);
}

void TableOutput::lock(const Agent& agent, const Span& span) {
    beginNote(agent, timeOf(span), "lock: ");
    std::string thread, wall;
    appendNumber(thread, std::uint64_t{span.threadId});
    LockSentence sentence;
    sentence.kind = spanKindName(span.kind);
    sentence.thread = thread;
    sentence.lock = labels_.name;
    sentence.began = span.start != nullptr;
    sentence.givenUp = givenUpName(span.why);
    if (span.request) {
        labelRecord(*span.request, agent.names, request_);
        sentence.inRequest = true;
        sentence.request = request_.name;
    }
    if (span.wallMicros) {
        appendDecimal(wall, *span.wallMicros, 3);
        sentence.wallMs = wall;
    }
    if (span.kind == SpanKind::lockContention) {
        const auto r = startOf<dc2ps::LockContention>(span);
        sentence.method = agent.names.method(r.methodId);
        sentence.owner = r.ownerName;
        sentence.ownerApplication = r.ownerApplication;
        sentence.ownerMethod = agent.names.method(r.ownerMethodId);
        appendLockSentence(buffer_, sentence);
    } else {
        sentence.method = agent.names.method(startOf<dc2ps::LockStep>(span).methodId);
        appendLockSentence(buffer_, sentence);
    }
    buffer_ += '\n';
}

void TableOutput::gc(const Agent& agent, const GcPause& pause) {
    const std::int64_t end = pause.end->time.micros();
    beginNote(agent, pause.startMicros.value_or(end), "garbage collection");
    if (pause.startMicros) {
        buffer_ += " of ";
        appendDecimal(buffer_, end - *pause.startMicros, 3);
        buffer_ += " ms";
    }
    buffer_ += ", ";
    appendNumber(buffer_, pause.end->usedSpace);
    buffer_ += " of ";
    appendNumber(buffer_, pause.end->totalSpace);
    buffer_ += " bytes in use";
    if (pause.end->usedObjects >= 0) {
        buffer_ += " by ";
        appendNumber(buffer_, pause.end->usedObjects);
        buffer_ += " objects";
    }
    endLine();
}

void TableOutput::note(const Agent& agent, const dc2ps::Record& record) {
    if (std::holds_alternative<dc2ps::ClassLoad>(record) ||
        std::holds_alternative<dc2ps::ClassUnload>(record) ||
        std::holds_alternative<dc2ps::PortalMethodName>(record))
        return;
    beginNote(agent, -1, "");
    if (const auto* drop = std::get_if<dc2ps::Dropped>(&record))
        appendDrop(buffer_, *drop);
    else if (const auto* e = std::get_if<dc2ps::Exception>(&record))
        appendExceptionNote(buffer_, {e->exception, e->className, e->methodName, e->stackTrace});
    else
        dc2ps::appendRecord(buffer_, record);
    endLine();
}

void TableOutput::summary(const Statistics& statistics) {
    std::string& out = buffer_;
    out += "-- summary: ";
    appendNumber(out, statistics.connections);
    out += " connections (";
    appendNumber(out, statistics.garbageConnections);
    out += " sent garbage, ";
    appendNumber(out, statistics.refusedConnections);
    out += " refused), ";
    appendNumber(out, statistics.packets);
    out += " packets, ";
    appendNumber(out, statistics.records);
    out += " records, ";
    appendOutcomes(out, statistics.requests, "requests");
    out += ", ";
    appendOutcomes(out, statistics.calls, "calls");
    out += ", ";
    appendNumber(out, statistics.droppedEvents);
    out += " events dropped in ";
    appendNumber(out, statistics.dropRecords);
    out += " drop records; by type:";
    for (std::size_t type = 0; type < statistics.recordsByType.size(); ++type) {
        if (statistics.recordsByType[type] == 0) continue;
        out.append(" ").append(dc2ps::recordTypeName(static_cast<dc2ps::RecordType>(type)));
        out += '=';
        appendNumber(out, statistics.recordsByType[type]);
    }
    endLine();
}

void TableOutput::flush() {
    if (buffer_.empty()) return;
    sink_.write(buffer_);
    buffer_.clear();
    if (buffer_.capacity() > 2 * kMaxBuffer) buffer_.shrink_to_fit();
}

}  // namespace server
