// libqlog: the toolkit's C interface. Nothing is thrown out of here, and a call that cannot do its
// work does nothing.
#include "qlog/qlog.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "qlog/Format.h"
#include "qlog/Toolkit.h"
#include "qlog/qmsg.h"

#define QLG_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using qlog::Arguments;
using qlog::Toolkit;

template <typename Result, typename Body>
Result guarded(Result onFailure, Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return onFailure;
    }
}

template <typename Body>
void guarded(Body&& body) noexcept {
    try {
        body();
    } catch (...) {
        // Logging never fails its caller.
    }
}

bool isLoggable(const QlgObject* object, int level) {
    return object != nullptr && level >= object->level.load(std::memory_order_relaxed);
}

bool mayWrite(const QlgObject* object, int level) noexcept {
    return isLoggable(object, level) &&
           guarded(false, [] { return !Toolkit::instance().inForkedChild(); });
}

constexpr int kTries = 100;

// For operators' messages: losses are counted by them, so a moment without memory must not swallow
// one. Tried again at once, because whoever waits here is a thread of the host.
template <typename Body>
void untilThereIsMemory(Body&& body) noexcept {
    for (int tries = 1; tries <= kTries; ++tries) {
        try {
            return body();
        } catch (const std::bad_alloc&) {
            continue;
        } catch (...) {
            return;
        }
    }
}

// Texts come from anywhere, URLs included: nobody shall forge a record by a line end in his name.
// Further lines are set in by a tab.
std::string oneRecord(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        if (c == '\n') {
            out += "\n\t";
        } else if (c == '\t' || static_cast<unsigned char>(c) >= ' ') {
            out += c == '\x7F' ? '?' : c;
        } else if (c != '\r') {
            out += '?';
        }
    }
    return out;
}

const char* orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

const char* nameOf(int level) {
    switch (level) {
        case QLG_LEVEL_DEBUG_MAX:
            return "MAX  ";
        case QLG_LEVEL_DEBUG_MID:
            return "MID  ";
        case QLG_LEVEL_DEBUG_MIN:
            return "MIN  ";
        case QLG_LEVEL_INFO:
            return "INFO ";
        case QLG_LEVEL_WARN:
            return "WARN ";
        case QLG_LEVEL_ERROR:
            return "ERROR";
        default:
            return "FATAL";
    }
}

// The catalogue's text where there is one that the arguments fill, else the default format.
std::string messageText(const char* catalogue, int set, int number, const char* format,
                        const Arguments& arguments) {
    char translated[4096];
    if (catalogue != nullptr && number != 0 &&
        ::qmsgi_lookup(catalogue, set, number, translated, sizeof translated) >= 0 &&
        qlog::fits(translated, arguments.size())) {
        format = translated;
    }
    return qlog::render(orEmpty(format), arguments);
}

void writeMessage(QlgObject* logger, int level, const char* catalogue, int set, int number,
                  const char* format, const Arguments& arguments) {
    std::string line;
    untilThereIsMemory([&] {
        line = std::string(nameOf(level)) + ' ';
        if (number != 0) line += std::to_string(number) + ' ';
        line += oneRecord(messageText(catalogue, set, number, format, arguments));
    });
    guarded([&] {
        Toolkit& toolkit = Toolkit::instance();
        toolkit.write(*logger, {level, false, line});
        if (level == QLG_LEVEL_FATAL) toolkit.capture(*logger, line);
        toolkit.reread();
    });
}

void writeTrace(QlgObject* tracer, int level, const char* file, const char* function, int line,
                const char* format, const Arguments& arguments) {
    guarded([&] {
        std::string text = std::string(nameOf(level)) + ' ' + orEmpty(file) + ':' +
                           std::to_string(line) + ' ' + orEmpty(function) + ' ';
        text += qlog::render(orEmpty(format), arguments);
        Toolkit::instance().write(*tracer, {level, false, oneRecord(std::move(text))});
    });
}

// In malloc's memory, which ZosMemoryFree frees whatever C++ runtime the caller has.
char* copyOf(const std::optional<std::string>& text) {
    return text ? ::strdup(text->c_str()) : nullptr;
}

char* copyOfProperty(QlgObject* object, const char* name, bool emptyCounts) {
    return guarded(static_cast<char*>(nullptr), [&]() -> char* {
        if (object == nullptr || name == nullptr || Toolkit::instance().inForkedChild()) {
            return nullptr;
        }
        const auto value = Toolkit::instance().property(*object, name);
        return value && (emptyCounts || !value->empty()) ? copyOf(value) : nullptr;
    });
}

}  // namespace

QLG_EXPORT int QlgOpenToolkit(const char* propertiesFile) {
    return guarded(0, [&] {
        Toolkit& toolkit = Toolkit::instance();
        return propertiesFile != nullptr && !toolkit.inForkedChild() && toolkit.open(propertiesFile)
                   ? 1
                   : 0;
    });
}

QLG_EXPORT void QlgCloseToolkit(void) {
    guarded([] {
        if (!Toolkit::instance().inForkedChild()) Toolkit::instance().close();
    });
}

