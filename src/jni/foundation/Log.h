// How every floor writes: numbered operator messages, debug lines at three depths, entry/exit
// traces.
//
//     logMessage(msg::kUsingPropertyFile, fileName_);
//     VEL_DEBUG_MIN("loadProperties", "Property file %s not found", specific);
//     VEL_TRACE("sendData(const char*, int)");     // first line of a function
//
// A disabled debug line or trace costs one load and one predictable branch: traceThreshold is a
// copy of the tracer's level that the toolkit's level listener keeps fresh.
#pragma once

#include <atomic>
#include <cstdint>
#include <tuple>
#include <type_traits>

#include "foundation/Message.h"
#include "qlog/qlog.h"

constexpr int kDebugMax = QLG_LEVEL_DEBUG_MAX;  // most detail
constexpr int kDebugMid = QLG_LEVEL_DEBUG_MID;  // entry and exit
constexpr int kDebugMin = QLG_LEVEL_DEBUG_MIN;  // least detail

// Relaxed: a thread that sees a level change a moment late writes or skips a line, nothing else.
extern std::atomic<int> traceThreshold;

[[nodiscard]] inline bool traceOn(int level) noexcept {
    return level >= traceThreshold.load(std::memory_order_relaxed);
}

namespace logdetail {

// One argument as the toolkit wants it: type code and value.
template <typename T>
auto typed(T value) {
    if constexpr (std::is_null_pointer_v<T>) {
        return std::make_tuple(static_cast<int>(QLG_STRING), static_cast<const char*>(nullptr));
    } else if constexpr (std::is_pointer_v<T> &&
                         std::is_same_v<std::remove_cv_t<std::remove_pointer_t<T>>, char>) {
        return std::make_tuple(static_cast<int>(QLG_STRING), static_cast<const char*>(value));
    } else if constexpr (std::is_pointer_v<T>) {
        return std::make_tuple(static_cast<int>(QLG_INT64), reinterpret_cast<std::int64_t>(value));
    } else if constexpr (sizeof(T) > 4) {
        return std::make_tuple(static_cast<int>(QLG_INT64), static_cast<std::int64_t>(value));
    } else {
        return std::make_tuple(static_cast<int>(QLG_INT), static_cast<int>(value));
    }
}

template <typename Write, typename... Args>
void withTyped(Write write, Args... args) {
    std::apply([&](auto... flat) { write(flat..., 0); }, std::tuple_cat(typed(args)...));
}

// The two objects, the set and the catalogue of ProbeQLog, without its header.
QlgHandle messageLogger();
QlgHandle tracer();
const char* catalogue();
int messageSet();

}  // namespace logdetail

// Writes a numbered message at its own level; the arguments fill its format in order.
template <typename... Args>
void logMessage(const Message& message, Args... args) {
    using namespace logdetail;
    auto* const write = message.level == MessageLevel::info    ? QlgLogInfo
                        : message.level == MessageLevel::warn  ? QlgLogWarn
                        : message.level == MessageLevel::error ? QlgLogError
                                                               : QlgLogFatal;
    withTyped(
        [&](auto... flat) {
            write(messageLogger(), catalogue(), messageSet(), message.number, message.text,
                  flat...);
        },
        args...);
}

// Writes a debug line whatever the level; use the macros, which test first and add the place.
template <typename... Args>
void writeDebug(int level, const char* file, const char* function, int line, const char* format,
                Args... args) {
    using namespace logdetail;
    auto* const write = level == kDebugMax   ? QlgLogDebugMax
                        : level == kDebugMid ? QlgLogDebugMid
                                             : QlgLogDebugMin;
    withTyped([&](auto... flat) { write(tracer(), file, function, line, format, flat...); },
              args...);
}

#define VEL_DEBUG_AT(level, function, ...)                                     \
    do {                                                                       \
        if (traceOn(level)) [[unlikely]]                                       \
            writeDebug(level, __FILE_NAME__, function, __LINE__, __VA_ARGS__); \
    } while (false)
#define VEL_DEBUG_MAX(function, ...) VEL_DEBUG_AT(kDebugMax, function, __VA_ARGS__)
#define VEL_DEBUG_MID(function, ...) VEL_DEBUG_AT(kDebugMid, function, __VA_ARGS__)
#define VEL_DEBUG_MIN(function, ...) VEL_DEBUG_AT(kDebugMin, function, __VA_ARGS__)

// "entry" now, "exit" on every way out of the scope.
class TraceScope {
public:
    TraceScope(const char* file, const char* signature, int line) noexcept
        : file_(file), signature_(signature), line_(line), on_(traceOn(kDebugMid)) {
        if (on_) [[unlikely]]
            write("entry");
    }
    ~TraceScope() {
        if (on_) [[unlikely]]
            write("exit");
    }
    TraceScope(const TraceScope&) = delete;
    TraceScope& operator=(const TraceScope&) = delete;

private:
    void write(const char* what) const noexcept;

    const char* file_;
    const char* signature_;
    int line_;
    bool on_;
};
#define VEL_TRACE(signature)               \
    const TraceScope velTraceScope_ {      \
        __FILE_NAME__, signature, __LINE__ \
    }
