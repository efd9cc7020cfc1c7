#include "server/ask/Answer.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

#include "dc2ps/Text.h"
#include "server/ask/HeapTable.h"

namespace server {

namespace {

constexpr std::string_view kError = "error: ";
constexpr std::string_view kStack = "stack ";
constexpr std::size_t kWidestColumn = 40;  // a longer field pushes its own row only
constexpr std::size_t kMaxFields = 8;      // of a row; what is behind stays in the last
constexpr std::size_t kMaxBuffer = 1u << 20;

std::string safe(std::string_view untrusted) {
    std::string text;
    dc2ps::appendText(text, untrusted, dc2ps::Escape::terminal);
    return text;
}

// Takes what stands before the separator, and the separator, off the rest.
std::string_view take(std::string_view& rest, char separator) {
    const std::string_view part = rest.substr(0, rest.find(separator));
    rest.remove_prefix(std::min(part.size() + 1, rest.size()));
    return part;
}

// Calls visit(index, field, whether it is the last) for the fields of a row, made safe to show.
template <class Visit>
void forEachField(std::string_view row, Visit&& visit) {
    for (std::size_t i = 0; !row.empty(); ++i) {
        const std::string_view field =
            i + 1 < kMaxFields ? take(row, '\t') : std::exchange(row, {});
        visit(i, safe(field), row.empty());
    }
}

// The text a second time with its columns lined up: an answer may be long, so no row of it is kept.
void writeColumns(std::string_view header, std::string_view answer, LineSink& out) {
    std::array<std::size_t, kMaxFields> widths{};
    const auto forEachRow = [&](auto&& visit) {
        if (!header.empty()) visit(header);
        for (std::string_view rest = answer; !rest.empty();) visit(take(rest, '\n'));
    };
    forEachRow([&](std::string_view row) {
        forEachField(row, [&](std::size_t i, const std::string& field, bool) {
            widths[i] = std::max(widths[i], std::min(dc2ps::columnsOf(field), kWidestColumn));
        });
    });
    std::string text;
    forEachRow([&](std::string_view row) {
        forEachField(row, [&](std::size_t i, const std::string& field, bool last) {
            const std::size_t used = dc2ps::columnsOf(field);
            text += field;
            if (!last) text.append(widths[i] - std::min(used, widths[i]) + 2, ' ');
        });
        text += '\n';
        if (text.size() < kMaxBuffer) return;
        out.write(text);
        text.clear();
    });
    out.write(text);
}

void writeStack(std::string_view id, std::string_view answer, LineSink& out) {
    std::string text = "thread " + safe(id) + ": " + safe(take(answer, '\n')) + "\n";
    if (answer.empty()) text += "    (no Java frames)\n";
    while (!answer.empty()) {
        std::string_view frame = take(answer, '\n');
        text += "    at " + safe(take(frame, '\t'));
        text += safe(readableParameters(frame)) + "\n";
        if (text.size() < kMaxBuffer) continue;
        out.write(text);
        text.clear();
    }
    out.write(text);
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
        writeStack(question.substr(kStack.size()), answer, out);
    else
        writeColumns(question == "threads" ? "THREAD\tSTATUS\tGROUP\tNAME" : "", answer, out);
    return true;
}

}  // namespace server
