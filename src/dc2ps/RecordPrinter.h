// A record as one line for a person: the type, the common part, then name=value for every field.
#pragma once

#include <string>

#include "dc2ps/Records.h"

namespace dc2ps {

// Appends the line without a line end. Strings are quoted and made safe to show.
//   SQL_START thread=7 depth=1 time=2024-05-01T12:00:00.000001Z cpu=900 level=2 dataSource="a"
//   sql="b"
void appendRecord(std::string& out, const Record& record);

}  // namespace dc2ps
