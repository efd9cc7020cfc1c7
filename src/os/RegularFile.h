// Files that the host did not open: settings, counters, class files, what the kernel tells. Regular
// ones only, so that a pipe that lies in a file's place holds up nobody, and closed on exec, so
// that the host's children get none of them. Header only: the libraries share no other code.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace os {

// The descriptor, or -1 with errno; EINVAL for what is no regular file. O_TRUNC takes effect when
// the file is known to be one.
inline int openRegular(const char* path, int flags) noexcept {
    // Not blocking: a pipe is then opened at once, or refused by the system.
    const int fd = ::open(path, (flags & ~O_TRUNC) | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);
    if (fd < 0) return -1;
    struct stat found {};
    if (::fstat(fd, &found) == 0 && S_ISREG(found.st_mode) &&
        ((flags & O_TRUNC) == 0 || ::ftruncate(fd, 0) == 0))
        return fd;
    ::close(fd);
    errno = EINVAL;
    return -1;
}

// As fopen() with "r", "w" or "a" and, for the latter two, "+"; null with errno.
inline std::FILE* fopenRegular(const char* path, const char* mode) noexcept {
    const int flags = mode[0] == 'r'   ? O_RDONLY
                      : mode[0] == 'w' ? O_RDWR | O_CREAT | O_TRUNC
                                       : O_RDWR | O_CREAT | O_APPEND;
    const int fd = openRegular(path, flags);
    if (fd < 0) return nullptr;
    std::FILE* const file = ::fdopen(fd, mode);
    if (file == nullptr) ::close(fd);
    return file;
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// The whole file; nothing when it cannot be read (errno says why) or holds more bytes than most
// (EFBIG). The size is not asked for: the kernel's own files say 0.
inline std::optional<std::string> readRegular(const std::string& path, std::size_t most) {
    const int fd = openRegular(path.c_str(), O_RDONLY);
    if (fd < 0) return std::nullopt;
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } const closer{fd};
    std::string text;
    for (char chunk[16384];;) {
        const ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got == 0) return text;
        if (got < 0 && errno == EINTR) continue;
        if (got > 0 && text.size() + static_cast<std::size_t>(got) > most) errno = EFBIG;
        if (got < 0 || text.size() + static_cast<std::size_t>(got) > most) return std::nullopt;
        text.append(chunk, static_cast<std::size_t>(got));
    }
}

}  // namespace os
