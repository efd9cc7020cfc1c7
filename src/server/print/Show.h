// Prints JSON lines that an earlier run has written as the table that it would have shown.
#pragma once

#include <istream>
#include <string>

#include "server/model/LineSink.h"

namespace server {

// Lock steps come out as the sentences that they are there, exceptions with their stacks, other
// objects, and what is no row as we write it, as a line "-- type key=value ...". Lines that are no
// objects are counted and told of at the end. False when nothing in it is an object, or it cannot
// be read: wrong then says which, and not all has been written.
bool show(std::istream& in, LineSink& out, std::string& wrong);

}  // namespace server
