// The table for people: one row per finished piece of work, columns that line up.
//
//   TIME                        NODE/SERVER  KIND     NAME ...
//
// A name is indented by two blanks for every piece of work around it. Rows come in the order in
// which the work ended, so that what happened inside a request stands above it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace server {

struct TableRow {
    std::string_view time;  // already formatted
    // Untrusted texts.
    std::string_view node, server, kind, name, application, url, user;
    std::string_view thread, depth, wallMs, cpuMs, outcome;  // "-" where there is none
    int level = 0;
};

void appendTableHeader(std::string& out);
void appendTableRow(std::string& out, const TableRow& row);

}  // namespace server
