#include "qlog/Properties.h"

#include <strings.h>

#include <charconv>
#include <cstdlib>
#include <filesystem>

#include "os/RegularFile.h"
#include "qlog/qlog.h"

namespace qlog {
namespace {

constexpr std::size_t kLargestFile = std::size_t{1} << 20;  // bytes

std::string_view trim(std::string_view text) {
    constexpr std::string_view kBlank = " \t\r\n\f\v";
    const std::size_t first = text.find_first_not_of(kBlank);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

std::string lookUp(const std::string& name, const std::string& directory) {
    if (name == "config.dir") return directory;
    if (name == "pid") return std::to_string(::getpid());
    const char* value = std::getenv(name.c_str());
    return value != nullptr ? value : "";
}

// Values are not expanded again, so no value can make this endless.
std::string expand(std::string_view value, const std::string& directory) {
    std::string out;
    while (!value.empty()) {
        const std::size_t open = value.find("${");
        const std::size_t close = open == std::string_view::npos ? open : value.find('}', open);
        if (close == std::string_view::npos) break;
        out += value.substr(0, open);
        const std::string_view inside = value.substr(open + 2, close - open - 2);
        const std::size_t separator = inside.find(":-");
        const std::string found = lookUp(std::string(inside.substr(0, separator)), directory);
        if (found.empty() && separator != std::string_view::npos) {
            out += inside.substr(separator + 2);
        } else {
            out += found;
        }
        value.remove_prefix(close + 1);
    }
    return out.append(value);
}

void parseLine(std::string_view line, const std::string& directory, ObjectMap& objects) {
    line = trim(line);
    if (line.empty() || line[0] == '#' || line[0] == '!') return;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return;
    const std::string_view key = trim(line.substr(0, equals));
    const std::size_t dot = key.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == key.size()) return;
    objects[std::string(key.substr(0, dot))][std::string(key.substr(dot + 1))] =
        expand(trim(line.substr(equals + 1)), directory);
}

}  // namespace

std::optional<ObjectMap> readConfiguration(const std::string& path) {
    const auto text = os::readRegular(path, kLargestFile);
    if (!text) return std::nullopt;
    std::error_code ignored;
    const auto absolute = std::filesystem::absolute(path, ignored);
    return parseConfiguration(*text, absolute.parent_path().string());
}

ObjectMap parseConfiguration(std::string_view text, const std::string& directory) {
    ObjectMap objects;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        parseLine(text.substr(0, end), directory, objects);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return objects;
}

std::optional<int> parseLevel(std::string_view text) {
    static constexpr struct {
        const char* name;
        int level;
    } kNames[] = {
        {"ALL", QLG_LEVEL_ALL},
        {"DEBUG_MAX", QLG_LEVEL_DEBUG_MAX},
        {"DEBUG_MID", QLG_LEVEL_DEBUG_MID},
        {"DEBUG_MIN", QLG_LEVEL_DEBUG_MIN},
        {"INFO", QLG_LEVEL_INFO},
        {"WARN", QLG_LEVEL_WARN},
        {"ERROR", QLG_LEVEL_ERROR},
        {"FATAL", QLG_LEVEL_FATAL},
        {"OFF", QLG_LEVEL_OFF},
    };
    const std::string trimmed(trim(text));
    for (const auto& entry : kNames) {
        if (::strcasecmp(trimmed.c_str(), entry.name) == 0) return entry.level;
    }
    const auto number = parseNumber(trimmed);
    if (!number || *number < INT32_MIN || *number > INT32_MAX) return std::nullopt;
    return static_cast<int>(*number);
}

std::optional<long> parseNumber(std::string_view text) {
    text = trim(text);
    long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace qlog
