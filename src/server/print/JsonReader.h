// Reads one line of JSON as JsonLine writes it: an object whose values are strings, numbers, null,
// or something nested that is kept as it stands.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace server {

class JsonObject {
public:
    // Null when the line is no such object.
    static std::optional<JsonObject> parse(std::string_view line);

    // The value as text, a string's without its quotes and escapes; empty when there is none.
    std::string_view operator[](std::string_view key) const;
    bool has(std::string_view key) const;
    const std::vector<std::pair<std::string, std::string>>& members() const { return members_; }

private:
    std::vector<std::pair<std::string, std::string>> members_;
};

}  // namespace server
