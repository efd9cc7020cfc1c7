#include "server/ask/Answer.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "dc2ps/Text.h"
#include "server/ask/HeapTable.h"

namespace server {

namespace {

constexpr std::string_view kError = "error: ";
constexpr std::string_view kStack = "stack ";
constexpr std::size_t kWidestColumn = 40;  // a longer field pushes its own row only

using Row = std::vector<std::string>;  // made safe to show

std::string safe(std::string_view untrusted) {
    std::string text;
    dc2ps::appendText(text, untrusted, dc2ps::Escape::terminal);
    return text;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (std::size_t end; (end = text.find(separator)) != std::string_view::npos;) {
        parts.push_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    if (!text.empty()) parts.push_back(text);
    return parts;
}

void appendColumns(std::string& out, const std::vector<Row>& rows) {
    std::vector<std::size_t> widths;
    for (const Row& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], std::min(dc2ps::columnsOf(row[i]), kWidestColumn));
    }
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::size_t used = dc2ps::columnsOf(row[i]);
            out += row[i];
            if (i + 1 < row.size()) out.append(widths[i] - std::min(used, widths[i]) + 2, ' ');
        }
        out += '\n';
    }
}

std::string columns(std::string_view answer, std::vector<Row> rows = {}) {
    for (const std::string_view line : split(answer, '\n')) {
        Row& row = rows.emplace_back();
        for (const std::string_view field : split(line, '\t')) row.push_back(safe(field));
    }
    std::string text;
    appendColumns(text, rows);
    return text;
}

std::string stack(std::string_view id, std::string_view answer) {
    const std::size_t firstEnd = std::min(answer.find('\n'), answer.size());
    std::string text = "thread " + safe(id) + ": " + safe(answer.substr(0, firstEnd)) + "\n";
    const auto frames = split(answer.substr(std::min(firstEnd + 1, answer.size())), '\n');
    for (const std::string_view frame : frames) {
        const std::size_t tab = std::min(frame.find('\t'), frame.size());
        text += "    at " + safe(frame.substr(0, tab));
        text += safe(readableParameters(frame.substr(std::min(tab + 1, frame.size())))) + "\n";
    }
    if (frames.empty()) text += "    (no Java frames)\n";
    return text;
}

// Takes one type off the signature; empty when there is none.
std::string takeType(std::string_view& rest) {
    std::size_t dimensions = 0;
    for (; !rest.empty() && rest.front() == '['; rest.remove_prefix(1)) ++dimensions;
    if (rest.empty()) return {};
    static constexpr std::pair<char, const char*> kPrimitives[] = {
        {'Z', "boolean"}, {'B', "byte"}, {'C', "char"},  {'S', "short"},
        {'I', "int"},     {'J', "long"}, {'F', "float"}, {'D', "double"}};
    std::string type;
    std::size_t used = 1;
    for (const auto& [letter, name] : kPrimitives)
        if (rest.front() == letter) type = name;
    if (rest.front() == 'L') {
        const std::size_t end = rest.find(';');
        if (end == std::string_view::npos) return {};
        type = rest.substr(1, end - 1);  // an empty name is refused below
        std::replace(type.begin(), type.end(), '/', '.');
        used = end + 1;
    }
    if (type.empty()) return {};
    rest.remove_prefix(used);
    for (; dimensions > 0; --dimensions) type += "[]";
    return type;
}

}  // namespace

std::string readableParameters(std::string_view signature) {
    std::string_view rest = signature;
    if (rest.empty() || rest.front() != '(') return std::string(signature);
    rest.remove_prefix(1);
    std::string text = "(";
    while (!rest.empty() && rest.front() != ')') {
        const std::string type = takeType(rest);
        if (type.empty()) return std::string(signature);
        if (text.size() > 1) text += ", ";
        text += type;
    }
    return rest.empty() ? std::string(signature) : text + ")";
}

bool showAnswer(std::string_view question, const std::string& answer, LineSink& out,
                std::string& wrong) {
    if (answer.starts_with(kError)) {
        const std::string_view text = std::string_view(answer).substr(kError.size());
        wrong = safe(text.substr(0, text.find('\n')));
        return false;
    }
    if (question == "heap") {
        std::istringstream summary(answer);
        return showHeap(summary, out, wrong);
    }
    if (question.starts_with(kStack))
        out.write(stack(question.substr(kStack.size()), answer));
    else if (question == "threads")
        out.write(columns(answer, {{"THREAD", "STATUS", "GROUP", "NAME"}}));
    else
        out.write(columns(answer));
    return true;
}

}  // namespace server
