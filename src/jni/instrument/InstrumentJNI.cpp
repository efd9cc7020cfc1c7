#include "instrument/InstrumentJNI.h"

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/Identity.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Platform.h"
#include "foundation/ProbeState.h"
#include "instrument/InstrumentConfig.h"
#include "instrument/dumpclass.h"

std::atomic<bool> instrumentationActive{false};
std::atomic<bool> instrumentedClassLoader{false};
std::atomic<bool> instrumentedProxy{false};
std::atomic<std::int64_t> classCount{0};
std::atomic<std::int64_t> totalTime{0};

namespace {

constexpr char kSignature[] = "notifyClassLoadHookEvent(JVMPI_Event*)";
constexpr ULONG kMagic = 0xCAFEBABE;
constexpr int kMagicBytes = 4;
constexpr int kHeaderBytes = 8;  // magic, minor and major version

using PoolPtr = std::unique_ptr<ConstantPool, decltype(&freeConstantPool)>;

std::int64_t nowMs() {
    std::uint32_t sec = 0;
    std::uint32_t usec = 0;
    getCurrentTime(&sec, &usec);
    return std::int64_t{sec} * 1000 + usec / 1000;
}

// Counts one class and the time spent on it.
class HookTimer {
public:
    HookTimer() : start_(nowMs()) { ++classCount; }
    ~HookTimer() { totalTime += nowMs() - start_; }
    HookTimer(const HookTimer&) = delete;
    HookTimer& operator=(const HookTimer&) = delete;

private:
    std::int64_t start_;
};

// Today's class files end here: two loads and a comparison.
bool isOldEnough(const BYTE* data) {
    const USHORT minor = readUSHORT(data + 4);
    const USHORT major = readUSHORT(data + 6);
    return (major >= 45 && major <= 47) || (major == 48 && minor == 0);
}

PoolPtr indexPool(const ClassData& data) {
    const BYTE* const limit = data.classData + data.classDataLen;
    PoolPtr pool(parseConstantPool(data.classData + kHeaderBytes, limit), freeConstantPool);
    if (pool != nullptr && !isWellFormed(data.classData, data.classDataLen, *pool)) pool.reset();
    return pool;
}

void reportCorrupt(const ClassData& data) {
    logMessage(msg::kClassFileCorrupt);
    if (data.classData != nullptr && data.classDataLen > 0) dumpClass("BadClass", 8, &data);
}

// True for a class file of a version that the injector knows. Bytes too short to tell are corrupt.
bool isCandidate(const ClassData& data) {
    const int length = data.classData == nullptr ? 0 : data.classDataLen;
    if (length >= kMagicBytes) {
        if (const ULONG magic = readULONG(data.classData); magic != kMagic) {
            logMessage(msg::kBadClassMagic, magic);
            return false;
        }
        if (length >= kHeaderBytes) return isOldEnough(data.classData);
    }
    reportCorrupt(data);
    return false;
}

// The class's own name, in slash form.
std::string_view nameOf(const ConstantPool& pool) {
    const BYTE* const clazz = pool.entries[readUSHORT(pool.end + 2)];
    const BYTE* const name = pool.entries[readUSHORT(clazz + 1)];
    return {reinterpret_cast<const char*>(name + 3), readUSHORT(name + 1)};
}

void noteLauncher(std::string_view name) {
    if (name == "com/kor/zs/bootstrap/ZSLauncher" || name == "weblogic/Server" ||
        name == Identity::bootClassName())
        instrumentationActive.store(true);
}

bool isTargetOf(const DefineClassMethod& target, const BYTE* className, USHORT classNameLength) {
    return !target.instrumented && classNameLength == target.fromClassNameLength &&
           std::memcmp(className, target.fromClassName, classNameLength) == 0;
}

// Tries the targets in order; the first that this class holds is done.
bool instrumentFirst(std::vector<DefineClassMethod>& targets, std::string_view name,
                     ClassData* working, const ConstantPool& pool, const JVMPI_Event* event) {
    for (DefineClassMethod& target : targets) {
        if (!instrumentLoader(target, reinterpret_cast<const BYTE*>(name.data()),
                              static_cast<USHORT>(name.size()), working, &pool, event))
            continue;
        target.instrumented = true;
        return true;
    }
    return false;
}

// Class-loader targets first, proxy targets when none of those was here. True when *working was
// rewritten.
bool instrumentTargets(std::string_view name, ClassData* working, const ConstantPool& pool,
                       const JVMPI_Event* event) {
    InstrumentConfig& config = instrumentConfig();
    if (!instrumentedClassLoader.load() &&
        instrumentFirst(config.classLoaders, name, working, pool, event)) {
        instrumentedClassLoader.store(true);
        return true;
    }
    if (!instrumentedProxy.load() && instrumentFirst(config.proxies, name, working, pool, event)) {
        instrumentedProxy.store(true);
        return true;
    }
    return false;
}

void turnOffWhenDone() {
    if (!instrumentedClassLoader.load() || !instrumentedProxy.load()) return;
    VEL_DEBUG_MIN(kSignature, "InstrumentJNI: turning off JVMPI ClassLoadHook");
    ProbeState::disableClassLoadHook();
}

// Hands the rewritten bytes to the VM in memory of its own.
void handOver(const ClassData& rewritten, JVMPI_Event* event) {
    auto& hook = event->u.class_load_hook;
    const auto length = static_cast<std::size_t>(rewritten.classDataLen);
    void* const copy =
        hook.malloc_f == nullptr ? nullptr : hook.malloc_f(static_cast<unsigned int>(length));
    if (copy == nullptr) {
        VEL_DEBUG_MIN(kSignature, "malloc_f failed");
        return;
    }
    std::memcpy(copy, rewritten.classData, length);
    hook.new_class_data = static_cast<unsigned char*>(copy);
    hook.new_class_data_len = rewritten.classDataLen;
}

void inspect(JVMPI_Event* event) {
    auto& hook = event->u.class_load_hook;
    ClassData working{hook.class_data_len, hook.class_data};
    if (!isCandidate(working)) return;
    PoolPtr pool = indexPool(working);
    if (pool == nullptr) {
        reportCorrupt(working);
        return;
    }
    const std::string_view name = nameOf(*pool);
    noteLauncher(name);
    if (!instrumentConfig().instrumentDefineClass) return;
    if (!instrumentTargets(name, &working, *pool, event)) return;
    const std::unique_ptr<BYTE, decltype(&std::free)> rewritten(working.classData, std::free);
    pool = indexPool(working);  // the new bytes must read as well as the old ones did
    turnOffWhenDone();
    if (pool != nullptr) handOver(working, event);
}

}  // namespace

