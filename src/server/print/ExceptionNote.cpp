#include "server/print/ExceptionNote.h"

#include <algorithm>

#include "dc2ps/Text.h"

namespace server {

using dc2ps::Escape;

namespace {

constexpr std::string_view kIndent = "    ";

// Takes the first line, without its end, off the rest.
std::string_view takeLine(std::string_view& rest) {
    const std::size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

// A tab at its beginning is how Java sets off frames; it becomes blanks as well.
void appendStackLine(std::string& out, std::string_view untrusted) {
    out.append("\n").append(kIndent);
    for (; !untrusted.empty() && untrusted.front() == '\t'; untrusted.remove_prefix(1))
        out += kIndent;
    dc2ps::appendText(out, untrusted, Escape::terminal);
}

void appendStack(std::string& out, std::string_view untrusted) {
    for (std::size_t i = 0; i < ExceptionNote::kMaxLines && !untrusted.empty(); ++i)
        appendStackLine(out, takeLine(untrusted));
    if (untrusted.empty()) return;
    const auto ends = std::count(untrusted.begin(), untrusted.end(), '\n');
    out.append("\n").append(kIndent).append("... ");
    dc2ps::appendNumber(out, std::int64_t{ends + (untrusted.back() == '\n' ? 0 : 1)});
    out += " more lines";
}

}  // namespace

void appendExceptionNote(std::string& out, const ExceptionNote& note) {
    out += "exception ";
    dc2ps::appendText(out, note.exception, Escape::terminal);
    if (!note.className.empty() || !note.methodName.empty()) {
        out += " in ";
        dc2ps::appendText(out, note.className, Escape::terminal);
        if (!note.className.empty() && !note.methodName.empty()) out += '.';
        dc2ps::appendText(out, note.methodName, Escape::terminal);
    }
    appendStack(out, note.stackTrace);
}

}  // namespace server
