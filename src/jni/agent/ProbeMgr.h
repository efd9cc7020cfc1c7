// Owns the collector's life: the VM interface, which VM events are on, the order in which the other
// managers are made, started, stopped and destroyed. Who this server is and what the probe is doing
// stand on the ground floor (Identity, ProbeState), where every floor asks; the functions of the
// same purpose here are for callers that know the manager.
//
// Threads: the controller's Java threads and the loading thread.
#pragma once

#include <jni.h>

#include <atomic>

#include "foundation/Identity.h"
#include "foundation/ProbeState.h"
#include "foundation/VeloraBase.h"
#include "jvmpi/jvmpi.h"

// How method tracing is arranged: 1000 classic, 1001 new, 1002 hybrid.
extern std::atomic<int> cy_tracing_mode;

class ProbeMgr : public virtual VeloraBase {
public:
    static ProbeMgr* getInstance();
    static void destroy();
    ~ProbeMgr() override;

    static bool onLoadInitialize(JavaVM* vm, char* options);
    static bool initializeJVMPI();
    static void enableClassLoad();
    static void enableClassLoadHook();
    static void disableClassLoadHook();
    static void enableJVMInitDone();

    static bool customServiceStart(JNIEnv* env);
    static void customServiceShutDown(JNIEnv* env);
    static bool csInitialize(JNIEnv* env);

    static int getProbeLevel() { return ProbeState::level(); }
    static bool setProbeLevel(int level);
    static void setIncludeExcludeList(JNIEnv* env, jobjectArray include, jobjectArray exclude);
    static void turnMethodTrace(bool on);
    static void setTracingMode();

    static bool isProbeDisabled() { return ProbeState::isDisabled(); }
    static bool isJVMPIEnabled() { return jvmpi_.load(std::memory_order_acquire) != nullptr; }
    static JVMPI_Interface* getJVMPI() { return jvmpi_.load(std::memory_order_acquire); }
    static JavaVM* getJVM() { return jvmPtr_; }
    static bool restartOnToL1() { return restartOnToFromL1_.load(std::memory_order_relaxed); }
    static void setEventMgrReady(bool ready) { ProbeState::setEventMgrReady(ready); }
    static void setNetworkMgrReady(bool ready) { ProbeState::setNetworkMgrReady(ready); }

    static const char* getVeloraHome() { return Identity::home(); }
    static const char* getNodeName() { return Identity::nodeName(); }
    static const char* getAppServerName() { return Identity::appServerName(); }
    static const char* getProfileName() { return Identity::profileName(); }
    static const char* getBootClassName() { return Identity::bootClassName(); }  // slash form

    void probeStart(JNIEnv* env);
    void probeStop(JNIEnv* env);
    void start();
    void stop();
    bool initProbe();
    void initialize() {}

    static const char* getAppServerVersion() { return Identity::appServerVersion(); }
    static void setAppServerVersion(const char* version);  // ignores null and empty
    static int getAdminServerPort() { return Identity::adminPort(); }
    static void setAdminServerPort(int port) { Identity::setAdminPort(port); }
    static const char* getComponentId() { return Identity::componentId(); }
    static void setComponentId(const char* id);  // ignores null and empty

private:
    friend class ProbeMgrAccess;  // tests, which leave the process as they found it
    ProbeMgr();

    bool createTable_ = true;  // the class and method tables still have to be made

    static std::atomic<ProbeMgr*> instance_;
    static std::atomic<bool> restartOnToFromL1_;
    static std::atomic<bool> initInterface_;
    static JavaVM* jvmPtr_;
    static std::atomic<JVMPI_Interface*> jvmpi_;
    static char** includeList_;  // null-terminated, owned
    static char** excludeList_;
};
