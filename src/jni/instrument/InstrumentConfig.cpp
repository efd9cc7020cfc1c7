#include "instrument/InstrumentConfig.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string_view>

#include "foundation/Identity.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "instrument/ParameterSlots.h"
#include "os/RegularFile.h"

namespace {

constexpr std::string_view kPrefix = "com.kor.tessar.ruka.jvmpi.";
constexpr std::string_view kBlanks = " \t\r\f";
constexpr std::size_t kLongestName =
    65535 - (sizeof kWrapperPrefix - 1);  // the wrapper's is a u2 long
constexpr int kMostSlots = 255;           // of a method's parameters

// What is wrong with a line; thrown within this file only.
struct Malformed {
    std::string reason;
};

std::string_view trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool parseYesNo(std::string_view value) {
    const std::string text(value);
    if (strcasecmp(text.c_str(), "YES") == 0) return true;
    if (strcasecmp(text.c_str(), "NO") == 0) return false;
    throw Malformed{"the value must be YES or NO"};
}

// A class name in slash form; the configuration keeps its text.
const std::string& keepName(InstrumentConfig* config, std::string text, const char* what) {
    if (text.empty() || text.size() > kLongestName)
        throw Malformed{std::string(what) + " is empty or too long"};
    return config->texts.emplace_back(std::move(text));
}

const std::string& keepClassName(InstrumentConfig* config, std::string text, const char* what) {
    std::replace(text.begin(), text.end(), '.', '/');
    return keepName(config, std::move(text), what);
}

USHORT parseSlot(const std::string& text) {
    int slot = -1;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, slot);
    if (error != std::errc() || stop != end || slot < 0 || slot >= kMostSlots)
        throw Malformed{"\"" + text + "\" is no local slot from 0 to 254"};
    return static_cast<USHORT>(slot);
}

ParameterIndex parseSlots(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream list(text);
    for (std::string part; std::getline(list, part, ',');) parts.push_back(part);
    if (parts.size() != 5)
        throw Malformed{
            "five slots are needed: class loader, class name, byte array, offset, length"};
    return {parseSlot(parts[0]), parseSlot(parts[1]), parseSlot(parts[2]), parseSlot(parts[3]),
            parseSlot(parts[4])};
}

// Whether the target is an instance or a static method shows in the class alone, so slots that fit
// either are taken here; instrumentDefineClass checks again.
void checkSlots(const std::string& descriptor, const ParameterIndex& at) {
    const auto* const bytes = reinterpret_cast<const BYTE*>(descriptor.data());
    if (descriptor.size() > 65535 ||
        !isMethodDescriptor(bytes, static_cast<USHORT>(descriptor.size())))
        throw Malformed{"\"" + descriptor + "\" is no method descriptor"};
    const std::unique_ptr<char, decltype(&std::free)> letters(
        parseDescriptor(bytes, static_cast<USHORT>(descriptor.size())), std::free);
    if (letters == nullptr) throw Malformed{"no memory"};
    if (letters.get()[std::strlen(letters.get()) - 1] != 'A')
        throw Malformed{"the target must return an object"};
    if (parameterSlots(descriptor, false) > kMostSlots)
        throw Malformed{"the target has too many parameters"};
    if (!slotsFit(descriptor, at, false) && !slotsFit(descriptor, at, true))
        throw Malformed{"the slots do not fit the descriptor"};
}

DefineClassMethod parseTarget(InstrumentConfig* config, std::string_view value) {
    std::istringstream words{std::string(value)};
    std::string from, to, method, descriptor, slots, more;
    words >> from >> to >> method >> descriptor >> slots;
    if (slots.empty() || words >> more)
        throw Malformed{
            "a target is: class to rewrite, declaring class, method, descriptor, five slots"};
    DefineClassMethod target{};
    target.parameterIndex = parseSlots(slots);
    checkSlots(descriptor, target.parameterIndex);
    const std::string& fromName = keepClassName(config, from, "the class to rewrite");
    const std::string& toName = keepClassName(config, to, "the declaring class");
    target.fromClassName = fromName.c_str();
    target.fromClassNameLength = static_cast<ULONG>(fromName.size());
    target.toClassName = toName.c_str();
    target.toClassNameLength = static_cast<ULONG>(toName.size());
    target.methodName = keepName(config, method, "the method").c_str();
    target.methodDescriptor = keepName(config, descriptor, "the descriptor").c_str();
    return target;
}

