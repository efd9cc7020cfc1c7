// Fills printf formats that come from a file which people edit. The arguments carry their types, so
// the format can ask for anything without harm: a conversion of the wrong kind shows the value as
// what it is, one without an argument (and "%n", which would write to memory) stays in the text as
// it stands.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <type_traits>

class FormatArg {
public:
    enum class Kind { integer, natural, real, text, pointer };

    // Implicit, so that arguments are given as they are.
    template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T> || std::is_enum_v<T>>>
    FormatArg(T value)  // NOLINT(google-explicit-constructor): see above
        : kind(std::is_floating_point_v<T> ? Kind::real
               : std::is_unsigned_v<T>     ? Kind::natural
                                           : Kind::integer) {
        if constexpr (std::is_floating_point_v<T>)
            real = static_cast<double>(value);
        else
            integer = static_cast<long long>(value);
    }
    FormatArg(const char* value)  // NOLINT(google-explicit-constructor): see above
        : kind(Kind::text), text(value == nullptr ? "(null)" : value) {}
    FormatArg(const void* value)  // NOLINT(google-explicit-constructor): see above
        : kind(Kind::pointer), pointer(value) {}

    Kind kind;
    union {
        long long integer = 0;  // the bits of a natural, too
        double real;
        const char* text;  // borrowed for the call
        const void* pointer;
    };
};

// Widths and precisions are cut to 999; "%%" gives "%".
std::string formatSafely(const char* format, std::initializer_list<FormatArg> arguments);
