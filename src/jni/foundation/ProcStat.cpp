// See ProcStat.h.
#include "foundation/ProcStat.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <limits>

namespace {

// Takes the next blank-separated word off text; empty at its end.
std::string_view nextWord(std::string_view* text) {
    const std::size_t start = std::min(text->find_first_not_of(" \t"), text->size());
    const std::size_t end = std::min(text->find_first_of(" \t\n", start), text->size());
    const std::string_view word = text->substr(start, end - start);
    text->remove_prefix(end);
    return word;
}

// A whole word that is an unsigned number.
bool number(std::string_view word, unsigned long long* value) {
    const auto result = std::from_chars(word.data(), word.data() + word.size(), *value);
    return !word.empty() && result.ec == std::errc() && result.ptr == word.data() + word.size();
}

// Split so that no realistic tick count overflows.
long long toMs(unsigned long long ticks, unsigned long long perSecond) {
    constexpr unsigned long long kMost = std::numeric_limits<long long>::max();
    const unsigned long long seconds = ticks / perSecond;
    if (seconds >= kMost / 1000) return static_cast<long long>(kMost);
    return static_cast<long long>(seconds * 1000 + ticks % perSecond * 1000 / perSecond);
}

}  // namespace

std::string readProcFile(const char* path) {
    std::string text;
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return text;
    std::array<char, 4096> part{};
    for (;;) {
        const ssize_t got = read(file, part.data(), part.size());
        if (got > 0) text.append(part.data(), static_cast<std::size_t>(got));
        if (got == 0 || (got < 0 && errno != EINTR)) break;
    }
    close(file);
    return text;
}

int cpuCount() {
    return static_cast<int>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
}

bool parseProcessCpuTimes(std::string_view stat, long ticksPerSecond, long long* userMs,
                          long long* systemMs) {
    if (ticksPerSecond <= 0) return false;
    // The second field is the program's name in brackets, which may hold blanks and brackets
    // itself.
    const std::size_t nameEnd = stat.rfind(')');
    if (nameEnd == std::string_view::npos) return false;
    stat.remove_prefix(nameEnd + 1);
    constexpr int kFieldsBefore = 11;  // state (the third field) to cmajflt (the thirteenth)
    for (int i = 0; i < kFieldsBefore; ++i)
        if (nextWord(&stat).empty()) return false;
    unsigned long long user = 0;
    unsigned long long system = 0;
    if (!number(nextWord(&stat), &user) || !number(nextWord(&stat), &system)) return false;
    *userMs = toMs(user, static_cast<unsigned long long>(ticksPerSecond));
    *systemMs = toMs(system, static_cast<unsigned long long>(ticksPerSecond));
    return true;
}

bool processCpuTimes(long long* userMs, long long* systemMs) {
    return parseProcessCpuTimes(readProcFile("/proc/self/stat"), sysconf(_SC_CLK_TCK), userMs,
                                systemMs);
}

bool parseSystemCpuTimes(std::string_view stat, unsigned long long out[8]) {
    if (nextWord(&stat) != "cpu") return false;
    constexpr std::size_t kFewest = 4;  // user, nice, system, idle: what every kernel tells
    std::array<unsigned long long, 8> times{};
    for (std::size_t i = 0; i < times.size(); ++i) {
        const std::string_view word = nextWord(&stat);
        if (word.empty() && i >= kFewest) break;
        if (!number(word, &times[i])) return false;
    }
    std::copy(times.begin(), times.end(), out);
    return true;
}

bool systemCpuTimes(unsigned long long out[8]) {
    return parseSystemCpuTimes(readProcFile("/proc/stat"), out);
}

long parseResidentBytes(std::string_view statm, long pageSize) {
    unsigned long long pages = 0;
    nextWord(&statm);  // the size of the address space
    if (pageSize <= 0 || !number(nextWord(&statm), &pages)) return 0;
    const auto most = static_cast<unsigned long long>(std::numeric_limits<long>::max());
    const auto size = static_cast<unsigned long long>(pageSize);
    return pages > most / size ? 0 : static_cast<long>(pages * size);
}

long processResidentBytes() {
    return parseResidentBytes(readProcFile("/proc/self/statm"), sysconf(_SC_PAGESIZE));
}
