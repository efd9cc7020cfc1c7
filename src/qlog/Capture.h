// One incident of first-failure data capture: a folder with copies of the files that tell what
// happened, made at the moment of failure, before rotation overwrites them.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace qffdc {

// The single paths of a list: separated by blanks or commas, patterns ("*", "?", "[") expanded.
[[nodiscard]] std::vector<std::string> expandList(std::string_view list);

// A new folder below base, named after the time and the process; empty when it cannot be made.
[[nodiscard]] std::filesystem::path makeIncidentFolder(const std::filesystem::path& base);

// Copies the last maxBytes of a regular file. An empty result is success, else what went wrong.
[[nodiscard]] std::string copyTail(const std::string& from, const std::filesystem::path& to,
                                   long maxBytes);

// Removes the oldest incident folders until at most keep are left; touches nothing with another
// name.
void removeOldIncidents(const std::filesystem::path& base, std::size_t keep);

}  // namespace qffdc
