// See ProbeQLog.h.
#include "foundation/ProbeQLog.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "foundation/Console.h"
#include "foundation/Identity.h"
#include "foundation/Log.h"

std::atomic<QlgHandle> qLogger{nullptr};
std::atomic<QlgHandle> qTracer{nullptr};

bool ProbeQLog::_initialized = false;
int ProbeQLog::_set = 0;
char ProbeQLog::_catalogName[256] = "";
char ProbeQLog::_logFileName[256] = "";
const char* ProbeQLog::_qualDir = nullptr;

namespace {

constexpr char kComponent[] = "VEL";
constexpr char kConfigFile[] = "vel-qlog.properties";
constexpr char kDefaultRoot[] = "/var/kor/tessar/common";
constexpr int kTracerLevels = 20000;  // added to a level that is meant for the tracer
constexpr int kMostFiles = 1000;      // that are copied at a first failure

// A string that the toolkit allocated.
struct FreeToolkitString {
    void operator()(char* text) const { ZosMemoryFree(text); }
};
using ToolkitString = std::unique_ptr<char, FreeToolkitString>;

// A configured object for a scope; null when there is none of that name and type.
class ScopedObject {
public:
    ScopedObject(const char* name, const char* type) : object_(QlgGetObject(name, type)) {}
    ~ScopedObject() {
        if (object_ != nullptr) QlgReleaseObject(object_);
    }
    ScopedObject(const ScopedObject&) = delete;
    ScopedObject& operator=(const ScopedObject&) = delete;
    [[nodiscard]] QlgHandle get() const { return object_; }

private:
    QlgHandle object_;
};

// The toolkit calls this after any change of a level: the copy that every disabled trace tests.
void refreshTraceThreshold() {
    QlgHandle const tracer = qTracer.load(std::memory_order_relaxed);
    int threshold = INT_MAX;
    for (const int level : {kDebugMin, kDebugMid, kDebugMax})
        if (QlgIsLoggable(tracer, level) != 0) threshold = level;
    traceThreshold.store(threshold, std::memory_order_relaxed);
}

std::string homePath(const char* below) {
    return std::string(Identity::home()) + below;
}

bool isEmpty(const char* text) {
    return text == nullptr || text[0] == '\0';
}

}  // namespace

void ProbeQLog::initialize() {
    VEL_TRACE("initialize()");
    if (_initialized) return;
    setEnv("NLSPATH", (homePath("/msg/") + "%L/%N.cat").c_str(), true);
    _qualDir = std::getenv("QUALDIR");
    _set = 1;
    QlgInitFFDCExtensions();
    zis_set_dir(homePath("/codeset").c_str());

    const std::string config = homePath("/etc/") + kConfigFile;
    if (QlgOpenToolkit(config.c_str()) != 1) {
        std::fprintf(
            stderr,
            "ERROR: Could not open Toolkit. please check if qlog property file %s exists.\n",
            config.c_str());
        return;
    }
    qLogger.store(QlgGetObject("logger.dc.msg", nullptr), std::memory_order_release);
    if (qLogger.load() == nullptr) {
        std::fputs("ERROR: Could not initialize logger 'DC_LOGGER'\n", stderr);
        return;
    }
    qTracer.store(QlgGetObject("logger.dc.trace", nullptr), std::memory_order_release);
    if (qTracer.load() == nullptr) {
        std::fputs("ERROR: Could not initialize tracer 'DC_TRACER'\n", stderr);
        return;
    }
    QlgSetLevelListener(refreshTraceThreshold);
    setCatalog();
    std::fprintf(console::out(), "INFO: Catalog file is %s\n", _catalogName);
    for (const char* name : {"handler.file.dc.msg", "handler.file.dc.trace"})
        if (const ScopedObject handler(name, "qlg_filehandler"); handler.get() != nullptr)
            setLogFile(handler.get());
    if (const ScopedObject handler("handler.ffdc.dc", nullptr); handler.get() != nullptr) {
        setFFDCBaseDir(handler.get());
        setFFDCFilesToCopy(handler.get());
    }
    std::fflush(console::out());  // the VM's own output does not pass through this buffer
    _initialized = true;
}

void ProbeQLog::destroy() {
    VEL_TRACE("destroy()");
    QlgSetLevelListener(nullptr);
    traceThreshold.store(INT_MAX, std::memory_order_relaxed);
    for (auto* const object : {&qLogger, &qTracer})
        if (QlgHandle const handle = object->exchange(nullptr); handle != nullptr)
            QlgReleaseObject(handle);
    QlgCloseToolkit();
    _initialized = false;
}

void ProbeQLog::logMsg(const char* text) {
    VEL_TRACE("logMsg(const char*)");
    if (text != nullptr) QlgLogText(qLogger.load(std::memory_order_relaxed), text, 0);
}

void ProbeQLog::setLogLevel(int level) {
    VEL_TRACE("setLogLevel(int)");
    if (level < kTracerLevels)
        QlgSetObjPropInt(qLogger.load(std::memory_order_relaxed), "level", level);
    else
        QlgSetObjPropInt(qTracer.load(std::memory_order_relaxed), "level", level - kTracerLevels);
}