void notifyClassLoadHookEvent(JVMPI_Event* event) {
    VEL_TRACE(kSignature);
    const HookTimer timer;
    auto& hook = event->u.class_load_hook;
    hook.new_class_data = hook.class_data;
    hook.new_class_data_len = hook.class_data_len;
    inspect(event);
}

void notifyJVMInitDone(JVMPI_Event*) {
    VEL_TRACE("notifyJVMInitDone(JVMPI_Event*)");
    const InstrumentConfig& config = instrumentConfig();
    if (config.instrumentDefineClass && !(config.classLoaders.empty() && config.proxies.empty()))
        return;
    VEL_DEBUG_MIN("notifyJVMInitDone(JVMPI_Event*)",
                  "No instrumentation is configured, turning off JVMPI ClassLoadHook");
    ProbeState::disableClassLoadHook();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers keep their own mark
bool instrumentLoader(DefineClassMethod target, const BYTE* className, USHORT classNameLength,
                      ClassData* working, const ConstantPool* pool, const JVMPI_Event* event) {
    VEL_TRACE(
        "instrumentLoader(DefineClassMethod, BYTE*, USHORT, ClassData*, ConstantPool*, "
        "JVMPI_Event*)");
    if (!isTargetOf(target, className, classNameLength)) return false;
    VEL_DEBUG_MIN("instrumentLoader", "Instrumenting class %s", target.fromClassName);
    ClassData* const rewritten = instrumentDefineClass(working, &target, pool);
    if (rewritten == nullptr) return false;
    if (event == nullptr || working->classData != event->u.class_load_hook.class_data)
        std::free(working->classData);
    *working = *rewritten;
    std::free(rewritten);  // its bytes are working's now
    return true;
}

bool classIsExcluded(const char* class_name) {
    VEL_TRACE("classIsExcluded(char*)");
    if (class_name == nullptr) return false;
    constexpr std::string_view kPrefixes[] = {"java",       "org",        "sun",
                                              "com.velora", "com/velora", "sun/misc"};
    const std::string_view name(class_name);
    for (const std::string_view prefix : kPrefixes)
        if (name.substr(0, prefix.size()) == prefix) return true;
    return false;
}
