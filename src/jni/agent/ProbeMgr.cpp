#include "agent/ProbeMgr.h"

#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "agent/MethodLevelModule.h"
#include "agent/ProbeSystem.h"
#include "agent/velora.h"
#include "capture/Resend.h"
#include "diagnostics/LockAgentMgr.h"
#include "event/ProtocolVisitor.h"
#include "event/ThreadMgr.h"
#include "foundation/Globals.h"
#include "foundation/JniScope.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/ProbeLog.h"
#include "foundation/ProbeQLog.h"
#include "foundation/PropertyMgr.h"
#include "foundation/Utils.h"
#include "foundation/VelLock.h"
#include "instrument/class.h"
#include "instrument/classfilter.h"
#include "instrument/method.h"
#include "transport/EvtAgentMgr.h"
#include "transport/MemoryMonitor.h"
#include "transport/NetworkAgentMgr.h"
#include "transport/ResendListener.h"

std::atomic<int> cy_tracing_mode{1001};

std::atomic<ProbeMgr*> ProbeMgr::instance_{nullptr};
std::atomic<bool> ProbeMgr::restartOnToFromL1_{false};
std::atomic<bool> ProbeMgr::initInterface_{true};
JavaVM* ProbeMgr::jvmPtr_ = nullptr;
std::atomic<JVMPI_Interface*> ProbeMgr::jvmpi_{nullptr};
char** ProbeMgr::includeList_ = nullptr;
char** ProbeMgr::excludeList_ = nullptr;

namespace {

constexpr jint kVmSpecificEvent =
    2000;                        // known to some VMs only; without a handler, and refused elsewhere
constexpr int kDrainMs = 10000;  // from disabling the probe to stopping its parts
constexpr char kDefaultHome[] = "/velora";
constexpr char kDefaultBootClass[] = "com.kor.tessar.lumen.instr.controller.BootIC";

// Events that come and go with the probe.
constexpr jint kProbeEvents[] = {JVMPI_EVENT_THREAD_START, JVMPI_EVENT_THREAD_END,
                                 JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH};

enum TracingMode { kClassicTracing = 1000, kNewTracing = 1001, kHybridTracing = 1002 };

std::mutex instanceLock;     // guards the making and ending of the singleton
std::mutex filterListsLock;  // serialises setIncludeExcludeList; held for memory work only

bool isEmpty(const char* text) {
    return text == nullptr || text[0] == '\0';
}

// Command line, then environment; null when neither says anything.
const char* firstGiven(const char* commandLine, const char* variable) {
    if (!isEmpty(commandLine)) return commandLine;
    const char* const fromEnvironment = std::getenv(variable);
    return isEmpty(fromEnvironment) ? nullptr : fromEnvironment;
}

void freeList(char** list, int slots) {
    if (list == nullptr) return;
    for (int i = 0; i < slots; ++i) delete[] list[i];
    delete[] list;
}

// A null-terminated copy of a Java string array; an element that is null leaves its slot null.
char** copyList(JNIEnv* env, jobjectArray array, const char* format, int* slots) {
    *slots = array == nullptr ? 0 : env->GetArrayLength(array);
    auto** const list = new char*[*slots + 1]();
    for (int i = 0; i < *slots; ++i) {
        const LocalRef element(env, static_cast<jstring>(env->GetObjectArrayElement(array, i)));
        list[i] = Utils::java2c_string(env, element.get());
        VEL_DEBUG_MID("setIncludeExcludeList(JNIEnv*, jobjectArray, jobjectArray)", format,
                      list[i]);
    }
    return list;
}

void installDispatcher(JVMPI_Interface* interface) {
    ProbeState::setDispatcher(EventDispatcher);
    ProbeState::installDispatcher(interface);
}

}  // namespace

ProbeMgr* ProbeMgr::getInstance() {
    ProbeMgr* instance = instance_.load(std::memory_order_acquire);
    if (instance != nullptr) return instance;
    const std::lock_guard guard(instanceLock);
    instance = instance_.load(std::memory_order_relaxed);
    if (instance == nullptr) {
        instance = new ProbeMgr;
        instance_.store(instance, std::memory_order_release);
        probMgr_.store(instance, std::memory_order_release);
    }
    return instance;
}

void ProbeMgr::destroy() {
    VEL_TRACE("destroy()");
    const std::lock_guard guard(instanceLock);
    probMgr_.store(nullptr, std::memory_order_release);
    delete instance_.exchange(nullptr, std::memory_order_acq_rel);
}