const char* ProbeQLog::getLogRootDir() {
    VEL_TRACE("getLogRootDir()");
    const char* const root = std::getenv("QLOG_COMMON_DIR");
    // An empty one would be the root folder of the host.
    return root == nullptr || *root == '\0' ? kDefaultRoot : root;
}

// <root>/VEL/logs[/<qualifier>]/<the handler's file name, else dc-native.log>
void ProbeQLog::setLogFile(QlgHandle handler) {
    VEL_TRACE("setLogFile(QlgHandle)");
    int exists = 0;
    const ToolkitString configured(QlgGetObjProp(handler, "fileName", &exists));
    if (exists == 0) return;
    std::string path = std::string(getLogRootDir()) + "/" + kComponent + "/logs/";
    if (_qualDir != nullptr) path.append(_qualDir).append("/");
    path += isEmpty(configured.get()) ? "dc-native.log" : configured.get();
    std::snprintf(_logFileName, sizeof _logFileName, "%s", path.c_str());
    std::fprintf(console::out(), "set log file to %s\n", path.c_str());
    QlgSetObjProp(handler, "fileName", path.c_str());
}

// <root>/VEL/<the environment's, else the handler's, else FFDC>[/<qualifier>]
void ProbeQLog::setFFDCBaseDir(QlgHandle handler) {
    VEL_TRACE("setFFDCBaseDir(QlgHandle)");
    std::string base = std::string(getLogRootDir()) + "/" + kComponent + "/";
    const char* const given = std::getenv("QLOG_FFDC_BASEDIR");
    const ToolkitString configured(given == nullptr ? QlgFFDCTriggerHandlerGetBaseDir(handler)
                                                    : nullptr);
    if (given != nullptr)
        base += given;
    else
        base += isEmpty(configured.get()) ? "FFDC" : configured.get();
    if (_qualDir != nullptr) base.append("/").append(_qualDir);
    std::fprintf(console::out(), "ffdc base dir is %s\n", base.c_str());
    QlgFFDCTriggerHandlerSetBaseDir(handler, base.c_str());
}

void ProbeQLog::setCatalog() {
    VEL_TRACE("setCatalog()");
    const char* const name = std::getenv("PROBE_CATALOG_NAME");
    std::snprintf(_catalogName, sizeof _catalogName, "%s",
                  name == nullptr ? "velprobeMessages" : name);
}

void ProbeQLog::setEnv(const char* name, const char* value, bool append) {
    VEL_TRACE("setEnv(const char*, const char*, bool)");
    if (name == nullptr || value == nullptr) return;
    try {
        const char* const old = append ? std::getenv(name) : nullptr;
        const std::string text = old == nullptr ? value : std::string(old) + ":" + value;
        std::fprintf(console::out(), "%s=%s\n", name, text.c_str());
        if (const int result = setenv(name, text.c_str(), 1); result != 0)
            std::fprintf(stderr, "Failed to set %s. Error code is %d\n", name, result);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "Failed to allocate memory at %s (%d).\n", __FILE_NAME__, __LINE__);
    }
}

void ProbeQLog::setFFDCFilesToCopy(QlgHandle handler) {
    VEL_TRACE("setFFDCFilesToCopy(QlgHandle)");
    if (_qualDir == nullptr) return;
    const ToolkitString list(QlgFileCopyHandlerGetFiles(handler));
    if (list == nullptr) return;
    std::fprintf(console::out(), "Files to copy defined in %s are %s\n", kConfigFile, list.get());
    // Each file grows by the qualifier, a slash and a blank at most, and loses its comma.
    const std::size_t size =
        std::strlen(list.get()) + std::strlen(_qualDir) * kMostFiles + 2UL * kMostFiles + 1;
    const std::unique_ptr<char[]> result(new (std::nothrow) char[size]());
    if (result == nullptr) {
        std::fprintf(stderr, "Failed to allocate memory at %s (%d)\n", __FILE_NAME__, __LINE__);
        return;
    }
    setQualifierForFiles(list.get(), result.get());
    QlgFileCopyHandlerSetFiles(handler, result.get());
    std::fprintf(console::out(), "Files to be copied are %s\n", result.get());
}

// list: separated by commas. result: separated by blanks, with the qualifier's folder inserted
// behind the logs folder, and room for kMostFiles files.
void ProbeQLog::setQualifierForFiles(const char* list, char* result) {
    VEL_TRACE("setQualifierForFiles(const char*, char*)");
    const std::string prefix = std::string(getLogRootDir()) + "/" + kComponent + "/logs/";
    const std::string qualifier = _qualDir == nullptr ? "" : std::string(_qualDir) + "/";
    std::string files;
    int count = 0;
    for (const char* at = list; *at != '\0';) {
        const std::size_t length = std::strcspn(at, ",");
        std::string file(at, length);
        at += length + (at[length] == ',' ? 1 : 0);
        if (file.empty()) continue;
        if (const std::size_t found = file.find(prefix); found != std::string::npos)
            file.insert(found + prefix.size(), qualifier);
        files += file + " ";
        if (++count == kMostFiles) {  // intended: also told when no file is left over
            std::fprintf(stderr, "Number of files sepcified exceeds the maximum limit %d\n",
                         kMostFiles);
            break;
        }
    }
    std::memcpy(result, files.c_str(), files.size() + 1);
}
