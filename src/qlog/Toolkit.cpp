#include "qlog/Toolkit.h"

#include <pthread.h>
#include <sys/stat.h>

#include <mutex>

#include "qlog/qffdc.h"
#include "qlog/qlog.h"
#include "qlog/qmsg.h"

namespace qlog {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long kLookEvery = 5;  // seconds between two looks at the configuration file

long secondsNow() {
    return std::chrono::duration_cast<std::chrono::seconds>(Clock::now().time_since_epoch())
        .count();
}

std::vector<std::string> splitList(const std::string& list) {
    constexpr char kSeparators[] = ", \t";
    std::vector<std::string> items;
    for (std::size_t at = list.find_first_not_of(kSeparators); at != std::string::npos;) {
        const std::size_t end = list.find_first_of(kSeparators, at);
        items.push_back(list.substr(at, end - at));
        at = list.find_first_not_of(kSeparators, end);
    }
    return items;
}

int normalLevel(const QlgObject& object) {
    return object.properties.count("handlers") != 0 ? QLG_LEVEL_INFO : QLG_LEVEL_ALL;
}

}  // namespace

Toolkit& Toolkit::instance() {
    static Toolkit* const toolkit = new Toolkit;
    return *toolkit;
}

bool Toolkit::open(const std::string& path) {
    const FileStamp stamp = stampOf(path);  // before reading: a later change is then seen as one
    auto configuration = readConfiguration(path);
    if (!configuration) return false;
    {
        const std::unique_lock<std::shared_mutex> locked(lock_);
        if (!handlesForks_) {
            ::pthread_atfork(nullptr, nullptr, [] {
                instance().forkedChild_.store(true, std::memory_order_relaxed);
            });
            handlesForks_ = true;
        }
        silenceLocked();
        FileHandler::allowComplaint();
        configureLocked(*configuration);
        path_ = path;
        stamp_ = stamp;
        inFile_ = std::move(*configuration);
        nextLook_.store(0, std::memory_order_relaxed);
    }
    ::qmsgi_forget();
    levelsChanged();
    return true;
}

void Toolkit::close() {
    {
        const std::unique_lock<std::shared_mutex> locked(lock_);
        silenceLocked();
        path_.clear();
        captures_.store(false, std::memory_order_relaxed);
    }
    levelsChanged();
}

void Toolkit::silenceLocked() {
    for (const auto& [name, object] : objects_) {
        object->level.store(QlgObject::kSilent, std::memory_order_relaxed);
        object->configured = false;
        object->properties.clear();
        if (object->file) object->file->close();  // a writer may hold it still
        object->file.reset();
        object->route.reset();
        object->quietUntil = {};
    }
    notes_.clear();
}

void Toolkit::configureLocked(const ObjectMap& configuration) {
    for (const auto& [name, properties] : configuration) {
        auto& object = objects_[name];
        if (!object) object = std::make_unique<QlgObject>(name);
        object->configured = true;
        object->properties = properties;
        configureObjectLocked(*object, notes_);
    }
    for (const auto& [name, object] : objects_) {
        auto route = std::make_shared<Route>();
        for (const auto& item : splitList(textOf(object->properties, "handlers"))) {
            const auto handler = objects_.find(item);
            if (handler != objects_.end() && handler->second->file) {
                route->push_back(handler->second->file);
            }
        }
        object->route = std::move(route);
    }
    hasNotes_.store(!notes_.empty(), std::memory_order_relaxed);
}

void Toolkit::configureObjectLocked(QlgObject& object, Notes& notes) {
    const int level = levelOf(object.name, object.properties, normalLevel(object), notes);
    const std::string type = textOf(object.properties, "type");
    if (type == kFileHandlerType) {
        FileSettings settings = fileSettings(object.name, object.properties, notes);
        settings.level = level;
        if (object.file) {
            object.file->configure(std::move(settings));
        } else {
            object.file = std::make_shared<FileHandler>(std::move(settings));
        }
    } else if (type == kCaptureHandlerType) {
        (void)captureSettings(object.name, object.properties, notes);  // read again when needed
    }
    object.level.store(level, std::memory_order_relaxed);
}

QlgObject* Toolkit::find(const std::string& name, const char* type) const {
    const std::shared_lock<std::shared_mutex> locked(lock_);
    const auto found = objects_.find(name);
    if (found == objects_.end() || !found->second->configured) return nullptr;
    if (type != nullptr && textOf(found->second->properties, "type") != type) return nullptr;
    return found->second.get();
}

std::optional<std::string> Toolkit::property(const QlgObject& object,
                                             const std::string& name) const {
    const std::shared_lock<std::shared_mutex> locked(lock_);
    const auto found = object.properties.find(name);
    if (found != object.properties.end()) return found->second;
    if (name == "level" && object.configured) {
        return std::to_string(object.level.load(std::memory_order_relaxed));
    }
    return std::nullopt;
}

