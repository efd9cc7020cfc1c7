// How much memory may be taken without bringing the host process into danger.
#pragma once

#include <cstdint>
#include <string>

namespace adapter {

// Bytes that the system says can still be used without swapping, or the rest below the process's
// control group limit if that is less; the largest number when neither is known. Memory that the
// kernel gives back when it is needed, the cache of files, counts as usable. root is prefixed to
// the paths under /proc and /sys.
std::uint64_t availableMemory(const std::string& root = "");

}  // namespace adapter
