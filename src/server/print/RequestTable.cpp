#include "server/print/RequestTable.h"

#include <algorithm>
#include <string_view>

#include "dc2ps/Text.h"

namespace server {

namespace {

// Columns. A text that is longer is cut; a number never is.
constexpr std::size_t kTime = 27;
constexpr std::size_t kWhere = 20;
constexpr std::size_t kKind = 15;
constexpr std::size_t kName = 40;
constexpr std::size_t kApplication = 16;
constexpr std::size_t kUrl = 32;
constexpr std::size_t kUser = 10;
constexpr std::size_t kThread = 10;
constexpr std::size_t kDepth = 5;
constexpr std::size_t kWall = 12;
constexpr std::size_t kCpu = 12;
constexpr int kMaxIndent = 20;

void pad(std::string& out, std::size_t from, std::size_t width) {
    const std::size_t used = dc2ps::columnsOf(std::string_view(out).substr(from));
    out.append(used < width ? width - used : 0, ' ');
    out += ' ';
}

void left(std::string& out, std::string_view untrusted, std::size_t width, std::size_t indent = 0) {
    const std::size_t from = out.size();
    out.append(indent, ' ');
    // One character less than the width is left for the ellipsis.
    const std::size_t room = width - indent;
    const bool fits = dc2ps::columnsOf(untrusted) <= room;
    dc2ps::appendText(out, untrusted, dc2ps::Escape::terminal, fits ? SIZE_MAX : room - 1);
    pad(out, from, width);
}

void right(std::string& out, std::string_view number, std::size_t width) {
    out.append(number.size() < width ? width - number.size() : 0, ' ');
    out += number;
    out += ' ';
}

}  // namespace

void appendTableHeader(std::string& out) {
    left(out, "TIME", kTime);
    left(out, "NODE/SERVER", kWhere);
    left(out, "KIND", kKind);
    left(out, "NAME", kName);
    left(out, "APPLICATION", kApplication);
    left(out, "URL", kUrl);
    left(out, "USER", kUser);
    right(out, "THREAD", kThread);
    right(out, "DEPTH", kDepth);
    right(out, "WALL_MS", kWall);
    right(out, "CPU_MS", kCpu);
    out += "OUTCOME\n";
}

void appendTableRow(std::string& out, const SpanRow& row) {
    std::string text;
    dc2ps::appendIsoTime(text, row.time.time_since_epoch().count());
    left(out, text, kTime);
    left(out, text.assign(row.node).append("/").append(row.server), kWhere);
    left(out, spanKindName(row.kind), kKind);
    left(out, row.labels.name, kName,
         2 * static_cast<std::size_t>(std::clamp(row.level, 0, kMaxIndent / 2)));
    left(out, row.labels.application, kApplication);
    left(out, row.labels.url, kUrl);
    left(out, row.labels.user, kUser);
    text.clear();
    dc2ps::appendNumber(text, std::uint64_t{row.thread});
    right(out, text, kThread);
    text.clear();
    dc2ps::appendNumber(text, std::uint64_t{row.depth});
    right(out, text, kDepth);
    text.clear();
    row.wall ? dc2ps::appendDecimal(text, row.wall->count(), 3) : void(text = "-");
    right(out, text, kWall);
    text.clear();
    row.cpu ? dc2ps::appendDecimal(text, row.cpu->count() / 1000, 3) : void(text = "-");
    right(out, text, kCpu);
    out += outcomeName(row.outcome);
    if (row.why != GivenUp::no) out.append(" (").append(givenUpName(row.why)).append(")");
    out += '\n';
}

}  // namespace server
