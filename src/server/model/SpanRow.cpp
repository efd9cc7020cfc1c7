#include "server/model/SpanRow.h"

namespace server {

const char* outcomeName(Outcome outcome) {
    constexpr const char* names[] = {"ok", "error", "unfinished", "noStart"};
    return names[static_cast<std::size_t>(outcome)];
}

const char* givenUpName(GivenUp why) {
    constexpr const char* names[] = {"",        "replaced", "enclosingEnded",
                                     "dropped", "tooMany",  "disconnected"};
    return names[static_cast<std::size_t>(why)];
}

}  // namespace server