ProbeMgr::ProbeMgr() : VeloraBase("ProbeMgr") {
    VEL_TRACE("ProbeMgr()");
    Identity::forgetServer();
}

ProbeMgr::~ProbeMgr() {
    VEL_TRACE("~ProbeMgr()");
}

bool ProbeMgr::onLoadInitialize(JavaVM* vm, char*) {
    VEL_TRACE("onLoadInitialize(JavaVM*, char*)");
    jvmPtr_ = vm;
    jvm_ptr = vm;
    ProbeState::setDispatcher(EventDispatcher);
    ProbeSystem::readCommandLineArguments();

    const char* const home = firstGiven(ProbeSystem::commandLineHome(), "am.home");
    if (home == nullptr) {
        logMessage(msg::kHomeUndefined);
        // The log cannot be open yet, and without a home it never will be: the operator looks here.
        std::fprintf(stderr, "[AM]: %s, using %s\n", msg::kHomeUndefined.text, kDefaultHome);
    }
    const char* const node = firstGiven(ProbeSystem::commandLineNodeName(), "am.nodename");
    if (node == nullptr) logMessage(msg::kNodeUndefined);
    const char* const server = firstGiven(ProbeSystem::commandLineAppServer(), "am.appserver");
    if (server == nullptr) logMessage(msg::kServerUndefined);
    Identity::set(home != nullptr ? home : kDefaultHome, node != nullptr ? node : "defaultnode",
                  server != nullptr ? server : "appserver",
                  firstGiven(ProbeSystem::commandLineProfileName(), "am.profilename"));

    ProbeLog::initialize();
    ProbeQLog::initialize();
    const PropertyMgr* const properties = PropertyMgr::getInstance();
    FindMODFile();
    Identity::setBootClassName(
        properties->getStringProperty("NOVT.bootclassname", kDefaultBootClass));
    return true;
}

bool ProbeMgr::initializeJVMPI() {
    VEL_TRACE("initializeJVMPI()");
    if (isJVMPIEnabled()) return true;
    void* obtained = nullptr;
    const jint result = jvmPtr_ == nullptr ? JNI_ERR : jvmPtr_->GetEnv(&obtained, JVMPI_VERSION_1);
    if (result < 0 || obtained == nullptr) {
        logMessage(msg::kInterfaceFailed);
        return false;
    }
    auto* const interface = static_cast<JVMPI_Interface*>(obtained);
    interface->EnableEvent(kVmSpecificEvent, nullptr);
    jvmpi_.store(interface, std::memory_order_release);
    jvmpi.store(interface, std::memory_order_release);
    logMessage(msg::kInterfaceReady);
    return true;
}

void ProbeMgr::enableClassLoad() {
    VEL_TRACE("enableClassLoad()");
    installDispatcher(getJVMPI());
}

void ProbeMgr::enableClassLoadHook() {
    VEL_TRACE("enableClassLoadHook()");
    if (!initializeJVMPI()) {
        VEL_DEBUG_MIN("enableClassLoadHook()", "Unable to initialize JVMPI");
        return;
    }
    installDispatcher(getJVMPI());
    getJVMPI()->EnableEvent(JVMPI_EVENT_CLASS_LOAD_HOOK, nullptr);
}

void ProbeMgr::disableClassLoadHook() {
    ProbeState::disableClassLoadHook();
}

void ProbeMgr::enableJVMInitDone() {
    VEL_TRACE("enableJVMInitDone()");
    if (!initializeJVMPI()) {
        VEL_DEBUG_MIN("enableJVMInitDone()", "Unable to initialize JVMPI");
        return;
    }
    installDispatcher(getJVMPI());
    getJVMPI()->EnableEvent(JVMPI_EVENT_JVM_INIT_DONE, nullptr);
}

bool ProbeMgr::customServiceStart(JNIEnv* env) {
    constexpr char kSignature[] = "customServiceStart(JNIEnv*)";
    VEL_TRACE(kSignature);
    // Past our own test of the trace level: the toolkit decides about this one line.
    writeDebug(kDebugMin, __FILE_NAME__, kSignature, __LINE__,
               "Native Custom Service initializing... ");
    if (!csInitialize(env)) {
        logMessage(msg::kCustomServiceFailed);
        return false;
    }
    LockAgentMgr::getInstance();
    PropertyMgr::getInstance();
    getInstance();
    MemoryMonitor::getInstance();
    NetworkAgentMgr::getInstance();
    EvtAgentMgr::getInstance();
    ThreadMgr::getInstance();
    ProtocolVisitor::getInstance();
    ResendListener::use(&resendListener());
    logMessage(msg::kCustomServiceInitialized);
    return true;
}

