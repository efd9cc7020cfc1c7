// Text from the wire, made fit to be shown: appended to a growing line without temporary strings.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace dc2ps {

enum class Escape : std::uint8_t {
    terminal,  // for a line on a terminal: \n, \t, \\, \xHH and \u{H...}
    quoted,    // the same, and \" too
    json       // for the inside of a JSON string: \n, \", \\, \uHHHH
};

// Appends modified UTF-8 (two-byte zeros, surrogate pairs of three bytes each) as proper UTF-8.
//
// The text is untrusted: every control character, and every character that changes the direction or
// the line of what stands around it, is escaped, so that it can neither steer a terminal nor break
// out of its field. Bytes that are no character become U+FFFD each. Supplementary characters
// written in the standard four bytes are taken too. maxCharacters: how many characters of the text
// are taken at most; an ellipsis tells of the rest.
void appendText(std::string& out, std::string_view untrusted, Escape escape,
                std::size_t maxCharacters = SIZE_MAX);

// Appends "2024-05-01T12:00:00.123456Z". Times that no calendar of four-digit years holds come out
// as the number of microseconds with "us" behind it.
void appendIsoTime(std::string& out, std::int64_t microsSince1970);

void appendNumber(std::string& out, std::int64_t value);
void appendNumber(std::string& out, std::uint64_t value);

// Appends value / 10^decimals with exactly that many decimals: (1234567, 6) is "1.234567".
void appendDecimal(std::string& out, std::int64_t value, int decimals);

// How many columns the UTF-8 that appendText made takes on a terminal, one for each character.
std::size_t columnsOf(std::string_view utf8);

}  // namespace dc2ps
