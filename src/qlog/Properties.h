// The toolkit's configuration file: objects and their properties.
//
//     <object>.<property> = <value>        handler.file.dc.msg.maxFiles = 5
//
// The last dot separates object and property. Blanks around both sides are dropped; "#" or "!" as
// the first sign makes a comment; a later line wins. "${NAME}" or "${NAME:-default}" in a value
// stands for the environment variable, "${config.dir}" for the folder of the file, "${pid}" for the
// process id.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace qlog {

using PropertyMap = std::map<std::string, std::string>;
using ObjectMap = std::map<std::string, PropertyMap>;  // by object name

// Nothing when the file cannot be read, is no regular file or is larger than a megabyte.
[[nodiscard]] std::optional<ObjectMap> readConfiguration(const std::string& path);

// As above, from text; directory is what "${config.dir}" stands for.
[[nodiscard]] ObjectMap parseConfiguration(std::string_view text, const std::string& directory);

// A level as a number or a name (ALL, DEBUG_MAX, DEBUG_MID, DEBUG_MIN, INFO, WARN, ERROR, FATAL,
// OFF, in any case), else nothing.
[[nodiscard]] std::optional<int> parseLevel(std::string_view text);

// A whole number, else nothing.
[[nodiscard]] std::optional<long> parseNumber(std::string_view text);

}  // namespace qlog
