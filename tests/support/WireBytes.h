// Bytes in tests: typed as hex text, compared as hex text, so that a difference can be read.
#pragma once

#include <cctype>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace wire {

// "0a 1F" and "0A1F" are the same; '#' starts a comment that goes to the end of the line.
inline std::string hex(std::string_view typed) {
    std::string digits;
    bool comment = false;
    for (const char c : typed) {
        if (c == '#') comment = true;
        if (c == '\n') comment = false;
        if (!comment && std::isxdigit(static_cast<unsigned char>(c)) != 0)
            digits += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return digits;
}

inline std::string hexOf(const char* bytes, std::size_t length) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string digits;
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        digits += kDigits[byte >> 4];
        digits += kDigits[byte & 15];
    }
    return digits;
}

inline std::string bytesOf(std::string_view typed) {
    const std::string digits = hex(typed);
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

// A file of tests/golden as normalised hex text; empty when it is missing.
inline std::string goldenHex(const std::string& directory, const std::string& name) {
    std::ifstream file(directory + "/" + name);
    return hex(std::string(std::istreambuf_iterator<char>(file), {}));
}

}  // namespace wire
