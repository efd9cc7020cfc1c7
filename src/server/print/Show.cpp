#include "server/print/Show.h"

#include <charconv>
#include <string>
#include <utility>

#include "dc2ps/Text.h"
#include "server/join/SpanJoiner.h"
#include "server/print/ExceptionNote.h"
#include "server/print/JsonReader.h"
#include "server/print/LockSentence.h"
#include "server/print/RequestTable.h"

namespace server {

namespace {

constexpr std::size_t kMaxBuffer = 1u << 20;

std::string_view numberOrDash(std::string_view value) {
    return value.empty() || value == "null" ? "-" : value;
}

void appendObjectAsRow(std::string& out, const JsonObject& object) {
    std::string outcome(object["outcome"]);
    if (const std::string_view why = object["why"]; !why.empty())
        outcome.append(" (").append(why).append(")");
    std::string_view cpu = numberOrDash(object["cpuMs"]);
    if (const std::size_t point = cpu.find('.'); point != std::string_view::npos)
        cpu = cpu.substr(0, point + 4);
    const std::string_view level = object["level"];
    TableRow row;
    row.time = object["time"];
    row.node = object["node"];
    row.server = object["server"];
    row.kind = object["kind"];
    row.name = object["name"];
    row.application = object["application"];
    row.url = object["url"];
    row.user = object["user"];
    row.thread = numberOrDash(object["thread"]);
    row.depth = numberOrDash(object["depth"]);
    row.wallMs = numberOrDash(object["wallMs"]);
    row.cpuMs = cpu;
    row.outcome = outcome;
    std::from_chars(level.data(), level.data() + level.size(), row.level);
    appendTableRow(out, row);
}

void appendPlace(std::string& out, const JsonObject& object) {
    for (const auto& [key, after] : {std::pair{"node", '/'}, {"server", ' '}}) {
        dc2ps::appendText(out, object[key], dc2ps::Escape::terminal);
        out += after;
    }
}

void appendObjectAsException(std::string& out, const JsonObject& object) {
    out += "-- ";
    appendPlace(out, object);
    appendExceptionNote(
        out, {object["exception"], object["class"], object["method"], object["stackTrace"]});
    out += '\n';
}

void appendObjectAsLockStep(std::string& out, const JsonObject& object) {
    out += "-- ";
    dc2ps::appendText(out, object["time"], dc2ps::Escape::terminal);
    out += ' ';
    appendPlace(out, object);
    out += "lock: ";
    LockSentence step;
    step.kind = object["kind"];
    step.thread = object["thread"];
    step.inRequest = object.has("requestName");
    step.request = object["requestName"];
    step.lock = object["name"];
    step.method = object["method"];
    if (object["wallMs"] != "null") step.wallMs = object["wallMs"];
    step.began = object["outcome"] != outcomeName(Outcome::noStart);
    step.givenUp = object["why"];
    step.owner = object["ownerName"];
    step.ownerApplication = object["ownerApplication"];
    step.ownerMethod = object["ownerMethod"];
    appendLockSentence(out, step);
    out += '\n';
}

void appendObjectAsNote(std::string& out, const JsonObject& object) {
    out += "--";
    for (const auto& [key, value] : object.members()) {
        if (value.empty()) continue;
        out += ' ';
        if (key != "type") {
            dc2ps::appendText(out, key, dc2ps::Escape::terminal);
            out += '=';
        }
        dc2ps::appendText(out, value, dc2ps::Escape::terminal);
    }
    out += '\n';
}

bool isRow(std::string_view type) {
    return type == "request" || type == "call" || type == "heap" || type == "method";
}

bool isForProgramsOnly(std::string_view type) {
    return type == "classLoad" || type == "classUnload" || type == "portalMethod";
}

}  // namespace

std::size_t show(std::istream& in, LineSink& out) {
    std::string buffer;
    std::string line;
    std::size_t rows = 0;
    std::uint64_t strange = 0;
    appendTableHeader(buffer);
    while (std::getline(in, line)) {
        const std::optional<JsonObject> object = JsonObject::parse(line);
        if (!object) {
            ++strange;
            continue;
        }
        const std::string_view type = (*object)["type"];
        if (isRow(type)) {
            ++rows;
            appendObjectAsRow(buffer, *object);
        } else if (type == "lock") {
            ++rows;
            appendObjectAsLockStep(buffer, *object);
        } else if (type == "exception") {
            appendObjectAsException(buffer, *object);
        } else if (!isForProgramsOnly(type)) {
            appendObjectAsNote(buffer, *object);
        }
        if (buffer.size() < kMaxBuffer) continue;
        out.write(buffer);
        buffer.clear();
    }
    if (strange > 0) {
        buffer += "-- left out: ";
        dc2ps::appendNumber(buffer, strange);
        buffer += " lines that are no JSON objects\n";
    }
    out.write(buffer);
    return rows;
}

}  // namespace server