void ProbeMgr::customServiceShutDown(JNIEnv*) {
    VEL_TRACE("customServiceShutDown(JNIEnv*)");
    ProbeState::disable();  // in case nobody stopped the probe: what follows is going away
    ProtocolVisitor::destroy();
    NetworkAgentMgr::destroy();
    EvtAgentMgr::destroy();
    ThreadMgr::destroy();
    MemoryMonitor::destroy();
    destroy();
    PropertyMgr::destroy();
    LockAgentMgr::destroy();
    logMessage(msg::kCustomServiceShutdown);
}

bool ProbeMgr::csInitialize(JNIEnv*) {
    VEL_TRACE("csInitialize(JNIEnv*)");
    if (!isJVMPIEnabled()) {
        if (!initializeJVMPI()) {
            VEL_DEBUG_MIN("csInitialize(JNIEnv*)", "Failed to initialize event interface");
            return false;
        }
        VEL_DEBUG_MIN("csInitialize(JNIEnv*)", "Initializing of event interface done...");
    }
    initMethodTableLock();
    initClassTableLock();
    initClassSequenceLock();
    return true;
}

void ProbeMgr::probeStart(JNIEnv*) {
    VEL_TRACE("probeStart(JNIEnv*)");
    LockAgentMgr::getInstance()->start();
    PropertyMgr::getInstance()->start();
    MemoryMonitor::getInstance()->start();
    NetworkAgentMgr::getInstance()->start();
    EvtAgentMgr::getInstance()->start();
    ThreadMgr::getInstance()->start();
    ProtocolVisitor::getInstance()->start();
    start();
    logMessage(msg::kProbeStarted);
}

void ProbeMgr::start() {
    VEL_TRACE("start()");
    if (initProbe()) {
        logMessage(msg::kProbeMgrStarted);
    } else {
        logMessage(msg::kProbeMgrStartFailed);
    }
}

bool ProbeMgr::initProbe() {
    VEL_TRACE("initProbe()");
    JVMPI_Interface* const interface = getJVMPI();
    if (interface == nullptr) {
        logMessage(msg::kNoJvmpiAtStart);
        return false;
    }
    if (createTable_) {
        createMethodTable();
        createClassTable();
        createTable_ = false;
    }
    installDispatcher(interface);
    for (const jint event : kProbeEvents) interface->EnableEvent(event, nullptr);
    _logInfo(__FILE_NAME__, __LINE__, "Enabled JVMPI events.");
    resetClassSequence();
    if (getProbeLevel() == 3) turnMethodTrace(true);
    return true;
}

// The wait is the only guard against events that were under way when the probe was disabled, and
// gives the workers time to send what is queued.
void ProbeMgr::probeStop(JNIEnv*) {
    VEL_TRACE("probeStop(JNIEnv*)");
    ProbeState::disable();
    _logInfo(__FILE_NAME__, __LINE__, "Waiting for 10 secs");
    VelLock pause;
    pause.wait(kDrainMs);
    _logInfo(__FILE_NAME__, __LINE__, "Waiting DONE 10 secs");
    stop();
    NetworkAgentMgr::getInstance()->stop();
    EvtAgentMgr::getInstance()->stop();
    ProbeState::disable();  // an agent that came up during the wait has enabled it again
    ProtocolVisitor::getInstance()->stop();
    ThreadMgr::getInstance()->stop();
    MemoryMonitor::getInstance()->stop();
    PropertyMgr::getInstance()->stop();
    LockAgentMgr::getInstance()->stop();
    logMessage(msg::kProbeStopped);
}

void ProbeMgr::stop() {
    VEL_TRACE("stop()");
    if (JVMPI_Interface* const interface = getJVMPI(); interface != nullptr)
        for (const jint event : kProbeEvents) interface->DisableEvent(event, nullptr);
    VEL_DEBUG_MIN("stop()", "Disabled JVMPI events.");
    if (getProbeLevel() == 3) turnMethodTrace(false);
    logMessage(msg::kProbeMgrStopped);
}

