// See FakeQlog.h. Defines the toolkit's functions, so that the program's own calls end here.
#include "support/FakeQlog.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

struct QlgObject {
    std::string name, type;
    std::map<std::string, std::string> properties;
    bool configured = true;
};

namespace {

struct Toolkit {
    std::mutex lock;  // guards everything below
    FakeQlog::Kit kit;
    std::map<std::string, std::unique_ptr<QlgObject>> objects;  // never erased: handles stay valid
    std::vector<FakeQlog::Line> lines;
    void (*listener)() = nullptr;
};

Toolkit& toolkit() {
    static Toolkit* const only = new Toolkit;  // outlives every static that logs at its end
    return *only;
}

void tellListener() {
    void (*listener)() = nullptr;
    {
        const std::lock_guard hold(toolkit().lock);
        listener = toolkit().listener;
    }
    if (listener != nullptr) listener();
}

int levelOf(const QlgObject& object) {
    const auto found = object.properties.find("level");
    return found == object.properties.end() ? 0 : std::atoi(found->second.c_str());
}

bool loggable(const QlgObject* object, int level) {
    return object != nullptr && toolkit().kit.open && level >= levelOf(*object);
}

struct Value {
    int type = 0;
    long long number = 0;
    const char* text = nullptr;
};

std::vector<Value> typedValues(va_list list) {
    std::vector<Value> values;
    for (int type = va_arg(list, int); type != QLG_END; type = va_arg(list, int)) {
        Value value;
        value.type = type;
        if (type == QLG_STRING) {
            value.text = va_arg(list, const char*);
            if (value.text == nullptr) value.text = "(null)";
        } else if (type == QLG_INT64) {
            value.number = va_arg(list, std::int64_t);
        } else {
            value.number = va_arg(list, int);
        }
        values.push_back(value);
    }
    return values;
}

std::string shown(const Value& value, char conversion) {
    if (value.type == QLG_STRING) return value.text;
    char out[64];
    const char* format = conversion == 'x' || conversion == 'p' ? "%llx"
                         : conversion == 'X'                    ? "%llX"
                                                                : "%lld";
    std::snprintf(out, sizeof out, format,  // NOLINT: chosen above from literals
                  value.type == QLG_INT && std::strchr("xX", conversion) != nullptr
                      ? static_cast<long long>(static_cast<unsigned>(value.number))
                      : value.number);
    return out;
}

// Fills "%s", "%d", "%0$d" ... Widths and flags are read and left out.
std::string filled(const char* format, const std::vector<Value>& values) {
    std::string out;
    std::size_t next = 0;
    for (const char* at = format == nullptr ? "" : format; *at != '\0'; ++at) {
        if (*at != '%') {
            out += *at;
            continue;
        }
        if (at[1] == '%') {
            out += *++at;
            continue;
        }
        const char* end = at + 1;
        std::size_t digits = 0;
        while (end[digits] >= '0' && end[digits] <= '9') ++digits;
        std::size_t index = 0;
        if (digits != 0 && end[digits] == '$') {
            index = static_cast<std::size_t>(std::atoi(end));
            end += digits + 1;
        } else {
            index = next++;
        }
        end += std::strspn(end, "-+ #0123456789.hlzqjt");
        out += index < values.size() ? shown(values[index], *end) : "<missing>";
        if (*end == '\0') break;
        at = end;
    }
    return out;
}

void keep(FakeQlog::Line line) {
    const std::lock_guard hold(toolkit().lock);
    if (loggable(line.object, line.level)) toolkit().lines.push_back(std::move(line));
}

void keepDebug(QlgHandle object, int level, const char* file, const char* function, int line,
               const char* format, va_list list) {
    FakeQlog::Line kept;
    kept.object = object;
    kept.level = level;
    kept.file = file == nullptr ? "" : file;
    kept.function = function == nullptr ? "" : function;
    kept.line = line;
    kept.text = filled(format, typedValues(list));
    keep(std::move(kept));
}

void keepMessage(QlgHandle object, int level, const char* catalogue, int set, int number,
                 const char* format, va_list list) {
    FakeQlog::Line kept;
    kept.object = object;
    kept.level = level;
    kept.catalogue = catalogue == nullptr ? "" : catalogue;
    kept.set = set;
    kept.number = number;
    kept.text = filled(format, typedValues(list));
    keep(std::move(kept));
}

char* given(const std::string& text) {
    ++toolkit().kit.strings;
    return strdup(text.c_str());
}

}  // namespace