void Toolkit::setProperty(QlgObject& object, const std::string& name, const std::string& value) {
    {
        const std::unique_lock<std::shared_mutex> locked(lock_);
        if (!object.configured) return;
        if (name == "level" && !parseLevel(value)) return;  // the old one stays in force
        object.properties[name] = value;
        Notes found;
        configureObjectLocked(object, found);
        const std::string about = "Setting " + object.name + "." + name + " ";
        for (const auto& note : found) {  // those about other properties are known already
            if (note.compare(0, about.size(), about) == 0) notes_.push_back(note);
        }
        hasNotes_.store(!notes_.empty(), std::memory_order_relaxed);
    }
    if (name == "level") levelsChanged();
}

std::shared_ptr<const Route> Toolkit::routeOf(const QlgObject& object) const {
    const std::shared_lock<std::shared_mutex> locked(lock_);
    return object.route;
}

void Toolkit::write(const QlgObject& object, const Record& record) {
    const auto route = routeOf(object);
    if (!route) return;
    if (hasNotes_.load(std::memory_order_relaxed)) writeNotes(*route);
    for (const auto& file : *route) file->write(record);
}

void Toolkit::writeNotes(const Route& route) {
    Notes notes;
    {
        const std::unique_lock<std::shared_mutex> locked(lock_);
        notes.swap(notes_);
        hasNotes_.store(false, std::memory_order_relaxed);
    }
    for (const auto& note : notes) {
        for (const auto& file : route) file->write({QLG_LEVEL_WARN, false, "WARN  " + note});
    }
}

void Toolkit::setListener(void (*changed)()) {
    listener_.store(changed, std::memory_order_release);
    if (changed != nullptr) changed();
}

// Without a lock held: the listener asks for levels.
void Toolkit::levelsChanged() const {
    if (auto* const changed = listener_.load(std::memory_order_acquire)) changed();
}

Toolkit::FileStamp Toolkit::stampOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return {};
    return {status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_ino, status.st_size};
}

void Toolkit::reread() {
    const long now = secondsNow();
    long due = nextLook_.load(std::memory_order_relaxed);
    if (now < due || !nextLook_.compare_exchange_strong(due, now + kLookEvery)) return;
    std::string path;
    FileStamp old;
    {
        const std::shared_lock<std::shared_mutex> locked(lock_);
        path = path_;
        old = stamp_;
    }
    if (path.empty()) return;
    const FileStamp stamp = stampOf(path);
    if (stamp == old) return;
    auto configuration = readConfiguration(path);
    if (!configuration) return;
    bool changed = false;
    {
        const std::unique_lock<std::shared_mutex> locked(lock_);
        if (path_ != path) return;  // closed or opened anew meanwhile
        stamp_ = stamp;
        changed = takeOverLevelsLocked(std::move(*configuration));
    }
    if (changed) levelsChanged();
}

// Only levels, and only those whose text in the file changed: a level set by call stays in force
// when somebody edits another line.
bool Toolkit::takeOverLevelsLocked(ObjectMap configuration) {
    bool changed = false;
    for (const auto& [name, object] : objects_) {
        const std::string level = textOf(configuration[name], "level");
        if (!object->configured || !parseLevel(level) || level == textOf(inFile_[name], "level")) {
            continue;
        }
        object->properties["level"] = level;
        Notes known;
        configureObjectLocked(*object, known);
        changed = true;
    }
    inFile_ = std::move(configuration);
    return changed;
}

std::vector<CaptureSettings> Toolkit::dueCaptures() {
    std::vector<CaptureSettings> due;
    const auto now = Clock::now();
    const std::unique_lock<std::shared_mutex> locked(lock_);
    for (const auto& [name, object] : objects_) {
        if (textOf(object->properties, "type") != kCaptureHandlerType) continue;
        if (now < object->quietUntil) continue;
        Notes written;
        auto settings = captureSettings(name, object->properties, written);
        object->quietUntil = now + std::chrono::seconds(settings.minSeconds);
        due.push_back(std::move(settings));
    }
    return due;
}

void Toolkit::capture(const QlgObject& object, const std::string& reason) {
    if (!captures_.load(std::memory_order_relaxed)) return;
    const auto route = routeOf(object);
    for (const auto& settings : dueCaptures()) {
        if (route) {
            for (const auto& file : *route) file->flush();
        }
        const qffdci_request request{settings.baseDirectory.c_str(), settings.files.c_str(),
                                     reason.c_str(), settings.maxIncidents, settings.maxFileBytes};
        char folder[4096] = "";
        const int copied = ::qffdci_capture(&request, folder, sizeof folder);
        if (copied < 0 || !route) continue;
        const std::string note = "INFO  " + std::to_string(copied) + " files copied to " + folder;
        for (const auto& file : *route) file->write({QLG_LEVEL_INFO, false, note});
    }
}

}  // namespace qlog
