// An exception as a person reads it: what it was and where, then its stack below, line by line. The
// same text for a live connection and for JSON lines of an earlier run.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace server {

// Untrusted texts; an empty one is left out.
struct ExceptionNote {
    static constexpr std::size_t kMaxLines = 100;  // of the stack; how many more there are is said

    std::string_view exception, className, methodName, stackTrace;
};

//   exception java.lang.IllegalStateException in com.shop.Cart.add
//       java.lang.IllegalStateException: empty
//           at com.shop.Cart.add(Cart.java:12)
//
// Every line of the stack begins with blanks, so that it cannot pass for a row or a note. No line
// end behind the last one.
void appendExceptionNote(std::string& out, const ExceptionNote& note);

}  // namespace server
