// See PropertyMgr.h.
#include "foundation/PropertyMgr.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "foundation/Globals.h"
#include "foundation/Identity.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Utils.h"
#include "os/RegularFile.h"

std::atomic<PropertyMgr*> PropertyMgr::instance_{nullptr};

// Documents the settings; the table takes every other key, too.
const char* const PropertyMgr::prop_names[] = {"kernel.codebase",
                                               "kernel.rfs.address",
                                               "probe.library.name",
                                               "com.velora.jcaprops",
                                               "internal.probe.class.hashsize",
                                               "internal.probe.hashsize",
                                               "internal.probe.publishing.frequency",
                                               "internal.probe.event.queue.size.limit",
                                               "internal.probe.event.wakeup.queuelength",
                                               "internal.probe.event.packet.size",
                                               "internal.probe.javacoredir",
                                               "internal.probe.ps.retry.frequency",
                                               "internal.use.monitors",
                                               "internal.use.applist",
                                               "internal.use.method.monitors",
                                               "internal.tracing.mode",
                                               "internal.app.ext.dir",
                                               "internal.bootstrap.file",
                                               "internal.stacktrace.sleep",
                                               "internal.trace.list.size",
                                               "internal.user.traceclasses.only",
                                               "internal.url.limit",
                                               "internal.sql.limit",
                                               "internal.memory.limit",
                                               "internal.memory.accept.threshold",
                                               "internal.counter.resettime",
                                               nullptr};

namespace {

constexpr int kBuckets = 21;
constexpr int kLongestLine = 13000;

std::mutex instanceLock;  // guards the making and ending of the singleton

bool isEmpty(const char* text) {
    return text == nullptr || text[0] == '\0';
}

using os::File;

File openForReading(const std::string& path) {
    return File(os::fopenRegular(path.c_str(), "r"));
}

// The file of this node, server and profile; the default one when node or server are unknown.
std::string specificFile(const std::string& etc, const std::string& defaultFile) {
    const char* const node = Identity::nodeName();
    const char* const server = Identity::appServerName();
    const char* const profile = Identity::profileName();
    if (isEmpty(node) || isEmpty(server)) return defaultFile;
    std::string path = etc + node + "." + server;
    if (!isEmpty(profile)) path += "(" + std::string(profile) + ")";
    return path + ".datacollector.properties";
}

bool isDocumented(const char* key) {
    for (const char* const* name = PropertyMgr::prop_names; *name != nullptr; ++name)
        if (std::strcmp(*name, key) == 0) return true;
    return false;
}

}  // namespace

PropertyMgr* PropertyMgr::getInstance() {
    PropertyMgr* instance = instance_.load(std::memory_order_acquire);
    if (instance != nullptr) return instance;
    const std::lock_guard hold(instanceLock);
    instance = instance_.load(std::memory_order_relaxed);
    if (instance == nullptr) {
        std::unique_ptr<PropertyMgr> made(new PropertyMgr);
        made->initialize();
        instance = made.release();
        instance_.store(instance, std::memory_order_release);
        propMgr_.store(instance, std::memory_order_release);
    }
    return instance;
}

void PropertyMgr::destroy() {
    VEL_TRACE("destroy()");
    const std::lock_guard hold(instanceLock);
    propMgr_.store(nullptr, std::memory_order_release);
    delete instance_.exchange(nullptr, std::memory_order_acq_rel);
}

PropertyMgr::PropertyMgr()
    : VeloraBase("PropertyMgr"),
      list_(false),
      props_(kBuckets, false, true),
      lock_(new VelLock(false)) {
    VEL_TRACE("PropertyMgr()");
}

PropertyMgr::~PropertyMgr() {
    VEL_TRACE("~PropertyMgr()");
    const std::unique_ptr<char*[]> keys(props_.getKeys());
    const std::unique_ptr<char*[]> values(props_.getVals());
    props_.clear();
    for (char** key = keys.get(); *key != nullptr; ++key) delete[] * key;
    for (char** value = values.get(); *value != nullptr; ++value) delete[] * value;
    delete lock_;
    delete[] fileName_;
}

void PropertyMgr::initialize() {
    VEL_TRACE("initialize()");
    loadProperties();
}

// The VM interface is there now: make the monitor before threads meet at it.
void PropertyMgr::initializeAfterJVMPI() {
    VEL_TRACE("initializeAfterJVMPI()");
    const VelLockGuard hold(*lock_);
}

void PropertyMgr::start() {
    VEL_TRACE("start()");
    initializeAfterJVMPI();
    logMessage(msg::kPropertyMgrStarted);
}

void PropertyMgr::stop() {
    VEL_TRACE("stop()");
}

void PropertyMgr::loadProperties() {
    VEL_TRACE("loadProperties()");
    const char* const home = Identity::home();
    if (isEmpty(home)) {
        logMessage(msg::kHomeNotFound);
        return;
    }
    const std::string etc = std::string(home) + "/etc/";
    const std::string defaultFile = etc + "datacollector.properties";
    std::string path = specificFile(etc, defaultFile);
    File file = openForReading(path);
    if (file != nullptr) {
        logMessage(msg::kUsingPropertyFile, path.c_str());
    } else {
        VEL_DEBUG_MIN("loadProperties()", "Property file %s not found", path.c_str());
        path = defaultFile;
        file = openForReading(path);
        if (file == nullptr) {
            logMessage(msg::kDefaultPropertiesNotFound, path.c_str());
            return;
        }
        VEL_DEBUG_MIN("loadProperties()", "Using default property file %s", path.c_str());
    }
    fileName_ = Utils::cstrdup(path.c_str());
    std::vector<char> line(kLongestLine + 1);
    while (std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr)
        parseProperty(strtrim(line.data()));
}

