// The table for people: one row per finished piece of work, columns that line up.
//
//   TIME                        NODE/SERVER  KIND     NAME ...
//
// A name is indented by two blanks for every piece of work around it. Rows come in the order in
// which the work ended, so that what happened inside a request stands above it.
#pragma once

#include <string>

#include "server/model/SpanRow.h"

namespace server {

void appendTableHeader(std::string& out);
void appendTableRow(std::string& out, const SpanRow& row);

}  // namespace server
