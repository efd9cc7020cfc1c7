// Prints every record of a recorded stream.
#pragma once

#include <istream>
#include <string>

#include "server/model/LineSink.h"

namespace server {

// One line per record: the offset in the stream, then the record. True when the stream ended
// between two packets; else wrong says where and why not.
bool dump(std::istream& in, LineSink& out, std::string& wrong);

}  // namespace server