// The toolkit's own interface. Visible, so that libraries which a test loads come here as well.
#define FAKE_QLG extern "C" __attribute__((visibility("default")))

FAKE_QLG int QlgOpenToolkit(const char* file) {
    {
        const std::lock_guard hold(toolkit().lock);
        toolkit().kit.openedFile = file == nullptr ? "" : file;
        if (toolkit().kit.failOpen) return 0;
        toolkit().kit.open = true;
    }
    tellListener();
    return 1;
}

FAKE_QLG void QlgCloseToolkit(void) {
    {
        const std::lock_guard hold(toolkit().lock);
        toolkit().kit.open = false;
    }
    tellListener();
}

FAKE_QLG QlgHandle QlgGetObject(const char* name, const char* type) {
    const std::lock_guard hold(toolkit().lock);
    const auto found = toolkit().objects.find(name == nullptr ? "" : name);
    if (!toolkit().kit.open || found == toolkit().objects.end() || !found->second->configured)
        return nullptr;
    if (type != nullptr && found->second->type != type) return nullptr;
    ++toolkit().kit.handlesHeld;
    return found->second.get();
}

FAKE_QLG void QlgReleaseObject(QlgHandle object) {
    const std::lock_guard hold(toolkit().lock);
    if (object != nullptr) --toolkit().kit.handlesHeld;
}

FAKE_QLG char* QlgGetObjProp(QlgHandle object, const char* property, int* exists) {
    const std::lock_guard hold(toolkit().lock);
    if (exists != nullptr) *exists = 0;
    if (object == nullptr) return nullptr;
    const auto found = object->properties.find(property);
    if (found == object->properties.end()) return nullptr;
    if (exists != nullptr) *exists = 1;
    return given(found->second);
}

FAKE_QLG void QlgSetObjProp(QlgHandle object, const char* property, const char* value) {
    {
        const std::lock_guard hold(toolkit().lock);
        if (object == nullptr) return;
        object->properties[property] = value == nullptr ? "" : value;
    }
    tellListener();
}

FAKE_QLG void QlgSetObjPropInt(QlgHandle object, const char* property, int value) {
    QlgSetObjProp(object, property, std::to_string(value).c_str());
}

FAKE_QLG int QlgIsLoggable(QlgHandle object, int level) {
    const std::lock_guard hold(toolkit().lock);
    return loggable(object, level);
}

FAKE_QLG void QlgCheckConfiguration() {
}

FAKE_QLG void QlgSetLevelListener(void (*changed)(void)) {
    {
        const std::lock_guard hold(toolkit().lock);
        toolkit().listener = changed;
    }
    tellListener();
}

#define FAKE_DEBUG(Name, level)                                                               \
    FAKE_QLG void QlgLogDebug##Name(QlgHandle object, const char* file, const char* function, \
                                    int line, const char* format, ...) {                      \
        va_list list;                                                                         \
        va_start(list, format);                                                               \
        keepDebug(object, level, file, function, line, format, list);                         \
        va_end(list);                                                                         \
    }
FAKE_DEBUG(Max, QLG_LEVEL_DEBUG_MAX)
FAKE_DEBUG(Mid, QLG_LEVEL_DEBUG_MID)
FAKE_DEBUG(Min, QLG_LEVEL_DEBUG_MIN)

#define FAKE_MESSAGE(Name, level)                                                            \
    FAKE_QLG void QlgLog##Name(QlgHandle object, const char* catalogue, int set, int number, \
                               const char* format, ...) {                                    \
        va_list list;                                                                        \
        va_start(list, format);                                                              \
        keepMessage(object, level, catalogue, set, number, format, list);                    \
        va_end(list);                                                                        \
    }
FAKE_MESSAGE(Info, QLG_LEVEL_INFO)
FAKE_MESSAGE(Warn, QLG_LEVEL_WARN)
FAKE_MESSAGE(Error, QLG_LEVEL_ERROR)
FAKE_MESSAGE(Fatal, QLG_LEVEL_FATAL)