// "classLoader" and "classLoader.<anything>" both name the list.
bool isListKey(std::string_view key, std::string_view list) {
    return key == list || (key.size() > list.size() + 1 && key.substr(0, list.size()) == list &&
                           key[list.size()] == '.');
}

void parseLine(InstrumentConfig* config, std::string_view line) {
    line = trim(line);
    if (line.empty() || line[0] == '#') return;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) throw Malformed{"there is no \"=\""};
    const std::string_view fullKey = trim(line.substr(0, equals));
    const std::string_view value = trim(line.substr(equals + 1));
    if (fullKey.substr(0, kPrefix.size()) != kPrefix)
        throw Malformed{"the key \"" + std::string(fullKey) + "\" is not known"};
    const std::string_view key = fullKey.substr(kPrefix.size());
    if (key == "instrumentDefineClass") {
        config->instrumentDefineClass = parseYesNo(value);
    } else if (key == "dumpClasses") {
        config->dumpClasses = parseYesNo(value);
    } else if (key == "dumpPath") {
        config->dumpPath = value;
    } else if (isListKey(key, "classLoader")) {
        config->classLoaders.push_back(parseTarget(config, value));
    } else if (isListKey(key, "proxy")) {
        config->proxies.push_back(parseTarget(config, value));
    } else {
        throw Malformed{"the key \"" + std::string(fullKey) + "\" is not known"};
    }
}

bool refuse(const std::string& path, int line, const std::string& reason) {
    logMessage(msg::kInstrumentConfigBad, path.c_str(), line, reason.c_str());
    return false;
}

// A whole file; false when it cannot be read.
bool readFile(std::FILE* file, std::string* text) {
    char part[4096];
    for (std::size_t got = 0; (got = std::fread(part, 1, sizeof part, file)) > 0;)
        text->append(part, got);
    return std::ferror(file) == 0;
}

bool parseText(const std::string& path, const std::string& text, InstrumentConfig* config) {
    std::istringstream lines(text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        try {
            parseLine(config, line);
        } catch (const Malformed& malformed) {
            return refuse(path, number, malformed.reason);
        }
    }
    return true;
}

}  // namespace

InstrumentConfig& instrumentConfig() {
    static auto* const config = new InstrumentConfig;  // never destroyed: hooks may come at exit
    return *config;
}

bool getConfig(const char* given) {
    VEL_TRACE("getConfig(const char*)");
    const std::string path =
        given != nullptr && given[0] != '\0'
            ? given
            : std::string(Identity::home()) + "/etc/instrumentation.properties";
    instrumentConfig() = InstrumentConfig{};
    const os::File file(os::fopenRegular(path.c_str(), "r"));
    if (file == nullptr) {
        if (errno == ENOENT || errno == ENOTDIR) return true;
        return refuse(path, 0, std::strerror(errno));
    }
    std::string text;
    if (!readFile(file.get(), &text)) return refuse(path, 0, "the file cannot be read");
    InstrumentConfig config;
    if (!parseText(path, text, &config)) return false;
    instrumentConfig() = std::move(config);
    const InstrumentConfig& inForce = instrumentConfig();
    VEL_DEBUG_MIN("getConfig(const char*)",
                  "Instrumentation configuration %s: %d class loader and %d proxy targets",
                  path.c_str(), static_cast<int>(inForce.classLoaders.size()),
                  static_cast<int>(inForce.proxies.size()));
    return true;
}