QLG_EXPORT QlgHandle QlgGetObject(const char* name, const char* type) {
    return guarded(static_cast<QlgHandle>(nullptr), [&]() -> QlgHandle {
        if (name == nullptr || Toolkit::instance().inForkedChild()) return nullptr;
        return Toolkit::instance().find(name, type);
    });
}

// Objects live as long as the process, so there is nothing to give back.
QLG_EXPORT void QlgReleaseObject(QlgHandle) {
}

QLG_EXPORT char* QlgGetObjProp(QlgHandle object, const char* property, int* exists) {
    char* const value = copyOfProperty(object, property, true);
    if (exists != nullptr) *exists = value != nullptr ? 1 : 0;
    return value;
}

QLG_EXPORT void QlgSetObjProp(QlgHandle object, const char* property, const char* value) {
    guarded([&] {
        if (object == nullptr || property == nullptr || value == nullptr) return;
        if (Toolkit::instance().inForkedChild()) return;
        Toolkit::instance().setProperty(*object, property, value);
    });
}

QLG_EXPORT void QlgSetObjPropInt(QlgHandle object, const char* property, int value) {
    guarded([&] { QlgSetObjProp(object, property, std::to_string(value).c_str()); });
}

QLG_EXPORT int QlgIsLoggable(QlgHandle object, int level) {
    return isLoggable(object, level);
}

QLG_EXPORT void QlgSetLevelListener(void (*changed)(void)) {
    guarded([&] { Toolkit::instance().setListener(changed); });
}

QLG_EXPORT void QlgCheckConfiguration(void) {
    guarded([] {
        if (!Toolkit::instance().inForkedChild()) Toolkit::instance().reread();
    });
}

// The level is tested before the argument list is touched.
#define QLG_DEFINE_DEBUG(name, level)                                                        \
    QLG_EXPORT void name(QlgHandle tracer, const char* file, const char* function, int line, \
                         const char* format, ...) {                                          \
        if (!mayWrite(tracer, level)) return;                                                \
        std::va_list list;                                                                   \
        va_start(list, format);                                                              \
        const Arguments arguments = Arguments::read(list);                                   \
        va_end(list);                                                                        \
        writeTrace(tracer, level, file, function, line, format, arguments);                  \
    }
QLG_DEFINE_DEBUG(QlgLogDebugMax, QLG_LEVEL_DEBUG_MAX)
QLG_DEFINE_DEBUG(QlgLogDebugMid, QLG_LEVEL_DEBUG_MID)
QLG_DEFINE_DEBUG(QlgLogDebugMin, QLG_LEVEL_DEBUG_MIN)
#undef QLG_DEFINE_DEBUG

#define QLG_DEFINE_MESSAGE(name, level)                                                \
    QLG_EXPORT void name(QlgHandle logger, const char* catalogue, int set, int number, \
                         const char* format, ...) {                                    \
        if (!mayWrite(logger, level)) return;                                          \
        std::va_list list;                                                             \
        va_start(list, format);                                                        \
        const Arguments arguments = Arguments::read(list);                             \
        va_end(list);                                                                  \
        writeMessage(logger, level, catalogue, set, number, format, arguments);        \
    }
QLG_DEFINE_MESSAGE(QlgLogInfo, QLG_LEVEL_INFO)
QLG_DEFINE_MESSAGE(QlgLogWarn, QLG_LEVEL_WARN)
QLG_DEFINE_MESSAGE(QlgLogError, QLG_LEVEL_ERROR)
QLG_DEFINE_MESSAGE(QlgLogFatal, QLG_LEVEL_FATAL)
#undef QLG_DEFINE_MESSAGE

QLG_EXPORT void QlgLogText(QlgHandle logger, const char* text, int) {
    if (text == nullptr || !mayWrite(logger, QLG_LEVEL_INFO)) return;
    guarded([&] {
        std::string line(text, ::strnlen(text, qlog::kLongestText + 1));
        qlog::cut(line, qlog::kLongestText);
        Toolkit::instance().write(*logger, {QLG_LEVEL_INFO, true, line});
    });
}

QLG_EXPORT void QlgInitFFDCExtensions(void) {
    guarded([] { Toolkit::instance().enableCapture(); });
}

QLG_EXPORT char* QlgFFDCTriggerHandlerGetBaseDir(QlgHandle handler) {
    return copyOfProperty(handler, "baseDir", false);
}

QLG_EXPORT void QlgFFDCTriggerHandlerSetBaseDir(QlgHandle handler, const char* directory) {
    QlgSetObjProp(handler, "baseDir", directory);
}

QLG_EXPORT char* QlgFileCopyHandlerGetFiles(QlgHandle handler) {
    return copyOfProperty(handler, "files", false);
}

QLG_EXPORT void QlgFileCopyHandlerSetFiles(QlgHandle handler, const char* files) {
    QlgSetObjProp(handler, "files", files);
}

QLG_EXPORT void ZosMemoryFree(void* memory) {
    std::free(memory);
}
