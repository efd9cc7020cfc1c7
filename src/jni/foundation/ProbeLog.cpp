// See ProbeLog.h.
#include "foundation/ProbeLog.h"

#include <array>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Console.h"
#include "foundation/Identity.h"
#include "foundation/Log.h"
#include "foundation/Platform.h"
#include "foundation/Utils.h"
#include "os/RegularFile.h"

std::atomic<int> ProbeLog::logLevel_{ProbeLog::kInfo};
std::atomic<FILE*> ProbeLog::fplog_{nullptr};
char* ProbeLog::logFileName_ = nullptr;
ProbeLog::Entry* ProbeLog::logMsg_ = nullptr;
int ProbeLog::numLogMsg_ = 0;
bool ProbeLog::initialized_ = false;

namespace {

constexpr std::size_t kLongestLine =
    10000;  // of the messages file; the rest of a longer one is a line of its own

std::tm localNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

// <home>/logs/<node>.<server>[(<profile>)].<local time>.<process id>.datacollector.log
std::string logFilePath() {
    const std::tm now = localNow();
    std::string path = std::string(Identity::home()) + "/logs/" + Identity::nodeName() + "." +
                       Identity::appServerName();
    if (const std::string profile = Identity::profileName(); !profile.empty())
        path += "(" + profile + ")";
    return path + formatSafely(".%04d%02d%02d%02d%02d%02d.%d.datacollector.log",
                               {now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour,
                                now.tm_min, now.tm_sec, getProcessId()});
}

// Control characters are written out, so that a text from outside can neither begin a line of its
// own nor steer a terminal. A tab stays, and so does a line end behind everything else: texts of
// the messages file have one.
std::string onOneLine(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        const bool last = i + 1 == text.size();
        if (c == 0xC2 && !last && static_cast<unsigned char>(text[i + 1]) < 0xA0)
            c = static_cast<unsigned char>(text[++i]);  // U+0080 to U+009F
        else if ((c >= 0x20 && c != 0x7F) || c == '\t' || (c == '\n' && last)) {
            line += text[i];
            continue;
        }
        if (c == '\n')
            line += "\\n";
        else
            line += formatSafely("\\x%02x", {int{c}});
    }
    return line;
}

const char* lineFormat(int level) {
    switch (level) {
        case ProbeLog::kError:
            return "%s ##ERROR: %s \n";
        case ProbeLog::kWarning:
            return "%s WARNING: %s \n";
        case ProbeLog::kInfo:
            return "%s INFO: %s \n";
        case ProbeLog::kDebug:
            return "%s DEBUG: %s \n";
        case ProbeLog::kTrace:
            return "%s TRACE: %s \n";
        default:
            return "%s UNKNOW: %s \n";
    }
}

}  // namespace

void ProbeLog::initialize() {
    VEL_TRACE("initialize()");
    if (initialized_) return;
    const std::string messages = std::string(Identity::home()) + "/etc/LogMessages";
    const std::string path = logFilePath();
    const os::File messagesFile(os::fopenRegular(messages.c_str(), "r"));
    std::fprintf(stderr, "[AM]: Using log file: %s \n", path.c_str());
    if (messagesFile == nullptr) {
        std::fputs("Error: Fail to open LogMessages\n", stderr);
        return;
    }
    FILE* const log = os::fopenRegular(path.c_str(), "a+");
    if (log == nullptr) {
        std::fprintf(stderr, "Could not create %s\n", path.c_str());
        return;
    }
    std::setvbuf(log, nullptr, _IONBF,
                 0);  // a line is there for a reader, and after a crash, at once
    logFileName_ = Utils::cstrdup(path.c_str());
    loadMessages(messagesFile.get());
    fplog_.store(log, std::memory_order_release);
    initialized_ = true;
}

// Up to the end or the first line that begins with "#": an operator's remarks stand behind the
// texts.
void ProbeLog::loadMessages(FILE* file) {
    std::vector<Entry> entries;
    std::vector<char> line(kLongestLine + 1);
    while (std::fgets(line.data(), static_cast<int>(line.size()), file) != nullptr &&
           line[0] != '#') {
        char* const equals = std::strchr(line.data(), '=');
        if (equals != nullptr) *equals = '\0';
        entries.push_back({Utils::cstrdup(line.data()),
                           Utils::cstrdup(equals == nullptr ? nullptr : equals + 1)});
    }
    logMsg_ = new Entry[entries.size()];
    std::copy(entries.begin(), entries.end(), logMsg_);
    numLogMsg_ = static_cast<int>(entries.size());
}

void ProbeLog::destroy() {
    VEL_TRACE("destroy()");
    if (FILE* const log = fplog_.exchange(nullptr, std::memory_order_acq_rel); log != nullptr)
        std::fclose(log);
    for (int i = 0; i < numLogMsg_; ++i) {
        delete[] logMsg_[i].key;
        delete[] logMsg_[i].format;
    }
    numLogMsg_ = 0;
    delete[] logMsg_;
    logMsg_ = nullptr;
    delete[] logFileName_;
    logFileName_ = nullptr;
    initialized_ = false;
}

const ProbeLog::Entry* ProbeLog::find(const char* key) {
    for (int i = 0; i < numLogMsg_; ++i)
        if (std::strcmp(logMsg_[i].key, key) == 0) return &logMsg_[i];
    return nullptr;
}

void ProbeLog::logKey(int level, const char* key,
                      std::initializer_list<FormatArg> arguments) noexcept {
    VEL_TRACE("_logV(int, const char*, ...)");
    if (level > getLogLevel() || key == nullptr) return;
    const Entry* const entry = find(key);
    if (entry == nullptr || entry->format == nullptr) return;
    try {
        _logInternal(level, formatSafely(entry->format, arguments).c_str());
    } catch (const std::bad_alloc&) {
        // The line is missing; whoever logs does not fail for it.
    }
}

void ProbeLog::_logInternal(int level, const char* text) noexcept {
    VEL_TRACE("_logInternal(int, const char*)");
    if (level > getLogLevel() || text == nullptr) return;
    try {
        writeLine(level, text);
    } catch (const std::bad_alloc&) {
        // As above.
    }
}

void ProbeLog::writeLine(int level, const char* text) {
    const std::tm now = localNow();
    std::array<char, 64> time{};  // asctime_r promises 26, a year beyond 9999 needs a little more
    if (asctime_r(&now, time.data()) == nullptr) return;
    time[std::strcspn(time.data(), "\n")] = ' ';
    const std::string line =
        formatSafely(lineFormat(level), {time.data(), onOneLine(text).c_str()});
    FILE* const log = fplog_.load(std::memory_order_acquire);
    // One write, so that lines of several threads do not mix.
    std::fwrite(line.data(), 1, line.size(), log == nullptr ? console::out() : log);
}

void ProbeLog::setLogLevel(int level) {
    VEL_TRACE("setLogLevel(int)");
    std::fprintf(console::out(), "Setting Log Level: %d \n", level);
    if (level >= kError && level <= kTrace) {
        logLevel_.store(level, std::memory_order_relaxed);
        return;
    }
    _logInternal(kError,
                 formatSafely("Incorrect log level given: %d using the existing loglevel: %d ",
                              {level, getLogLevel()})
                     .c_str());
}
