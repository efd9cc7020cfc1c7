#include "qlog/Settings.h"

#include <strings.h>

#include <algorithm>

#include "qlog/qlog.h"

namespace qlog {
namespace {

class Reader {
public:
    Reader(const std::string& object, const PropertyMap& properties, Notes& notes)
        : object_(object), properties_(properties), notes_(notes) {}

    long number(const char* name, long normal, long least, long most) {
        const std::string text = textOf(properties_, name);
        if (text.empty()) return normal;
        const auto value = parseNumber(text);
        const long used = value ? std::clamp(*value, least, most) : normal;
        if (!value || used != *value) note(name, text, std::to_string(used));
        return used;
    }

    bool flag(const char* name, bool normal) {
        const std::string text = textOf(properties_, name);
        if (::strcasecmp(text.c_str(), "YES") == 0) return true;
        if (::strcasecmp(text.c_str(), "NO") == 0) return false;
        if (!text.empty()) note(name, text, normal ? "YES" : "NO");
        return normal;
    }

    void note(const std::string& name, const std::string& text, const std::string& used) {
        notes_.push_back("Setting " + object_ + "." + name + " has the unusable value \"" + text +
                         "\"; using " + used + " instead");
    }

private:
    const std::string& object_;
    const PropertyMap& properties_;
    Notes& notes_;
};

}  // namespace

std::string textOf(const PropertyMap& properties, const std::string& name) {
    const auto found = properties.find(name);
    return found != properties.end() ? found->second : std::string();
}

int levelOf(const std::string& object, const PropertyMap& properties, int normal, Notes& notes) {
    const std::string text = textOf(properties, "level");
    if (text.empty()) return normal;
    const auto level = parseLevel(text);
    if (!level) Reader(object, properties, notes).note("level", text, std::to_string(normal));
    return level.value_or(normal);
}

FileSettings fileSettings(const std::string& object, const PropertyMap& properties, Notes& notes) {
    Reader reader(object, properties, notes);
    FileSettings settings;
    settings.path = textOf(properties, "fileName");
    settings.maxBytes =
        static_cast<std::size_t>(reader.number("maxFileSizeKB", 10240, 1, 2097151)) * 1024;
    settings.maxFiles = static_cast<std::size_t>(reader.number("maxFiles", 5, 0, 1000));
    settings.flush = reader.flag("flush", true);
    return settings;
}

CaptureSettings captureSettings(const std::string& object, const PropertyMap& properties,
                                Notes& notes) {
    Reader reader(object, properties, notes);
    CaptureSettings settings;
    settings.baseDirectory = textOf(properties, "baseDir");
    settings.files = textOf(properties, "files");
    settings.maxIncidents = static_cast<int>(reader.number("maxIncidents", 10, 1, 1000));
    settings.maxFileBytes = reader.number("maxCopyKB", 51200, 1, 2097151) * 1024;
    settings.minSeconds = reader.number("minSeconds", 30, 0, 86400);
    return settings;
}

}  // namespace qlog
