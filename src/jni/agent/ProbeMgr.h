// Owns the collector's life: identity, the VM interface, which VM events are on, the order in which
// the other managers are made, started, stopped and destroyed, the MOD level, and the disabled
// state.
//
// Threads: the controller's Java threads and the loading thread; the class-wide flags are atomics
// because capture and worker threads read them. The identity texts are written once while the
// library loads. Version and component id belong to the controller: set before the probe is
// started.
#pragma once

#include <jni.h>

#include <atomic>

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

    static int getProbeLevel() { return probeLevel_.load(std::memory_order_relaxed); }
    static bool setProbeLevel(int level);
    static void setIncludeExcludeList(JNIEnv* env, jobjectArray include, jobjectArray exclude);
    static void turnMethodTrace(bool on);
    static void setTracingMode();

    // Relaxed: a native that sees the change a moment late captures or skips one more event.
    static bool isProbeDisabled() { return isProbeDisabled_.load(std::memory_order_relaxed); }
    static bool isJVMPIEnabled() { return jvmpi_.load(std::memory_order_acquire) != nullptr; }
    static JVMPI_Interface* getJVMPI() { return jvmpi_.load(std::memory_order_acquire); }
    static JavaVM* getJVM() { return jvmPtr_; }
    static bool restartOnToL1() { return restartOnToFromL1_.load(std::memory_order_relaxed); }
    static void setEventMgrReady(bool ready);
    static void setNetworkMgrReady(bool ready);

    static const char* getVeloraHome() { return veloraHome_; }
    static const char* getNodeName() { return nodeName_; }
    static const char* getAppServerName() { return appServerName_; }
    static const char* getProfileName() { return ProfileName_; }
    static const char* getBootClassName() { return novtBootClassName_; }  // slash form

    void probeStart(JNIEnv* env);
    void probeStop(JNIEnv* env);
    void start();
    void stop();
    bool initProbe();
    void initialize() {}

    const char* getAppServerVersion() const { return appVersion_; }
    void setAppServerVersion(const char* version);  // ignores null and empty
    int getAdminServerPort() const { return adminPort_.load(std::memory_order_relaxed); }
    void setAdminServerPort(int port) { adminPort_.store(port, std::memory_order_relaxed); }
    const char* getComponentId() const { return compID_; }
    void setComponentId(const char* id);  // ignores null and empty

private:
    friend class ProbeMgrIdentity;  // tests' way to home, node, server and profile

    ProbeMgr();

    char appVersion_[100];
    char compID_[256];
    std::atomic<int> adminPort_{0};  // 0: not known
    bool createTable_ = true;        // the class and method tables still have to be made

    static std::atomic<ProbeMgr*> instance_;
    static std::atomic<int> probeLevel_;
    static std::atomic<bool> isProbeDisabled_;
    static std::atomic<bool> eventMgrReady_;
    static std::atomic<bool> netMgrReady_;
    static std::atomic<bool> restartOnToFromL1_;
    static std::atomic<bool> initInterface_;
    static JavaVM* jvmPtr_;
    static std::atomic<JVMPI_Interface*> jvmpi_;
    static char** includeList_;  // null-terminated, owned
    static char** excludeList_;
    static char veloraHome_[256];
    static char nodeName_[256];
    static char appServerName_[256];
    static char ProfileName_[256];
    static char novtBootClassName_[256];
};
