#include "diagnostics/javacore.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/PropertyMgr.h"
#include "foundation/Utils.h"
#include "os/RegularFile.h"

char* probe_stdout = nullptr;
char* java_version = nullptr;
char javacore_loc[256] = {};
int flag_core_loc = 0;

namespace {

constexpr int kLineSize = 2048;
constexpr long kTailSize = 511;
constexpr std::string_view kSeparator = " : ";
constexpr std::string_view kDumpPrefix = "javacore";
constexpr char kOldLocationFile[] = "/tmp/javacore_locations";
constexpr char kNewLocationFile[] = "/tmp/dump_locations";

using os::File;

File openFile(const char* path, const char* mode) {
    return File(os::fopenRegular(path, mode));
}

void copyName(char* filename, std::string_view name) {
    std::snprintf(filename, kJavacoreNameSize, "%.*s", static_cast<int>(name.size()), name.data());
}

// The text behind the first separator; all of it when there is none.
std::string_view afterSeparator(std::string_view line) {
    const std::size_t at = line.find(kSeparator);
    return at == std::string_view::npos ? line : line.substr(at + kSeparator.size());
}

// The last line of the file, looked for in its last 511 bytes, without its line end; empty when
// there is nothing to read.
std::string lastLine(std::FILE* file) {
    const long size = seekToEOF(file);
    if (size <= 0) return {};
    const long from = size > kTailSize ? size - kTailSize : 0;
    char tail[kTailSize];
    if (std::fseek(file, from, SEEK_SET) != 0) return {};
    std::string_view text(tail, std::fread(tail, 1, sizeof tail, file));
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    const std::size_t lineEnd = text.rfind('\n');
    return std::string(lineEnd == std::string_view::npos ? text : text.substr(lineEnd + 1));
}

void chooseLocationFile() {
    if (flag_core_loc != 0) return;
    const bool old = java_version != nullptr && std::strcmp(java_version, "1.4.1") < 0;
    std::snprintf(javacore_loc, sizeof javacore_loc, "%s",
                  old ? kOldLocationFile : kNewLocationFile);
    flag_core_loc = 1;
    VEL_DEBUG_MIN("getJavacoreName_unix", "java version is %s", java_version);
    VEL_DEBUG_MIN("getJavacoreName_unix", "javacore location file is %s", javacore_loc);
}

const char* dumpDirectory() {
    const PropertyMgr* const properties = propMgr_.load(std::memory_order_acquire);
    const char* const set =
        properties == nullptr ? nullptr : properties->getProperty("internal.probe.javacoredir");
    return set != nullptr ? set : std::getenv("KOR_JAVACOREDIR");
}

bool isDumpNotOlderThan(const char* path, std::time_t filetime) {
    struct stat status {};
    return stat(path, &status) == 0 && S_ISREG(status.st_mode) && status.st_mtime >= filetime;
}

// True for the header line of thread tid.
bool isHeaderOf(std::string_view line, unsigned long tid) {
    constexpr std::string_view kNativeId = "sys_thread_t:";
    const std::size_t at = line.find(kNativeId);
    if (at == std::string_view::npos || line.find("TID:") == std::string_view::npos) return false;
    std::string_view number = line.substr(at + kNativeId.size());
    number = number.substr(0, number.find(','));
    const std::string text(number);
    char* end = nullptr;
    errno = 0;
    const unsigned long id = std::strtoul(text.c_str(), &end, 16);
    return end != text.c_str() && errno == 0 && id == tid;
}

// Stores text in the array; false when Java has no room for it.
bool storeText(JNIEnv* env, jobjectArray array, jsize slot, const std::string& text) {
    const jstring element = env->NewStringUTF(text.c_str());
    if (element != nullptr) {
        env->SetObjectArrayElement(array, slot, element);
        env->DeleteLocalRef(element);
    }
    return !handleJavaException(env) && element != nullptr;
}

// Splits "   at pkg.Class.method(File.java:1)" at the last '.' before the '('.
bool storeFrame(JNIEnv* env, jobjectArray array, jsize frame, std::string_view text) {
    text = text.substr(0, text.find('('));
    const std::size_t dot = text.rfind('.');
    const bool split = dot != std::string_view::npos;
    const std::string className(split ? text.substr(0, dot) : std::string_view());
    const std::string methodName(split ? text.substr(dot + 1) : text);
    return storeText(env, array, 3 * frame, className) &&
           storeText(env, array, 3 * frame + 1, methodName) &&
           storeText(env, array, 3 * frame + 2, "");
}

std::string_view withoutLineEnd(std::string_view line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    return line;
}

}  // namespace

long seekToEOF(std::FILE* file) {
    VEL_TRACE("seekToEOF(FILE*)");
    if (file == nullptr || std::fseek(file, 0, SEEK_END) != 0) return -1;
    const long position = std::ftell(file);
    return position < 0 ? -1 : position;
}

std::FILE* getProbeStdout() {
    VEL_TRACE("getProbeStdout()");
    return probe_stdout == nullptr ? nullptr : os::fopenRegular(probe_stdout, "r");
}

