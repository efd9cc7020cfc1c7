// Formats with typed arguments: what is read from the caller's argument list depends on the type
// codes alone, never on the format, so a format that does not fit (a translation, say) can do no
// harm.
//
// An operand is "%", flags, width, precision, length, letter as printf has them, or
// "%<position>$..." with a position counted from zero. A text argument under a number's letter is
// shown as text, a number under "%s" as a decimal. Operands without an argument, "%n" and "%*d" are
// shown as they stand.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

namespace qlog {

struct Argument {
    enum class Kind { integer, longInteger, text };
    Kind kind = Kind::integer;
    std::int64_t number = 0;     // for both integer kinds
    const char* text = nullptr;  // borrowed from the caller; null is shown as "(null)"
};

// The arguments of one call, at most kMost.
class Arguments {
public:
    static constexpr std::size_t kMost = 32;

    // Reads pairs of type code and value up to the closing 0, to a code that is unknown (what
    // follows cannot be read safely), or to the limit.
    static Arguments read(std::va_list list);

    std::size_t size() const { return size_; }
    const Argument& operator[](std::size_t at) const { return list_[at]; }
    void add(const Argument& argument) {
        if (size_ < kMost) list_[size_++] = argument;
    }

private:
    Argument list_[kMost];
    std::size_t size_ = 0;
};

// Whether every operand of the format is sound and has an argument.
[[nodiscard]] bool fits(const char* format, std::size_t arguments);

// The filled format, at most kLongestText bytes.
[[nodiscard]] std::string render(const char* format, const Arguments& arguments);

constexpr std::size_t kLongestText = std::size_t{64} * 1024;      // bytes of one record
constexpr std::size_t kLongestArgument = std::size_t{16} * 1024;  // bytes of one text argument

// The text cut to at most that many bytes, at a character boundary (UTF-8), with "..." to show it.
void cut(std::string& text, std::size_t bytes);

}  // namespace qlog
