// The text of a heap analysis: one line of totals, one line per class in the table's order, one for
// primitive arrays and one for object arrays.
//
//     <total bytes>,<total objects>
//     <class>,<bytes>,<% of total bytes>,<objects>,<% of total objects>
//
// Percentages have one decimal and a point whatever the process's locale; of an empty heap they are
// no numbers ("nan" or "-nan").
#pragma once

#include <cstddef>

constexpr std::size_t kSummarySize = 131072;   // bytes at first
constexpr std::size_t kSummaryGrowth = 65536;  // bytes more whenever a line does not fit

// Where the text's memory comes from (to be freed with free()); tests make it fail.
struct SummaryMemory {
    void* (*allocate)(std::size_t size);
    void* (*grow)(void* block, std::size_t size);
};
extern SummaryMemory summaryMemory;

// The text of the current counters and class table; null, with a debug line, without memory.
[[nodiscard]] char* createClassSummaryString();
