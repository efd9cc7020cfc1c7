#include "agent/velora.h"

#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent/ProbeMgr.h"
#include "agent/ProbeSystem.h"
#include "foundation/Console.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Platform.h"
#include "foundation/ProbeLog.h"
#include "foundation/PropertyMgr.h"
#include "foundation/ThreadCpuClock.h"
#include "foundation/Utils.h"
#include "foundation/VelTracer.h"
#include "instrument/InstrumentConfig.h"
#include "instrument/RukaDelegate.h"
#include "jvmpi/jvmpi.h"
#include "os/RegularFile.h"

namespace {

constexpr int kDefaultLevel = 2;
constexpr int kDebugPauseMs = 30;
constexpr char kDebugOption[] = "debug=on";

bool isYes(const char* value) {
    return value != nullptr && strcasecmp(value, "YES") == 0;
}

// Level in the MOD file; kDefaultLevel, written to the file, when there is none.
int readOrWriteModFile() {
    int level = kDefaultLevel;
    if (std::FILE* const file = os::fopenRegular(modFileName, "r"); file != nullptr) {
        if (std::fscanf(file, "%d", &level) != 1) level = kDefaultLevel;
        std::fclose(file);
        return level;
    }
    std::FILE* const file = os::fopenRegular(modFileName, "w");
    if (file == nullptr) {
        logMessage(msg::kModFileFailed);
        return level;
    }
    std::fprintf(file, "%d", level);
    std::fclose(file);
    return level;
}

void startThreadCpuClock() {
    const char* const setting =
        PropertyMgr::getInstance()->getProperty("internal.cpu.clock.without.syscall");
    const bool wanted = setting == nullptr || strcasecmp(setting, "NO") != 0;
    const bool used = ThreadCpuClock::start(wanted);
    VEL_DEBUG_MIN("JVM_OnLoad", "Thread CPU times are read %s",
                  used ? "without a system call" : "by system call");
}

jint load(JavaVM* vm, char* options) {
    std::atexit(probe_exit);
    console::chooseFor(vm, JVMPI_VERSION_ADAPTER);
    VelTracer::setMode(false);
    if (options != nullptr && std::strncmp(options, kDebugOption, sizeof kDebugOption - 1) == 0)
        thread_sleep(kDebugPauseMs);
    ProbeMgr::onLoadInitialize(vm, options);
    if (ProbeLog::getLogFileName() != nullptr)  // the first line of the file, and of nothing else
        ProbeLog::_log("Velora data collector " VELORA_VERSION ", build of " VELORA_CONFIGURED);
    logMessage(msg::kBuildTime, ProbeSystem::buildTime(), ProbeSystem::buildDate());
    f_useMethodLocks();
    f_disableNestedRequests();
    startThreadCpuClock();
    processId = getProcessId();
    if (!ProbeMgr::initializeJVMPI()) return JNI_ERR;
    ProbeMgr::initializeJVMPI();  // finds the interface already there
    ProbeMgr::enableClassLoad();
    if (RukaDelegate::isRukaConfigured()) RukaDelegate::initializeRukaInOnLoad(options);
    if (!getConfig("")) return JNI_OK;
    ProbeMgr::enableClassLoadHook();
    ProbeMgr::enableJVMInitDone();
    return JNI_OK;
}

}  // namespace

extern "C" {

// A failure of our own leaves the collector out of work but lets the server start; only a VM that
// cannot host us at all is told so.
JNIEXPORT jint JNICALL JVM_OnLoad(JavaVM* vm, char* options, void*) {
    VEL_TRACE("JVM_OnLoad(JavaVM*, char*, void*)");
    return atJniEdge("JVM_OnLoad", jint{JNI_OK}, [&] { return load(vm, options); });
}

JNIEXPORT void probe_exit(void) {
}

}  // extern "C"

void FindMODFile() {
    VEL_TRACE("FindMODFile()");
    delete[] modFileName;
    modFileName = getMODFileName();
    if (modFileName == nullptr) modFileName = Utils::cstrdup("am.mod");
    logMessage(msg::kUsingModFile, modFileName);
    ProbeMgr::setProbeLevel(readOrWriteModFile());
    const int level = ProbeMgr::getProbeLevel();
    if (level < 1 || level > 3) ProbeMgr::setProbeLevel(kDefaultLevel);
    logMessage(msg::kUsingProbeLevel, ProbeMgr::getProbeLevel());
}

void f_useMethodLocks() {
    VEL_TRACE("f_useMethodLocks()");
    const PropertyMgr* const properties = PropertyMgr::getInstance();
    // Presence alone disables, whatever the value.
    const bool wanted = isYes(properties->getProperty("internal.use.method.monitors")) &&
                        properties->getProperty("internal.use.method.monitors.disable") == nullptr;
    useMethodLocks.store(wanted);
    // A count below -1 would never be reached, and unloaded classes would stay for good.
    CLASSULOAD_CLEANUP =
        static_cast<int>(properties->getBoundedProperty("method.hash.cleanup", 150, -1, 1000000));
    methodHashWaitInterval.store(static_cast<int>(
        properties->getBoundedProperty("method.hash.cleanupinterval", 5000, 0, 600000)));
    if (wanted) CLASSULOAD_CLEANUP = -1;
}

void f_disableNestedRequests() {
    VEL_TRACE("f_disableNestedRequests()");
    disableNestedRequests.store(
        isYes(PropertyMgr::getInstance()->getProperty("internal.disable.nestedrequests")));
    if (disableNestedRequests.load() && ProbeMgr::getProbeLevel() != 1)
        logMessage(msg::kNestedRequestsStay, ProbeMgr::getProbeLevel());
}
