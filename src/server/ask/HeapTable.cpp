#include "server/ask/HeapTable.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "dc2ps/Text.h"

namespace server {

namespace {

constexpr std::size_t kBytesWidth = 10;  // 32 bits
constexpr std::size_t kPercentWidth = 6;
constexpr std::size_t kPerObjectWidth = 12;
constexpr std::size_t kQuoted = 60;  // characters of a wrong line that are shown

constexpr std::size_t kMaxBuffer = 1u << 20;

constexpr std::string_view kLastLine = "object[]";

struct HeapRow {
    std::string name;         // dotted; untrusted
    std::uint32_t bytes = 0;  // the wire's 32 bits: the sums of a larger heap wrap
    std::uint32_t objects = 0;
    double bytesPercent = 0;  // not finite: of nothing
    double objectsPercent = 0;
};

template <class Number>
bool parseWhole(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// The number behind the last comma of the rest, which loses both. A name may hold commas, so a line
// is read from its end.
template <class Number>
bool takeLast(std::string_view& rest, Number& number) {
    const std::size_t comma = rest.rfind(',');
    if (comma == std::string_view::npos || !parseWhole(rest.substr(comma + 1), number))
        return false;
    rest = rest.substr(0, comma);
    return true;
}

std::optional<HeapRow> parseTotal(std::string_view line) {
    HeapRow total;
    if (!takeLast(line, total.objects) || !parseWhole(line, total.bytes)) return std::nullopt;
    total.name = "total";
    total.bytesPercent = total.bytes == 0 ? HUGE_VAL : 100;
    total.objectsPercent = total.objects == 0 ? HUGE_VAL : 100;
    return total;
}

std::optional<HeapRow> parseRow(std::string_view line) {
    HeapRow row;
    if (!takeLast(line, row.objectsPercent) || !takeLast(line, row.objects) ||
        !takeLast(line, row.bytesPercent) || !takeLast(line, row.bytes) || line.empty() ||
        row.bytesPercent < 0 || row.objectsPercent < 0)
        return std::nullopt;
    row.name = line;
    std::replace(row.name.begin(), row.name.end(), '/', '.');
    return row;
}

std::string refusal(std::size_t number, std::string_view line, const char* expected) {
    std::string text = "line ";
    dc2ps::appendNumber(text, std::uint64_t{number});
    text += " of the heap summary is \"";
    dc2ps::appendText(text, line, dc2ps::Escape::quoted, kQuoted);
    return text.append("\", expected: ").append(expected);
}

void right(std::string& out, std::string_view text, std::size_t width) {
    out.append(text.size() < width ? width - text.size() : 0, ' ').append(text).append("  ");
}

void right(std::string& out, std::uint32_t number, std::size_t width) {
    std::string text;
    dc2ps::appendNumber(text, std::uint64_t{number});
    right(out, text, width);
}

// One decimal; a dash for what is no number.
void right(std::string& out, double number, std::size_t width) {
    constexpr double kMost = 1e12;  // more than any quotient of 32-bit numbers
    std::string text = "-";
    if (std::abs(number) < kMost) {
        text.clear();
        dc2ps::appendDecimal(text, std::llround(number * 10), 1);
    }
    right(out, text, width);
}

// Names come last: they are long and differ at their ends, so none is cut and all numbers line up.
void appendHeapHeader(std::string& out) {
    right(out, "BYTES", kBytesWidth);
    right(out, "%", kPercentWidth);
    right(out, "OBJECTS", kBytesWidth);
    right(out, "%", kPercentWidth);
    right(out, "BYTES/OBJECT", kPerObjectWidth);
    out += "CLASS\n";
}

void appendHeapRow(std::string& out, const HeapRow& row) {
    right(out, row.bytes, kBytesWidth);
    right(out, row.bytesPercent, kPercentWidth);
    right(out, row.objects, kBytesWidth);
    right(out, row.objectsPercent, kPercentWidth);
    const double perObject =
        row.objects == 0 ? HUGE_VAL : static_cast<double>(row.bytes) / row.objects;
    right(out, perObject, kPerObjectWidth);
    dc2ps::appendText(out, row.name, dc2ps::Escape::terminal);
    out += '\n';
}

}  // namespace

bool showHeap(std::istream& in, LineSink& out, std::string& wrong) {
    std::string line;
    std::getline(in, line);
    const std::optional<HeapRow> total = parseTotal(line);
    if (!total) {
        wrong = refusal(1, line, "totalBytes,totalObjects");
        return false;
    }
    std::vector<HeapRow> rows;
    while (std::getline(in, line)) {
        std::optional<HeapRow> row = parseRow(line);
        if (!row) {
            wrong = refusal(rows.size() + 2, line, "class,bytes,percent,objects,percent");
            return false;
        }
        rows.push_back(std::move(*row));
    }
    if (rows.empty() || rows.back().name != kLastLine) {
        wrong = "the heap summary is cut off behind line " + std::to_string(rows.size() + 1) +
                ", expected: a last line for object[]";
        return false;
    }
    std::sort(rows.begin(), rows.end(), [](const HeapRow& a, const HeapRow& b) {
        return a.bytes != b.bytes ? a.bytes > b.bytes : a.name < b.name;
    });
    std::string text;
    appendHeapHeader(text);
    for (const HeapRow& row : rows) {
        appendHeapRow(text, row);
        if (text.size() < kMaxBuffer) continue;
        out.write(text);
        text.clear();
    }
    appendHeapRow(text, *total);
    out.write(text);
    return true;
}

}  // namespace server