FAKE_QLG void QlgLogText(QlgHandle object, const char* text, int) {
    FakeQlog::Line kept;
    kept.object = object;
    kept.level = QLG_LEVEL_INFO;
    kept.text = text == nullptr ? "" : text;
    keep(std::move(kept));
}

FAKE_QLG void QlgInitFFDCExtensions(void) {
    const std::lock_guard hold(toolkit().lock);
    toolkit().kit.ffdcEnabled = true;
}

FAKE_QLG char* QlgFFDCTriggerHandlerGetBaseDir(QlgHandle) {
    const std::lock_guard hold(toolkit().lock);
    return toolkit().kit.ffdcBaseDir.empty() ? nullptr : given(toolkit().kit.ffdcBaseDir);
}

FAKE_QLG void QlgFFDCTriggerHandlerSetBaseDir(QlgHandle, const char* directory) {
    const std::lock_guard hold(toolkit().lock);
    toolkit().kit.ffdcBaseDir = directory;
}

FAKE_QLG char* QlgFileCopyHandlerGetFiles(QlgHandle) {
    const std::lock_guard hold(toolkit().lock);
    return toolkit().kit.ffdcFiles.empty() ? nullptr : given(toolkit().kit.ffdcFiles);
}

FAKE_QLG void QlgFileCopyHandlerSetFiles(QlgHandle, const char* files) {
    const std::lock_guard hold(toolkit().lock);
    toolkit().kit.ffdcFiles = files;
}

FAKE_QLG void ZosMemoryFree(void* memory) {
    if (memory == nullptr) return;
    const std::lock_guard hold(toolkit().lock);
    --toolkit().kit.strings;
    std::free(memory);
}

FAKE_QLG void zis_set_dir(const char* directory) {
    const std::lock_guard hold(toolkit().lock);
    toolkit().kit.codesetDir = directory == nullptr ? "" : directory;
}

namespace {

void forget() {
    const std::lock_guard hold(toolkit().lock);
    toolkit().kit = {};
    for (auto& [name, object] : toolkit().objects) {
        object->configured = false;
        object->properties.clear();
    }
    toolkit().lines.clear();
}

}  // namespace

FakeQlog::FakeQlog() {
    forget();
}

FakeQlog::~FakeQlog() {
    forget();
    tellListener();
}

QlgHandle FakeQlog::addObject(const std::string& name, const std::string& type) {
    const std::lock_guard hold(toolkit().lock);
    auto& object = toolkit().objects[name];
    if (object == nullptr) object = std::make_unique<QlgObject>();
    object->name = name;
    object->type = type;
    object->configured = true;
    return object.get();
}

void FakeQlog::removeObject(const std::string& name) {
    const std::lock_guard hold(toolkit().lock);
    const auto found = toolkit().objects.find(name);
    if (found != toolkit().objects.end()) found->second->configured = false;
}

void FakeQlog::setProperty(const std::string& object, const std::string& name,
                           const std::string& value) {
    QlgHandle handle = nullptr;
    {
        const std::lock_guard hold(toolkit().lock);
        const auto found = toolkit().objects.find(object);
        if (found != toolkit().objects.end()) handle = found->second.get();
    }
    if (handle == nullptr) handle = addObject(object);
    QlgSetObjProp(handle, name.c_str(), value.c_str());
}

std::string FakeQlog::property(const std::string& object, const std::string& name) const {
    const std::lock_guard hold(toolkit().lock);
    const auto found = toolkit().objects.find(object);
    if (found == toolkit().objects.end()) return "";
    const auto value = found->second->properties.find(name);
    return value == found->second->properties.end() ? "" : value->second;
}

std::vector<FakeQlog::Line> FakeQlog::lines() const {
    const std::lock_guard hold(toolkit().lock);
    return toolkit().lines;
}

std::vector<FakeQlog::Line> FakeQlog::messages(int number) const {
    std::vector<Line> found;
    for (Line& line : lines())
        if (line.number == number) found.push_back(std::move(line));
    return found;
}

bool FakeQlog::logged(std::string_view part) const {
    for (const Line& line : lines())
        if (line.text.find(part) != std::string::npos) return true;
    return false;
}

void FakeQlog::clearLines() {
    const std::lock_guard hold(toolkit().lock);
    toolkit().lines.clear();
}

FakeQlog::Kit& FakeQlog::kit() {
    return toolkit().kit;
}
