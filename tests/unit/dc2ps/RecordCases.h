// Every kind of record that may stand in a packet: its bytes, typed by hand, and the line it
// prints.
#pragma once

#include <vector>

struct RecordCase {
    const char* name;
    const char* hex;
    const char* line;
};

const std::vector<RecordCase>& recordCases();
