#include "qlog/FileHandler.h"

// The sinks alone: spdlog's registry of loggers and its threads stay out of the host.
#include <fcntl.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <new>

namespace qlog {
namespace {

constexpr std::chrono::seconds kRetryAfter{30};
constexpr int kTries = 100;  // of a record for which there is no memory, one after another
constexpr auto kPlain = spdlog::level::off;  // marks a record that is written without a prefix

// "2025-11-21T09:34:00.123+01:00 [process:thread] text".
class LineFormatter : public spdlog::formatter {
public:
    void format(const spdlog::details::log_msg& msg, spdlog::memory_buf_t& dest) override {
        if (msg.level != kPlain) prefix_.format(msg, dest);
        dest.append(msg.payload.data(), msg.payload.data() + msg.payload.size());
        dest.push_back('\n');
    }
    std::unique_ptr<spdlog::formatter> clone() const override {
        return std::make_unique<LineFormatter>();
    }

private:
    spdlog::pattern_formatter prefix_{"%Y-%m-%dT%H:%M:%S.%e%z [%P:%t] ",
                                      spdlog::pattern_time_type::local, ""};
};

// Whether the path can be a log file: found out before the sink tries, because it would try several
// times, with pauses, and would rotate even a device. 0 or the error.
int probe(const std::string& path) {
    std::error_code error;
    const auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) std::filesystem::create_directories(parent, error);
    const int fd =
        ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
    if (fd < 0) return errno;
    struct stat status {};
    const bool regular = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    ::close(fd);
    return regular ? 0 : EINVAL;
}

std::atomic<bool> hasComplained{false};

void complainOnce(const std::string& path, int error) {
    if (hasComplained.exchange(true, std::memory_order_relaxed)) return;
    std::fprintf(stderr, "qlog: cannot write log file %s: %s\n", path.c_str(),
                 std::strerror(error));
}

}  // namespace

FileHandler::FileHandler(FileSettings settings) : settings_(std::move(settings)) {
}

FileHandler::~FileHandler() = default;

void FileHandler::allowComplaint() noexcept {
    hasComplained.store(false, std::memory_order_relaxed);
}

void FileHandler::configure(FileSettings settings) {
    const std::lock_guard<std::mutex> locked(lock_);
    FileSettings old = std::move(settings_);
    settings_ = std::move(settings);
    old.level = settings_.level;
    old.flush = settings_.flush;
    if (old == settings_) return;
    sink_.reset();
    retryAt_ = {};
}

bool FileHandler::openLocked() {
    if (sink_) return true;
    if (closed_ || settings_.path.empty()) return false;
    if (retryAt_ != Clock::time_point{} && Clock::now() < retryAt_) return false;
    if (const int error = probe(settings_.path); error != 0) {
        complainOnce(settings_.path, error);
        giveUpLocked();
        return false;
    }
    auto sink = std::make_unique<spdlog::sinks::rotating_file_sink_st>(
        settings_.path, settings_.maxBytes, settings_.maxFiles);
    sink->set_formatter(std::make_unique<LineFormatter>());
    sink_ = std::move(sink);
    return true;
}

void FileHandler::giveUpLocked() noexcept {
    sink_.reset();
    retryAt_ = Clock::now() + kRetryAfter;
}

void FileHandler::write(const Record& record) noexcept {
    const std::lock_guard<std::mutex> locked(lock_);
    for (int tries = 1; tries <= kTries; ++tries) {
        try {
            if (record.level >= settings_.level && openLocked()) writeLocked(record);
            return;
        } catch (const std::bad_alloc&) {
            continue;  // nothing has been written: a record is whole before it goes to the file
        } catch (...) {
            break;
        }
    }
    complainOnce(settings_.path, errno);
    giveUpLocked();
}

void FileHandler::writeLocked(const Record& record) {
    const spdlog::details::log_msg message(
        {}, record.plain ? kPlain : spdlog::level::info,
        spdlog::string_view_t(record.text.data(), record.text.size()));
    sink_->log(message);
    if (settings_.flush) sink_->flush();
}

void FileHandler::flush() noexcept {
    const std::lock_guard<std::mutex> locked(lock_);
    try {
        if (sink_) sink_->flush();
    } catch (...) {
        giveUpLocked();
    }
}

void FileHandler::close() noexcept {
    const std::lock_guard<std::mutex> locked(lock_);
    closed_ = true;
    sink_.reset();
}

}  // namespace qlog
