// Writes records to one rotating file.
//
// The file is opened at the first record, so that its name may be changed before; missing parent
// folders are made. When it cannot be opened or written, records are dropped, standard error is
// told once, whatever the number of handlers, and another try is made half a minute later.
//
// Rotation: at the size limit "name.log" becomes "name.1.log", that becomes "name.2.log", and so on
// up to the count; the oldest is deleted.
//
// Threads: any. lock_ guards all members and is held while a record is written: lines never mix.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace spdlog::sinks {
class sink;
}

namespace qlog {

struct FileSettings {
    std::string path;                                  // empty: nothing is written
    std::size_t maxBytes = std::size_t{10240} * 1024;  // of one file
    std::size_t maxFiles = 5;  // rotated copies kept beside the current file
    bool flush = true;         // hand each record to the system at once
    int level = 0;             // records below it are left out

    bool operator==(const FileSettings&) const = default;
};

struct Record {
    int level;
    bool plain;             // as given, without time and thread in front
    std::string_view text;  // one line, without its end
};

class FileHandler {
public:
    explicit FileHandler(FileSettings settings);
    ~FileHandler();
    FileHandler(const FileHandler&) = delete;
    FileHandler& operator=(const FileHandler&) = delete;

    // Later records go by these settings; an open file that is not affected stays open.
    void configure(FileSettings settings);

    void write(const Record& record) noexcept;
    void flush() noexcept;
    // For good: later records are dropped.
    void close() noexcept;

    // The next failure of any handler is told again: there is a new configuration.
    static void allowComplaint() noexcept;

private:
    using Clock = std::chrono::steady_clock;

    bool openLocked();
    void writeLocked(const Record& record);
    void giveUpLocked() noexcept;

    std::mutex lock_;
    FileSettings settings_;
    std::unique_ptr<spdlog::sinks::sink> sink_;  // null: not open
    Clock::time_point retryAt_{};                // no attempt before that time
    bool closed_ = false;
};

}  // namespace qlog
