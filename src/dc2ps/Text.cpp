#include "dc2ps/Text.h"

#include <charconv>

namespace dc2ps {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char kHexDigits[] = "0123456789abcdef";

bool isContinuation(std::string_view text, std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

std::uint32_t low6(char c) {
    return static_cast<unsigned char>(c) & 0x3F;
}

bool isHighSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}

bool isLowSurrogate(char32_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

// A three-byte sequence at the position, surrogates included; 0 when there is none.
char32_t threeByteUnit(std::string_view text, std::size_t at) {
    if (at >= text.size() || (static_cast<unsigned char>(text[at]) & 0xF0) != 0xE0) return 0;
    if (!isContinuation(text, at + 1) || !isContinuation(text, at + 2)) return 0;
    const char32_t c = (static_cast<unsigned char>(text[at]) & 0x0Fu) << 12 |
                       low6(text[at + 1]) << 6 | low6(text[at + 2]);
    return c >= 0x800 ? c : 0;
}

// Takes one character that is not plain ASCII and moves at past it.
char32_t nextCharacter(std::string_view text, std::size_t& at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    if ((lead & 0xE0) == 0xC0 && isContinuation(text, at + 1)) {
        const char32_t c = (lead & 0x1Fu) << 6 | low6(text[at + 1]);
        at += 2;
        return c >= 0x80 || c == 0 ? c : kReplacement;  // zero is written in two bytes
    }
    if (const char32_t unit = threeByteUnit(text, at)) {
        at += 3;
        if (isHighSurrogate(unit)) {
            const char32_t low = threeByteUnit(text, at);
            if (!isLowSurrogate(low)) return kReplacement;
            at += 3;
            return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
        }
        return isLowSurrogate(unit) ? kReplacement : unit;
    }
    if ((lead & 0xF8) == 0xF0 && isContinuation(text, at + 1) && isContinuation(text, at + 2) &&
        isContinuation(text, at + 3)) {
        const char32_t c = (lead & 0x07u) << 18 | low6(text[at + 1]) << 12 |
                           low6(text[at + 2]) << 6 | low6(text[at + 3]);
        if (c >= 0x10000 && c <= 0x10FFFF) {
            at += 4;
            return c;
        }
    }
    ++at;
    return kReplacement;
}

// Controls, line and paragraph separators, what reorders or hides the text around it.
bool isUnsafe(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0xAD || c == 0x61C ||
           (c >= 0x200B && c <= 0x200F) || (c >= 0x2028 && c <= 0x202E) ||
           (c >= 0x2060 && c <= 0x206F) || c == 0xFEFF || (c >= 0xFFF9 && c <= 0xFFFB) ||
           (c >= 0xE0000 && c <= 0xE0FFF);
}

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | c >> 18);
        out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

void appendHex(std::string& out, std::uint32_t value, int digits) {
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
        out += kHexDigits[value >> shift & 15];
}

void appendJsonUnit(std::string& out, std::uint32_t unit) {
    out += "\\u";
    appendHex(out, unit, 4);
}

void appendUnsafe(std::string& out, char32_t c, Escape escape) {
    if (c == '\n') {
        out += "\\n";
    } else if (c == '\t') {
        out += "\\t";
    } else if (c == '\r') {
        out += "\\r";
    } else if (escape == Escape::json) {
        if (c >= 0x10000) {
            appendJsonUnit(out, 0xD800 + ((c - 0x10000) >> 10));
            appendJsonUnit(out, 0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            appendJsonUnit(out, c);
        }
    } else if (c < 0x100) {
        out += "\\x";
        appendHex(out, c, 2);
    } else {
        out += "\\u{";
        appendHex(out, c, c >= 0x10000 ? 5 : 4);
        out += '}';
    }
}

bool isPlain(char c, Escape escape) {
    return c >= 0x20 && c < 0x7F && c != '\\' && (c != '"' || escape == Escape::terminal);
}

}  // namespace

void appendText(std::string& out, std::string_view untrusted, Escape escape,
                std::size_t maxCharacters) {
    std::size_t at = 0;
    std::size_t taken = 0;
    while (at < untrusted.size()) {
        if (taken == maxCharacters) {
            out += "\u2026";
            return;
        }
        std::size_t run = at;  // most text is plain ASCII and goes over in one piece
        while (run < untrusted.size() && run - at < maxCharacters - taken &&
               isPlain(untrusted[run], escape))
            ++run;
        if (run > at) {
            out.append(untrusted, at, run - at);
            taken += run - at;
            at = run;
            continue;
        }
        const auto byte = static_cast<unsigned char>(untrusted[at]);
        const char32_t c = byte < 0x80 ? untrusted[at++] : nextCharacter(untrusted, at);
        ++taken;
        if (c == '\\' || c == '"') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (isUnsafe(c)) {
            appendUnsafe(out, c, escape);
        } else {
            appendUtf8(out, c);
        }
    }
}

void appendNumber(std::string& out, std::int64_t value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out.append(digits, end);
}

void appendNumber(std::string& out, std::uint64_t value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out.append(digits, end);
}

void appendDecimal(std::string& out, std::int64_t value, int decimals) {
    // Unsigned, so that the most negative number has a magnitude too.
    auto magnitude = static_cast<std::uint64_t>(value);
    if (value < 0) {
        out += '-';
        magnitude = 0 - magnitude;
    }
    std::uint64_t unit = 1;
    for (int i = 0; i < decimals; ++i) unit *= 10;
    appendNumber(out, magnitude / unit);
    out += '.';
    for (std::uint64_t digit = unit / 10; digit > 0; digit /= 10)
        out += static_cast<char>('0' + magnitude / digit % 10);
}

namespace {

void appendPadded(std::string& out, std::uint32_t value, int digits) {
    char text[10];
    for (int i = digits - 1; i >= 0; --i, value /= 10)
        text[i] = static_cast<char>('0' + value % 10);
    out.append(text, static_cast<std::size_t>(digits));
}

struct Date {
    std::uint32_t year, month, day;
};

// Days since 1970 to a date of the Gregorian calendar, counted from 1 March of year 0 so that the
// leap day is a year's last.
Date dateOf(std::int64_t daysSince1970) {
    const auto days = static_cast<std::uint32_t>(daysSince1970 + 719468);
    const std::uint32_t era = days / 146097;
    const std::uint32_t dayOfEra = days % 146097;
    const std::uint32_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::uint32_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::uint32_t shifted = (5 * dayOfYear + 2) / 153;  // 0 is March
    const std::uint32_t month = shifted < 10 ? shifted + 3 : shifted - 9;
    return {era * 400 + yearOfEra + (month <= 2 ? 1 : 0), month,
            dayOfYear - (153 * shifted + 2) / 5 + 1};
}

}  // namespace

void appendIsoTime(std::string& out, std::int64_t microsSince1970) {
    constexpr std::int64_t kMicrosPerDay = 86400LL * 1000000;
    constexpr std::int64_t kYear10000 = 2932897 * kMicrosPerDay;
    if (microsSince1970 < 0 || microsSince1970 >= kYear10000) {
        appendNumber(out, microsSince1970);
        out += "us";
        return;
    }
    const Date date = dateOf(microsSince1970 / kMicrosPerDay);
    const std::int64_t micros = microsSince1970 % kMicrosPerDay;
    const auto seconds = static_cast<std::uint32_t>(micros / 1000000);
    appendPadded(out, date.year, 4);
    out += '-';
    appendPadded(out, date.month, 2);
    out += '-';
    appendPadded(out, date.day, 2);
    out += 'T';
    appendPadded(out, seconds / 3600, 2);
    out += ':';
    appendPadded(out, seconds / 60 % 60, 2);
    out += ':';
    appendPadded(out, seconds % 60, 2);
    out += '.';
    appendPadded(out, static_cast<std::uint32_t>(micros % 1000000), 6);
    out += 'Z';
}

std::size_t columnsOf(std::string_view utf8) {
    std::size_t columns = 0;
    for (const char c : utf8)
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++columns;
    return columns;
}

}  // namespace dc2ps
