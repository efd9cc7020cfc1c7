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

}  // namespace

TableOutput::TableOutput(LineSink& sink) : buffer_(sink) {
    appendTableHeader(buffer_.text);
}

void TableOutput::beginNote(const Agent& agent, std::int64_t timeMicros, std::string_view what) {
    buffer_.text += "-- ";
    if (timeMicros >= 0) {
        appendIsoTime(buffer_.text, timeMicros);
        buffer_.text += ' ';
    }
    if (agent.known) {
        dc2ps::appendText(buffer_.text, agent.node, Escape::terminal);
        buffer_.text += '/';
        dc2ps::appendText(buffer_.text, agent.server, Escape::terminal);
    } else {
        buffer_.text += agent.peer;
    }
    buffer_.text += ' ';
    buffer_.text += what;
}

void TableOutput::endLine() {
    buffer_.text += '\n';
    buffer_.lineEnds();
}

void TableOutput::agent(const Agent& agent, AgentEvent event, std::string_view reason,
                        std::int64_t nowMillis) {
    beginNote(agent, nowMillis * 1000, "agent ");
    switch (event) {
        case AgentEvent::connected:
            buffer_.text += "connected from " + agent.peer;
            if (agent.adminPort > 0) {
                buffer_.text += ", admin port ";
                appendNumber(buffer_.text, std::int64_t{agent.adminPort});
            }
            break;
        case AgentEvent::reannounced:
            buffer_.text += "sends its first records again";
            break;
        case AgentEvent::unidentified:
            buffer_.text += "sends records without having said who it is";
            break;
        case AgentEvent::disconnected:
            buffer_.text += "disconnected: ";
            buffer_.text += reason;
            buffer_.text += " (";
            appendNumber(buffer_.text, agent.records);
            buffer_.text += " records in ";
            appendNumber(buffer_.text, agent.packets);
            buffer_.text += " packets, ";
            appendNumber(buffer_.text, agent.bytes);
            buffer_.text += " bytes)";
            break;
    }
    buffer_.text += ", connection ";
    appendNumber(buffer_.text, agent.connection);
    endLine();
}

void TableOutput::garbage(const Agent& agent, std::uint64_t offset, std::string_view reason,
                          std::int64_t nowMillis) {
    beginNote(agent, nowMillis * 1000, "garbage at byte ");
    appendNumber(buffer_.text, offset);
    buffer_.text += ": ";
    buffer_.text += reason;
    endLine();
}

void TableOutput::span(const Agent& agent, const SpanRow& row) {
    if (groupOf(row.kind) == SpanGroup::lock) {
        beginNote(agent, row.time.time_since_epoch().count(), "lock: ");
        appendLockSentence(buffer_.text, row);
        return endLine();
    }
    appendTableRow(buffer_.text, row);
    buffer_.lineEnds();
}

void TableOutput::gc(const Agent& agent, const GcPause& pause) {
    const std::int64_t end = pause.end->time.micros();
    beginNote(agent, pause.startMicros.value_or(end), "garbage collection");
    if (pause.startMicros) {
        buffer_.text += " of ";
        appendDecimal(buffer_.text, end - *pause.startMicros, 3);
        buffer_.text += " ms";
    }
    buffer_.text += ", ";
    appendNumber(buffer_.text, pause.end->usedSpace);
    buffer_.text += " of ";
    appendNumber(buffer_.text, pause.end->totalSpace);
    buffer_.text += " bytes in use";
    if (pause.end->usedObjects >= 0) {
        buffer_.text += " by ";
        appendNumber(buffer_.text, pause.end->usedObjects);
        buffer_.text += " objects";
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
        appendDrop(buffer_.text, *drop);
    else if (const auto* e = std::get_if<dc2ps::Exception>(&record))
        appendExceptionNote(buffer_.text,
                            {e->exception, e->className, e->methodName, e->stackTrace});
    else
        dc2ps::appendRecord(buffer_.text, record);
    endLine();
}

void TableOutput::summary(const Statistics& statistics) {
    std::string& out = buffer_.text;
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

std::size_t TableOutput::flush() {
    return buffer_.flush();
}

}  // namespace server
