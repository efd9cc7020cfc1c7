// Reads a row back from the JSON object that it was written as.
#pragma once

#include <optional>

#include "server/model/SpanRow.h"
#include "server/print/JsonReader.h"

namespace server {

// Null when a value is none that its field can have, or the kind is not known here: what is shown
// of a foreign file are values, never its own characters. A field that is missing stays empty.
std::optional<SpanRow> rowOf(const JsonObject& object);

}  // namespace server
