#include "qlog/Capture.h"

#include <fcntl.h>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace qffdc {
namespace {

namespace fs = std::filesystem;

constexpr int kMostFiles = 1000;

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

void expandPattern(const std::string& pattern, std::vector<std::string>& paths) {
    glob_t found{};
    if (::glob(pattern.c_str(), 0, nullptr, &found) == 0) {
        for (std::size_t i = 0; i < found.gl_pathc; ++i) paths.emplace_back(found.gl_pathv[i]);
    }
    ::globfree(&found);
}

bool writeAll(int fd, const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t put = ::write(fd, bytes, size);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        bytes += put;
        size -= static_cast<std::size_t>(put);
    }
    return true;
}

// "ffdc-" and a time of day: sorts by age, and no folder of anybody else's looks like it.
bool isIncidentName(const std::string& name) {
    static constexpr char kPattern[] = "ffdc-dddddddd-dddddd-ddd-p";
    constexpr std::size_t kLength = sizeof kPattern - 1;
    if (name.size() <= kLength) return false;
    for (std::size_t i = 0; i < kLength; ++i) {
        const bool digit = name[i] >= '0' && name[i] <= '9';
        // The "d" of "ffdc" is a letter, those behind it stand for digits.
        if (kPattern[i] == 'd' && i > 4 ? !digit : name[i] != kPattern[i]) return false;
    }
    return true;
}

}  // namespace

std::vector<std::string> expandList(std::string_view list) {
    constexpr std::string_view kSeparators = ", \t\r\n";
    std::vector<std::string> paths;
    while (true) {
        const std::size_t first = list.find_first_not_of(kSeparators);
        if (first == std::string_view::npos) break;
        list.remove_prefix(first);
        const std::string item(list.substr(0, list.find_first_of(kSeparators)));
        list.remove_prefix(item.size());
        if (item.find_first_of("*?[") == std::string::npos) {
            paths.push_back(item);
        } else {
            expandPattern(item, paths);
        }
    }
    if (paths.size() > kMostFiles) paths.resize(kMostFiles);
    return paths;
}

fs::path makeIncidentFolder(const fs::path& base) {
    std::error_code error;
    fs::create_directories(base, error);
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm local{};
    ::localtime_r(&now.tv_sec, &local);
    char time[32];
    std::strftime(time, sizeof time, "%Y%m%d-%H%M%S", &local);
    for (int attempt = 0; attempt < 100; ++attempt) {
        char name[96];
        std::snprintf(name, sizeof name, "ffdc-%s-%03ld-p%d-%02d", time, now.tv_nsec / 1000000,
                      static_cast<int>(::getpid()), attempt);
        if (fs::create_directory(base / name, error)) return base / name;
        if (error) break;  // taken names give no error
    }
    return {};
}

std::string copyTail(const std::string& from, const fs::path& to, long maxBytes) {
    // O_NONBLOCK: a pipe in the list must not hold up the host.
    const Descriptor source(::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (source.get() < 0) return std::strerror(errno);
    struct stat status {};
    if (::fstat(source.get(), &status) != 0) return std::strerror(errno);
    if (!S_ISREG(status.st_mode)) return "not a regular file";
    const Descriptor target(
        ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, status.st_mode & 0666));
    if (target.get() < 0) return std::strerror(errno);

    const off_t size = status.st_size;
    off_t at = size > maxBytes ? size - maxBytes : 0;
    char chunk[65536];
    while (at < size) {  // up to the size at the start: the file may grow meanwhile
        const auto want = std::min<off_t>(sizeof chunk, size - at);
        const ssize_t got = ::pread(source.get(), chunk, static_cast<std::size_t>(want), at);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::strerror(errno);
        if (got == 0) break;
        if (!writeAll(target.get(), chunk, static_cast<std::size_t>(got))) {
            return std::strerror(errno);
        }
        at += got;
    }
    return {};
}

void removeOldIncidents(const fs::path& base, std::size_t keep) {
    std::error_code ignored;
    std::vector<std::string> names;
    fs::directory_iterator entry(base, ignored);
    for (; !ignored && entry != fs::directory_iterator(); entry.increment(ignored)) {
        const std::string name = entry->path().filename().string();
        std::error_code unknown;
        if (isIncidentName(name) && fs::is_directory(entry->symlink_status(unknown))) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    for (std::size_t i = 0; i + keep < names.size(); ++i) fs::remove_all(base / names[i], ignored);
}

}  // namespace qffdc
