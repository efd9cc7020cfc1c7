// The answers of a server's admin port, made readable.
//
// An answer is lines of UTF-8 whose fields are separated by tabs, or one line "error: ...":
//
//   heap      a heap summary (HeapTable.h)
//   threads   number, status, group, name of each thread
//   stack ID  the status; then class.method and signature of each frame, callee first
//   status    what and value
#pragma once

#include <string>
#include <string_view>

#include "server/model/LineSink.h"

namespace server {

// False when the answer, which is untrusted, is an error; wrong is its text then. The answer to a
// question that is not known here is shown in columns.
bool showAnswer(std::string_view question, const std::string& answer, LineSink& out,
                std::string& wrong);

// "(Ljava/lang/String;[I)V" as a Java programmer writes it: "(java.lang.String, int[])". What is no
// signature of a method comes back as it is.
std::string readableParameters(std::string_view signature);

}  // namespace server