// Switches no event: method-level tracing lives in the Java classes.
void ProbeMgr::turnMethodTrace(bool) {
    VEL_TRACE("turnMethodTrace(bool)");
    const char* const disabled = PropertyMgr::getInstance()->getProperty("internal.disableL3");
    if (disabled != nullptr && strcasecmp(disabled, "YES") == 0) {
        VEL_DEBUG_MIN("turnMethodTrace(bool)", "L3 disabled, not enabling/disabling method events");
    } else {
        VEL_DEBUG_MIN("turnMethodTrace(bool)", "L3 is handled in Java now ...");
    }
}

bool ProbeMgr::setProbeLevel(int level) {
    VEL_TRACE("setProbeLevel(int)");
    if (level > 1000) level -= 1000;
    const int old = getProbeLevel();
    if (level == old) {
        VEL_DEBUG_MIN("setProbeLevel(int)", "Current Native MOD level is same as new level");
        return false;
    }
    if (level < 1 || level > 3) {
        VEL_DEBUG_MIN("setProbeLevel(int)",
                      "Incorrect MOD level given (%0$d) rejecting, current MOD level %1$d", level,
                      old);
        return false;
    }
    ProbeState::setLevel(level);
    if (old == 3) turnMethodTrace(false);
    if (level == 3) turnMethodTrace(true);
    VEL_DEBUG_MIN("setProbeLevel(int)", "Native MOD level changed from (%0$d) to (%1$d)", old,
                  level);
    probe_level.store(level, std::memory_order_relaxed);
    return true;
}

// The new lists are in force before the old ones are freed: class-load events read them meanwhile.
void ProbeMgr::setIncludeExcludeList(JNIEnv* env, jobjectArray include, jobjectArray exclude) {
    VEL_TRACE("setIncludeExcludeList(JNIEnv*, jobjectArray, jobjectArray)");
    static int includeSlots = 0;  // of the lists in force, guarded by filterListsLock
    static int excludeSlots = 0;
    int newIncludeSlots = 0;
    int newExcludeSlots = 0;
    char** const newInclude = copyList(env, include, "Include List: %s", &newIncludeSlots);
    char** const newExclude = copyList(env, exclude, "Exclude List: %s", &newExcludeSlots);
    {
        const std::lock_guard guard(filterListsLock);
        publishFilterLists(newInclude, newExclude);
        freeList(includeList_, includeSlots);
        freeList(excludeList_, excludeSlots);
        includeList_ = newInclude;
        excludeList_ = newExclude;
        includeSlots = newIncludeSlots;
        excludeSlots = newExcludeSlots;
    }
    reapplyFilter();
}

// Nothing calls this at start-up: the mode that it would set is the one in force.
void ProbeMgr::setTracingMode() {
    constexpr char kSignature[] = "setTracingMode()";
    VEL_TRACE(kSignature);
    const PropertyMgr* const properties = PropertyMgr::getInstance();
    const char* mode = properties->getProperty("internal.tracing.mode");
    if (mode == nullptr) {
        VEL_DEBUG_MIN(kSignature, "Tracing MODE not specified. Using default value of NEW");
        mode = "new";
    } else if (strcasecmp(mode, "classic") == 0) {
        cy_tracing_mode = kClassicTracing;
    } else if (strcasecmp(mode, "new") == 0) {
        cy_tracing_mode = kNewTracing;
    } else if (strcasecmp(mode, "hybrid") == 0) {
        cy_tracing_mode = kHybridTracing;
    } else {
        VEL_DEBUG_MIN(kSignature, "Invalid value specified for TRACING MODE. Using default value");
    }
    const int level = probe_level.load();
    logMessage(msg::kTracingMode, mode, cy_tracing_mode.load(), level);

    const bool atLevel1 = level == 1;
    const int chosen = cy_tracing_mode;
    const bool wantsAppList = chosen == kNewTracing || (chosen == kHybridTracing && !atLevel1);
    initInterface_ = chosen == kClassicTracing && !atLevel1;
    restartOnToFromL1_ = chosen != kNewTracing;
    if (!wantsAppList) return;
    const char* const useAppList = properties->getProperty("internal.use.applist");
    if (useAppList != nullptr && strcasecmp(useAppList, "NO") == 0) {
        VEL_DEBUG_MIN(kSignature, "No App list created");
        return;
    }
    VEL_DEBUG_MIN(kSignature, "Using AppList");
    turnOffJitOfApps();
}

void ProbeMgr::setAppServerVersion(const char* version) {
    VEL_TRACE("setAppServerVersion(const char*)");
    Identity::setAppServerVersion(version);
}

void ProbeMgr::setComponentId(const char* id) {
    VEL_TRACE("setComponentId(const char*)");
    Identity::setComponentId(id);
}
