// Prints JSON lines that an earlier run has written as the table that it would have shown.
#pragma once

#include <istream>

#include "server/model/LineSink.h"

namespace server {

// Lock steps come out as the sentences that they are there, exceptions with their stacks, other
// objects that are no row as a line "-- type key=value ...". Lines that are no objects are counted
// and told of at the end. The number of rows and lock steps.
std::size_t show(std::istream& in, LineSink& out);

}  // namespace server
