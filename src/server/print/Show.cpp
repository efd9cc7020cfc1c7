#include "server/print/Show.h"

#include <string>
#include <utility>

#include "dc2ps/Text.h"
#include "server/print/ExceptionNote.h"
#include "server/print/JsonReader.h"
#include "server/print/LockSentence.h"
#include "server/print/RequestTable.h"
#include "server/print/RowReader.h"

namespace server {

namespace {

constexpr std::size_t kMaxBuffer = 1u << 20;

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

void appendLockStep(std::string& out, const JsonObject& object, const SpanRow& row) {
    out += "-- ";
    dc2ps::appendIsoTime(out, row.time.time_since_epoch().count());
    out += ' ';
    appendPlace(out, object);
    out += "lock: ";
    appendLockSentence(out, row);
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

bool isWork(std::string_view type) {
    return type == "request" || type == "call" || type == "lock" || type == "heap" ||
           type == "method";
}

bool isForProgramsOnly(std::string_view type) {
    return type == "classLoad" || type == "classUnload" || type == "portalMethod";
}

void appendObject(std::string& out, const JsonObject& object) {
    const std::string_view type = object["type"];
    if (const auto row = isWork(type) ? rowOf(object) : std::nullopt) {
        if (groupOf(row->kind) == SpanGroup::lock)
            appendLockStep(out, object, *row);
        else
            appendTableRow(out, *row);
    } else if (type == "exception") {
        appendObjectAsException(out, object);
    } else if (!isForProgramsOnly(type)) {
        appendObjectAsNote(out, object);
    }
}

}  // namespace

bool show(std::istream& in, LineSink& out, std::string& wrong) {
    std::string buffer;
    std::string line;
    std::uint64_t objects = 0;
    std::uint64_t strange = 0;
    appendTableHeader(buffer);
    while (std::getline(in, line)) {
        const std::optional<JsonObject> object = JsonObject::parse(line);
        ++(object ? objects : strange);
        if (object) appendObject(buffer, *object);
        if (buffer.size() < kMaxBuffer) continue;
        out.write(buffer);
        buffer.clear();
    }
    if (objects == 0 && strange > 0) wrong = "there is no line of JSON in it";
    if (in.bad()) wrong = "the file cannot be read to its end";
    if (!wrong.empty()) return false;
    if (strange > 0) {
        buffer += "-- left out: ";
        dc2ps::appendNumber(buffer, strange);
        buffer += " lines that are no JSON objects\n";
    }
    out.write(buffer);
    return true;
}

}  // namespace server
