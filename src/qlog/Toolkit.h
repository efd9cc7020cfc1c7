// The toolkit's objects: loggers, file handlers and capture handlers of the configuration, and the
// road of a record from a logger to its files.
//
// Ownership: an object is made when its name first appears in a configuration and lives as long as
// the process, so a handle never dangles; without a configuration it is silent. Nothing here is
// destroyed at the end of the process, because other libraries' destructors may still log. Threads:
// any. lock_ guards the map of objects and everything in them but the level; it is held for memory
// work only. A file handler's lock comes after it, or is taken while no other is held. Fork: a
// forked child is silent for good; a rotation by two processes would ruin the files, and another
// thread may have held a lock.
#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "qlog/FileHandler.h"
#include "qlog/Properties.h"
#include "qlog/Settings.h"

namespace qlog {
using Route = std::vector<std::shared_ptr<FileHandler>>;  // where a logger's records go
}

struct QlgObject {
    static constexpr int kSilent = 0x7FFFFFFF;  // level of what is not configured

    explicit QlgObject(std::string objectName) : name(std::move(objectName)) {}

    const std::string name;
    // Relaxed: a thread that sees a change late writes or drops a record, nothing else.
    std::atomic<int> level{kSilent};

    // Guarded by the toolkit's lock.
    bool configured = false;
    qlog::PropertyMap properties;
    std::shared_ptr<qlog::FileHandler> file;           // of a file handler, else null
    std::shared_ptr<const qlog::Route> route;          // null: nowhere
    std::chrono::steady_clock::time_point quietUntil;  // of a capture handler: no capture before
};

namespace qlog {

class Toolkit {
public:
    static Toolkit& instance();

    bool open(const std::string& path);
    void close();

    // Null when the name is not configured, or has another type than the one asked for (null: any).
    QlgObject* find(const std::string& name, const char* type) const;

    std::optional<std::string> property(const QlgObject& object, const std::string& name) const;
    void setProperty(QlgObject& object, const std::string& name, const std::string& value);

    // Hands a record to the object's files. The level has been tested.
    void write(const QlgObject& object, const Record& record);

    // Notes and called once at once; null removes it.
    void setListener(void (*changed)());

    // Takes over the levels that were changed in the configuration file since it was read; looks at
    // most once in five seconds.
    void reread();

    void enableCapture() { captures_.store(true, std::memory_order_relaxed); }
    // Copies the files of all capture handlers and notes in the object's files where to.
    void capture(const QlgObject& object, const std::string& reason);

    // Whether this process is the child of a fork of the one that opened the toolkit.
    bool inForkedChild() const { return forkedChild_.load(std::memory_order_relaxed); }

private:
    // What tells one state of the configuration file from another.
    struct FileStamp {
        bool operator==(const FileStamp&) const = default;
        std::time_t seconds = 0;
        long nanoseconds = 0;
        unsigned long inode = 0;
        long bytes = 0;
    };
    static FileStamp stampOf(const std::string& path);

    void configureLocked(const ObjectMap& configuration);
    // Brings level and file in line with the properties.
    static void configureObjectLocked(QlgObject& object, Notes& notes);
    void silenceLocked();
    [[nodiscard]] bool takeOverLevelsLocked(ObjectMap configuration);
    std::shared_ptr<const Route> routeOf(const QlgObject& object) const;
    std::vector<CaptureSettings> dueCaptures();
    void writeNotes(const Route& route);
    void levelsChanged() const;

    mutable std::shared_mutex lock_;
    std::map<std::string, std::unique_ptr<QlgObject>> objects_;
    std::string path_;  // of the configuration; empty while closed
    FileStamp stamp_;   // of the configuration as last read
    ObjectMap inFile_;  // the configuration as last read, without later changes of properties
    Notes notes_;       // settings that could not be used, not yet written
    bool handlesForks_ = false;

    std::atomic<bool> hasNotes_{false};
    std::atomic<bool> captures_{false};
    std::atomic<bool> forkedChild_{false};
    std::atomic<long> nextLook_{0};  // at the configuration file; seconds of the steady clock
    std::atomic<void (*)()> listener_{nullptr};
};

}  // namespace qlog
