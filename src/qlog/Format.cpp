#include "qlog/Format.h"

#include <cstdio>
#include <cstring>
#include <optional>

#include "qlog/qlog.h"

namespace qlog {
namespace {

constexpr int kWidest = 1000;  // limit of width and precision: nobody means more

struct Operand {
    std::size_t length = 0;  // bytes of the format that it takes, from the "%" on
    int position = -1;       // -1: the next in order
    std::string flags;       // of "-+ #0"
    int width = 0;           // 0: none
    int precision = -1;      // -1: none
    char letter = 0;
};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Reads digits at p and moves p past them; stays small whatever is written there.
int readNumber(const char*& p) {
    int value = 0;
    for (; isDigit(*p); ++p) value = value > kWidest ? value : value * 10 + (*p - '0');
    return value;
}

std::optional<int> readPosition(const char*& p) {
    const char* q = p;
    if (!isDigit(*q)) return std::nullopt;
    const int value = readNumber(q);
    if (*q != '$') return std::nullopt;
    p = q + 1;
    return value;
}

// start is at a "%". Nothing when no sound operand begins there.
std::optional<Operand> readOperand(const char* start) {
    Operand operand;
    const char* p = start + 1;
    if (const auto position = readPosition(p)) operand.position = *position;
    for (; *p != 0 && std::strchr("-+ #0", *p) != nullptr; ++p) {
        if (operand.flags.find(*p) == std::string::npos) operand.flags += *p;
    }
    operand.width = readNumber(p);
    if (*p == '.') operand.precision = readNumber(++p);
    if (operand.width > kWidest || operand.precision > kWidest) return std::nullopt;
    while (*p != 0 && std::strchr("hlLqjzt", *p) != nullptr) ++p;
    if (*p == 0 || std::strchr("diuxXocspeEfFgGaA", *p) == nullptr) return std::nullopt;
    operand.letter = *p;
    operand.length = static_cast<std::size_t>(p + 1 - start);
    return operand;
}

void appendPadded(std::string& out, const Operand& operand, const std::string& text) {
    const auto width = static_cast<std::size_t>(operand.width);
    const std::size_t padding = width > text.size() ? width - text.size() : 0;
    const bool left = operand.flags.find('-') != std::string::npos;
    if (!left) out.append(padding, ' ');
    out += text;
    if (left) out.append(padding, ' ');
}

void appendText(std::string& out, const Operand& operand, const char* text) {
    if (text == nullptr) text = "(null)";
    std::string copy(text, strnlen(text, kLongestArgument + 1));
    cut(copy, kLongestArgument);
    if (operand.letter == 's' && operand.precision >= 0 &&
        copy.size() > static_cast<std::size_t>(operand.precision)) {
        copy.resize(static_cast<std::size_t>(operand.precision));
    }
    appendPadded(out, operand, copy);
}

void appendNumber(std::string& out, const Operand& operand, const Argument& argument) {
    const bool asUnsigned = std::strchr("uxXop", operand.letter) != nullptr;
    // A negative 32-bit number is unsigned in 32 bits, not in 64.
    const long long value = asUnsigned && argument.kind == Argument::Kind::integer
                                ? static_cast<std::uint32_t>(argument.number)
                                : argument.number;
    if (operand.letter == 'c' && value >= ' ' && value <= '~') {
        appendPadded(out, operand, std::string(1, static_cast<char>(value)));
        return;
    }
    // Rebuilt from parts that were checked, so that the C library sees a format that it must like.
    const char letter = operand.letter == 'p' ? 'x' : asUnsigned ? operand.letter : 'd';
    std::string spec = "%";
    for (const char flag : operand.flags) {
        if (flag != '#') spec += flag;
    }
    const bool alternate = operand.flags.find('#') != std::string::npos;
    if (operand.letter == 'p' || (alternate && letter != 'd' && letter != 'u')) spec += '#';
    if (operand.width > 0) spec += std::to_string(operand.width);
    if (operand.precision >= 0 && std::strchr("diuxXo", operand.letter) != nullptr) {
        spec += '.' + std::to_string(operand.precision);
    }
    spec += "ll";
    spec += letter;
    char text[kWidest + 64];
    const int length = std::snprintf(text, sizeof text, spec.c_str(), value);
    if (length > 0) out.append(text, static_cast<std::size_t>(length));
}

void appendArgument(std::string& out, const Operand& operand, const Argument& argument) {
    if (argument.kind == Argument::Kind::text) {
        appendText(out, operand, argument.text);
    } else {
        appendNumber(out, operand, argument);
    }
}

}  // namespace

Arguments Arguments::read(std::va_list list) {
    Arguments arguments;
    while (arguments.size_ < kMost) {
        switch (va_arg(list, int)) {
            case QLG_STRING:
                arguments.add({Argument::Kind::text, 0, va_arg(list, const char*)});
                break;
            case QLG_INT:
                arguments.add({Argument::Kind::integer, va_arg(list, int), nullptr});
                break;
            case QLG_INT64:
                arguments.add({Argument::Kind::longInteger, va_arg(list, std::int64_t), nullptr});
                break;
            default:
                return arguments;
        }
    }
    return arguments;
}

bool fits(const char* format, std::size_t arguments) {
    std::size_t next = 0;
    for (const char* p = format; *p != 0;) {
        if (*p != '%') {
            ++p;
        } else if (p[1] == '%') {
            p += 2;
        } else {
            const auto operand = readOperand(p);
            if (!operand) return false;
            const std::size_t at =
                operand->position >= 0 ? static_cast<std::size_t>(operand->position) : next++;
            if (at >= arguments) return false;
            p += operand->length;
        }
    }
    return true;
}

std::string render(const char* format, const Arguments& arguments) {
    std::string out;
    std::size_t next = 0;
    for (const char* p = format; *p != 0 && out.size() <= kLongestText;) {
        if (*p != '%') {
            const std::size_t plain = std::strcspn(p, "%");
            out.append(p, plain);
            p += plain;
            continue;
        }
        if (p[1] == '%') {
            out += '%';
            p += 2;
            continue;
        }
        const auto operand = readOperand(p);
        if (!operand) {
            out += *p++;
            continue;
        }
        const std::size_t at =
            operand->position >= 0 ? static_cast<std::size_t>(operand->position) : next++;
        if (at < arguments.size()) {
            appendArgument(out, *operand, arguments[at]);
        } else {
            out.append(p, operand->length);
        }
        p += operand->length;
    }
    cut(out, kLongestText);
    return out;
}

void cut(std::string& text, std::size_t bytes) {
    if (text.size() <= bytes) return;
    std::size_t end = bytes > 3 ? bytes - 3 : 0;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    text.resize(end);
    text += "...";
}

}  // namespace qlog