// Cuts blanks and control characters off both ends, in place; bytes of other scripts stay.
char* PropertyMgr::strtrim(char* text) {
    if (text == nullptr) return nullptr;
    const auto isBlank = [](char c) { return static_cast<unsigned char>(c) < 33; };
    char* end = text + std::strlen(text);
    while (end > text && isBlank(end[-1])) --end;
    *end = '\0';
    while (*text != '\0' && isBlank(*text)) ++text;
    return text;
}

// Intended: the value ends at a second "=", and leading ones are skipped, as the tokenizer does it.
void PropertyMgr::parseProperty(char* line) {
    VEL_TRACE("parseProperty(char*)");
    if (line == nullptr || line[0] == '#') return;
    char* rest = nullptr;
    const char* const key = strtrim(strtok_r(line, "=", &rest));
    if (isEmpty(key)) return;
    if (!isDocumented(key)) VEL_DEBUG_MAX("parseProperty(char*)", "Setting %s is of no list", key);
    const char* const value = strtrim(strtok_r(nullptr, "=", &rest));
    if (value != nullptr) putInternalProp(key, value);
}

void PropertyMgr::putInternalProp(const char* key, const char* value) {
    VEL_TRACE("putInternalProp(const char*, const char*)");
    std::unique_ptr<char[]> newValue(Utils::cstrdup(value));
    const VelLockGuard hold(*lock_);
    auto* const given = const_cast<char*>(key);  // the table only compares it
    if (char* const old = props_.get(given); old != nullptr) {
        retired_.emplace_back();  // room first, so that nothing fails once the old value is out
        props_.put(given, newValue.release());
        retired_.back().reset(old);
        return;
    }
    std::unique_ptr<char[]> newKey(Utils::cstrdup(key));
    props_.put(newKey.get(), newValue.get());
    newKey.release();
    newValue.release();
}

const char* PropertyMgr::getInternalProp(const char* key) const {
    return props_.get(const_cast<char*>(key));
}

const char* PropertyMgr::getProperty(const char* key) const {
    return key == nullptr ? nullptr : getInternalProp(key);
}

const char* PropertyMgr::getStringProperty(const char* key, const char* def) const {
    const char* const value = getProperty(key);
    return value == nullptr ? def : value;
}

int PropertyMgr::getIntProperty(const char* key, int def) const {
    const char* const value = getProperty(key);
    return value == nullptr ? def : std::atoi(value);
}

long PropertyMgr::getLongProperty(const char* key, long def) const {
    const char* const value = getProperty(key);
    return value == nullptr ? def : std::atol(value);
}

double PropertyMgr::getFloatProperty(const char* key, double def) const {
    const char* const value = getProperty(key);
    return value == nullptr ? def : std::atof(value);
}

long PropertyMgr::getBoundedProperty(const char* key, long def, long lowest, long highest) const {
    VEL_TRACE("getBoundedProperty(const char*, long, long, long)");
    const char* const value = getProperty(key);
    if (value == nullptr) return def;
    char* end = nullptr;
    const long number = std::strtol(value, &end, 10);  // the limits of long when it does not fit
    const long used = end == value ? def : std::clamp(number, lowest, highest);
    if (end == value || used != number) warnOnce(key, value, used);
    return used;
}

void PropertyMgr::warnOnce(const char* key, const char* value, long used) const {
    {
        const std::lock_guard hold(warnedLock_);
        if (!warned_.insert(key).second) return;
    }
    logMessage(msg::kBadSetting, key, value, std::to_string(used).c_str());
}

void PropertyMgr::putProperty(const char* key, const char* value) {
    VEL_TRACE("putProperty(const char*, const char*)");
    if (key != nullptr && value != nullptr) putInternalProp(key, value);
}

void PropertyMgr::putIntProperty(const char* key, int value) {
    putProperty(key, std::to_string(value).c_str());
}

void PropertyMgr::putLongProperty(const char* key, long value) {
    putIntProperty(key, static_cast<int>(value));  // intended: see the header
}

void PropertyMgr::putFloatProperty(const char* key, double value) {
    putProperty(key, std::to_string(value).c_str());
}

void PropertyMgr::updateProperty(const char* key, const char* value) {
    VEL_TRACE("updateProperty(const char*, const char*)");
    if (key == nullptr || value == nullptr) return;
    const VelLockGuard hold(*lock_);
    const bool existed = getInternalProp(key) != nullptr;
    putInternalProp(key, value);
    if (!existed) return;
    // A listener may add and remove listeners: walk over a copy and skip who has gone.
    std::vector<PropertyListener*> listeners;
    const std::unique_ptr<VelListIter<PropertyListener*>> all(list_.iterator());
    while (all->hasNext()) listeners.push_back(all->next());
    for (PropertyListener* listener : listeners)
        if (isRegistered(listener)) listener->propertyChanged(key, value);
}

bool PropertyMgr::isRegistered(PropertyListener* listener) {
    const std::unique_ptr<VelListIter<PropertyListener*>> all(list_.iterator());
    while (all->hasNext())
        if (all->next() == listener) return true;
    return false;
}

bool PropertyMgr::addPropertyListener(PropertyListener* listener) {
    VEL_TRACE("addPropertyListener(PropertyListener*)");
    const VelLockGuard hold(*lock_);
    return list_.append(listener);
}

bool PropertyMgr::removePropertyListener(PropertyListener* listener) {
    VEL_TRACE("removePropertyListener(PropertyListener*)");
    const VelLockGuard hold(*lock_);
    return list_.remove(listener);
}
