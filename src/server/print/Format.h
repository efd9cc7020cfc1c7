// The formats of standard output.
#pragma once

#include <cstdint>
#include <memory>

#include "server/model/LineSink.h"
#include "server/model/Output.h"

namespace server {

enum class Format : std::uint8_t { table, json };

std::unique_ptr<Output> makeOutput(Format format, LineSink& sink);

}  // namespace server
