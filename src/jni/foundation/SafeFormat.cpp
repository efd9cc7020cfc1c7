// See SafeFormat.h.
#include "foundation/SafeFormat.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// One conversion, as in "%-08.3lld".
struct Conversion {
    std::string flags;
    int width = -1;
    int precision = -1;
    char letter = '\0';      // '\0': not a conversion that can be filled
    std::size_t length = 1;  // characters of it, the percent sign included
};

constexpr int kMostWidth = 999;

int digits(const char* text, std::size_t* at) {
    int value = -1;
    for (; text[*at] >= '0' && text[*at] <= '9'; ++*at)
        value = std::min(kMostWidth, std::max(value, 0) * 10 + (text[*at] - '0'));
    return value;
}

Conversion parse(const char* percent) {
    Conversion c;
    std::size_t at = 1;
    const std::size_t flagCount = std::strspn(percent + at, "-+ #0");
    c.flags.assign(percent + at, std::min<std::size_t>(flagCount, 5));
    at += flagCount;
    c.width = digits(percent, &at);
    if (percent[at] == '.') {
        ++at;
        c.precision = std::max(0, digits(percent, &at));
    }
    at += std::strspn(percent + at, "hlqLjzt");  // the arguments know their size
    if (percent[at] != '\0' && std::strchr("diouxXcsaAeEfFgGp", percent[at]) != nullptr) {
        c.letter = percent[at];
        c.length = at + 1;
    }
    return c;
}

// Fills one conversion; type is what goes between the width and the end, like "lld".
template <typename T>
void fill(const Conversion& c, const char* type, T value, std::string* out) {
    std::string format = "%" + c.flags;
    if (c.width >= 0) format += std::to_string(c.width);
    if (c.precision >= 0) format += "." + std::to_string(c.precision);
    format += type;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    // The format was put together here and fits T.
    const int size = std::snprintf(nullptr, 0, format.c_str(), value);
    if (size <= 0) return;
    const std::size_t start = out->size();
    out->resize(start + static_cast<std::size_t>(size) + 1);
    std::snprintf(out->data() + start, static_cast<std::size_t>(size) + 1, format.c_str(), value);
#pragma GCC diagnostic pop
    out->pop_back();
}

void fillInteger(const Conversion& c, const FormatArg& argument, std::string* out) {
    if (c.letter == 'c') {
        *out += static_cast<char>(argument.integer);
        return;
    }
    const bool isNatural = argument.kind == FormatArg::Kind::natural;
    char letter = std::strchr("ouxX", c.letter) != nullptr ? c.letter : (isNatural ? 'u' : 'd');
    const char type[] = {'l', 'l', letter, '\0'};
    if (letter == 'd')
        fill(c, type, argument.integer, out);
    else
        fill(c, type, static_cast<unsigned long long>(argument.integer), out);
}

void fillOne(const Conversion& c, const FormatArg& argument, std::string* out) {
    switch (argument.kind) {
        case FormatArg::Kind::integer:
        case FormatArg::Kind::natural:
            fillInteger(c, argument, out);
            break;
        case FormatArg::Kind::real: {
            const bool fits = std::strchr("aAeEfFgG", c.letter) != nullptr;
            const char type[] = {fits ? c.letter : 'g', '\0'};
            fill(c, type, argument.real, out);
            break;
        }
        case FormatArg::Kind::text: {
            Conversion asText = c;
            if (c.letter != 's') asText.precision = -1;
            asText.flags.erase(std::remove_if(asText.flags.begin(), asText.flags.end(),
                                              [](char flag) { return flag != '-'; }),
                               asText.flags.end());
            fill(asText, "s", argument.text, out);
            break;
        }
        case FormatArg::Kind::pointer:
            fill({}, "p", argument.pointer, out);
            break;
    }
}

}  // namespace

std::string formatSafely(const char* format, std::initializer_list<FormatArg> arguments) {
    std::string out;
    const auto* next = arguments.begin();
    for (const char* at = format; *at != '\0';) {
        if (*at != '%') {
            const std::size_t plain = std::strcspn(at, "%");
            out.append(at, plain);
            at += plain;
            continue;
        }
        if (at[1] == '%') {
            out += '%';
            at += 2;
            continue;
        }
        const Conversion conversion = parse(at);
        if (conversion.letter != '\0' && next != arguments.end())
            fillOne(conversion, *next++, &out);
        else
            out.append(at, conversion.length);
        at += conversion.length;
    }
    return out;
}