int getProbeStdoutOffset(char* filename, long* offset) {
    VEL_TRACE("getProbeStdoutOffset(char*, long*)");
    if (probe_stdout == nullptr || *probe_stdout == '\0') {
        logMessage(msg::kProbeStdoutUndefined);
        return -2;
    }
    VEL_DEBUG_MIN("getProbeStdoutOffset", "probe stdout is %s", probe_stdout);
    copyName(filename, probe_stdout);
    const File file = openFile(probe_stdout, "r");
    if (file == nullptr) {
        logMessage(msg::kProbeStdoutUnopenable, probe_stdout);
        return -3;
    }
    if (std::fseek(file.get(), 0, SEEK_END) != 0) {
        VEL_DEBUG_MIN("getProbeStdoutOffset", "fseek failed");
        return -1;
    }
    *offset = std::ftell(file.get());
    if (*offset < 0) {
        VEL_DEBUG_MIN("getProbeStdoutOffset", "ftell failed");
        return -1;
    }
    return 0;
}

char* getJavaCorePath() {
    VEL_TRACE("getJavaCorePath()");
    const File file = openFile(kOldLocationFile, "r");
    if (file == nullptr) return nullptr;
    std::string path;
    bool found = false;
    char line[kLineSize];
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        // The last character, line end or not; a line may begin with a NUL.
        if (const std::size_t length = std::strlen(line); length > 0) line[length - 1] = '\0';
        const char* const separator = std::strstr(line, kSeparator.data());
        if (separator == nullptr) continue;
        path = separator + kSeparator.size();
        found = true;
    }
    return found ? Utils::cstrdup(path.c_str()) : nullptr;
}

int getJavacoreName_unix(char* filename, std::time_t filetime) {
    VEL_TRACE("getJavacoreName_unix(char*, time_t)");
    chooseLocationFile();
    const char* const directory = dumpDirectory();
    File file = openFile(javacore_loc, "r");
    if (file == nullptr) {
        VEL_DEBUG_MIN("getJavacoreName_unix", "Can not open location of Java core");
        return getJavacoreName_unix_dir(filename, filetime, directory);
    }
    const std::string line = lastLine(file.get());
    if (line.empty()) {
        VEL_DEBUG_MIN("getJavacoreName_unix", "javacore_location is empty");
        file.reset();
        return getJavacoreName_unix_dir(filename, filetime, directory);
    }
    copyName(filename, afterSeparator(line));
    VEL_DEBUG_MIN("getJavacoreName_unix", "javacore file name is %s", filename);
    return 0;
}

int getJavacoreName_unix_dir(char* filename, std::time_t filetime, const char* javacoredir) {
    VEL_TRACE("getJavacoreName_unix_dir(char*, time_t, const char*)");
    if (javacoredir == nullptr) {
        VEL_DEBUG_MIN("getJavacoreName_unix_dir",
                      "javacoredir is NULL, continue search current directory");
        javacoredir = ".";
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(javacoredir), closedir);
    if (directory == nullptr) {
        VEL_DEBUG_MIN("getJavacoreName_unix_dir", "javacoredir %s not found", javacoredir);
        return -1;
    }
    while (const dirent* const entry = readdir(directory.get())) {
        if (!std::string_view(entry->d_name).starts_with(kDumpPrefix)) continue;
        const std::string path = std::string(javacoredir) + '/' + entry->d_name;
        if (!isDumpNotOlderThan(path.c_str(), filetime)) continue;
        copyName(filename, path);
        return 0;
    }
    return -1;
}

int processFile(JNIEnv* env, char* filename, unsigned long pid, std::time_t current_time,
                unsigned long tid, jobjectArray& arry) {
    VEL_TRACE("processFile(JNIEnv*, char*, unsigned long, time_t, unsigned long, jobjectArray&)");
    File file;
    if (filename == nullptr) {
        file.reset(getProbeStdout());  // a VM that dumps to its standard output
    } else {
        const char* const slash = std::strrchr(filename, '/');
        const std::string_view name = slash == nullptr ? filename : slash + 1;
        if (!name.starts_with(std::string(kDumpPrefix) + std::to_string(pid))) return 0;
        const std::size_t dot = name.find('.');
        const long fileTime =
            dot == std::string_view::npos ? 0 : std::strtol(name.data() + dot + 1, nullptr, 10);
        VEL_DEBUG_MIN("processFile", "File time is %ld", fileTime);
        if (fileTime < static_cast<long>(current_time)) {
            VEL_DEBUG_MIN("processFile", "Not processing %s", filename);
            return 0;
        }
        file = openFile(filename, "rt");
    }
    if (file == nullptr) return 0;
    const int frames = processJavaCore(env, file.get(), tid, arry);
    file.reset();
    if (filename != nullptr) unlink(filename);
    VEL_DEBUG_MIN("processFile", "Searched thread dump in %s for thread id %lu",
                  filename == nullptr ? "stdout" : filename, tid);
    if (frames == 0)
        VEL_DEBUG_MIN("processFile", "Stack trace for thread id %lu was not found", tid);
    return frames;
}

int processJavaCore(JNIEnv* env, std::FILE* javacore, unsigned long tid, jobjectArray& arry) {
    VEL_TRACE("processJavaCore(JNIEnv*, FILE*, unsigned long, jobjectArray&)");
    char line[kLineSize];
    bool found = false;
    while (!found && std::fgets(line, sizeof line, javacore) != nullptr)
        found = isHeaderOf(line, tid);
    if (!found || arry == nullptr) return 0;

    const jsize room = env->GetArrayLength(arry) / 3;
    jsize frames = 0;
    while (frames < room && std::fgets(line, sizeof line, javacore) != nullptr) {
        const std::string_view text = withoutLineEnd(line);
        if (const std::size_t at = text.find("at "); at != std::string_view::npos) {
            if (!storeFrame(env, arry, frames, text.substr(at + 3))) break;
            ++frames;
        } else if (text.find("- locked ") == std::string_view::npos) {
            break;
        }
    }
    return frames;
}
