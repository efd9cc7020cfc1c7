#include "agent/ProbeSystem.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent/CommandLine.h"
#include "agent/ProbeMgr.h"
#include "capture/EventUtils.h"
#include "diagnostics/javacore.h"
#include "event/ThreadMgr.h"
#include "foundation/Globals.h"
#include "foundation/Identity.h"
#include "foundation/JniEdge.h"
#include "foundation/JniScope.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Platform.h"
#include "foundation/ProbeState.h"
#include "foundation/ProcStat.h"
#include "foundation/Utils.h"
#include "instrument/method.h"

// The stamp of message 1081. Fixed, so that the same sources give the same library; whoever
// packages a build of his own can name it.
#ifndef VELORA_BUILD_TIME
#define VELORA_BUILD_TIME "12:51:08"
#endif
#ifndef VELORA_BUILD_DATE
#define VELORA_BUILD_DATE "Jun 29 2006"
#endif

namespace {

// What the command line said; written once while the library loads, before any other thread knows
// it.
struct CommandLineIdentity {
    std::string home;
    std::string nodeName;
    std::string appServer;
    std::string profileName;
    std::string extensionDirs;
};
CommandLineIdentity& identity = *new CommandLineIdentity;  // never destroyed, as natives may run

constexpr ULONG kMaxMethodHashSize = 1000000;  // buckets of about 90 bytes each

struct IdentityOption {
    const char* prefix;
    std::string CommandLineIdentity::*value;
};
constexpr IdentityOption kIdentityOptions[] = {
    {"-Dam.home=", &CommandLineIdentity::home},
    {"-Dam.nodename=", &CommandLineIdentity::nodeName},
    {"-Dam.appserver=", &CommandLineIdentity::appServer},
    {"-Dam.profilename=", &CommandLineIdentity::profileName},
    {"-Djava.ext.dirs=", &CommandLineIdentity::extensionDirs},
};

jstring toJava(JNIEnv* env, const char* text) {
    return text == nullptr ? nullptr : env->NewStringUTF(text);
}

void readMethodHashSize(JNIEnv* env, jclass probeSystem) {
    const jfieldID field = env->GetStaticFieldID(probeSystem, "methodHashSize", "I");
    if (handleJavaException(env) || field == nullptr) return;
    const jint wanted = env->GetStaticIntField(probeSystem, field);
    // The table keeps the size that it was made with.
    if (method_hash.load(std::memory_order_acquire) != nullptr) return;
    ULONG buckets = wanted == 0 ? kDefaultMethodHashSize : static_cast<ULONG>(wanted);
    if (wanted < 0 || buckets > kMaxMethodHashSize) {
        buckets = wanted < 0 ? kDefaultMethodHashSize : kMaxMethodHashSize;
        logMessage(msg::kBadSetting, "ProbeSystem.methodHashSize", std::to_string(wanted).c_str(),
                   std::to_string(buckets).c_str());
    }
    method_hash_size = buckets;
}

void readProbeStdout(JNIEnv* env, jclass probeSystem) {
    const jfieldID field = env->GetStaticFieldID(probeSystem, "probeStdout", "Ljava/lang/String;");
    if (handleJavaException(env) || field == nullptr) return;
    const LocalRef path(env, static_cast<jstring>(env->GetStaticObjectField(probeSystem, field)));
    char* const copy = Utils::java2c_string(env, path.get());
    delete[] probe_stdout;
    probe_stdout = copy;
}

// Java sees only what is in force: the identity that the start-up settled on.
jstring currentText(JNIEnv* env, const char* native, const char* text) {
    return atJniEdge(native, static_cast<jstring>(nullptr), [&] { return toJava(env, text); });
}

// The server learns changed rates at once when it can be told, else with the next connection.
void announceRates(JNIEnv* env, const SamplingRates& changed) {
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    if (ProbeState::isDisabled() || threads == nullptr) return;
    EventUtils::appendSamplingRateEvent(env, threads->getThreadData(env), changed.rates,
                                        changed.useDefault ? 1 : 0);
}

}  // namespace

void ProbeSystem::readCommandLineArguments() {
    VEL_TRACE("readCommandLineArguments()");
    parseArguments(effectiveVmArguments(readCommandLine()));
}

void ProbeSystem::parseArguments(const std::vector<std::string>& given) {
    VEL_TRACE("parseArguments(const std::vector<std::string>&)");
    identity = CommandLineIdentity{};
    Identity::setVmArguments(given);
    for (const std::string& argument : given)
        for (const IdentityOption& option : kIdentityOptions)
            if (argument.compare(0, std::strlen(option.prefix), option.prefix) == 0)
                identity.*option.value = argument.substr(std::strlen(option.prefix));
}

const std::vector<std::string>& ProbeSystem::jvmArguments() {
    return Identity::vmArguments();
}
const char* ProbeSystem::commandLineHome() {
    return identity.home.c_str();
}
const char* ProbeSystem::commandLineNodeName() {
    return identity.nodeName.c_str();
}
const char* ProbeSystem::commandLineAppServer() {
    return identity.appServer.c_str();
}
const char* ProbeSystem::commandLineProfileName() {
    return identity.profileName.c_str();
}
const char* ProbeSystem::extensionDirs() {
    return identity.extensionDirs.c_str();
}
const char* ProbeSystem::buildTime() {
    return VELORA_BUILD_TIME;
}
const char* ProbeSystem::buildDate() {
    return VELORA_BUILD_DATE;
}

SamplingRates ProbeSystem::samplingRates() {
    return ProbeState::samplingRates();
}

void ProbeSystem::setSamplingRates(const SamplingRates& changed) {
    VEL_TRACE("setSamplingRates(const SamplingRates&)");
    ProbeState::setSamplingRates(changed);
}

char* getMODFileName() {
    VEL_TRACE("getMODFileName()");
    const std::string folder = std::string(Identity::home()) + "/etc";
    const std::string file = folder + "/am.mod";
    const bool readable = access(file.c_str(), R_OK) == 0;
    const bool creatable = access(folder.c_str(), W_OK | X_OK) == 0;
    return readable || creatable ? Utils::cstrdup(file.c_str()) : nullptr;
}

extern "C" {

JNIEXPORT void JNICALL Java_com_velora_probe_ProbeSystem_initializeNative(JNIEnv* env,
                                                                          jclass probeSystem) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_initializeNative(JNIEnv*, jclass)");
    atJniEdge("initializeNative", [&] {
        readMethodHashSize(env, probeSystem);
        readProbeStdout(env, probeSystem);
    });
}

JNIEXPORT jint JNICALL Java_com_velora_probe_ProbeSystem_getProcessId(JNIEnv*, jclass) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_getProcessId(JNIEnv*, jclass)");
    return getProcessId();
}

JNIEXPORT jint JNICALL Java_com_velora_probe_ProbeSystem_getCpuCount(JNIEnv*, jclass) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_getCpuCount(JNIEnv*, jclass)");
    return atJniEdge("getCpuCount", jint{1}, [] { return static_cast<jint>(cpuCount()); });
}

JNIEXPORT jlong JNICALL Java_com_velora_probe_ProbeSystem_getProcessCpuTime(JNIEnv*, jclass) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_getProcessCpuTime(JNIEnv*, jclass)");
    return atJniEdge("getProcessCpuTime", jlong{0}, [] {
        long long userMs = 0;
        long long systemMs = 0;
        processCpuTimes(&userMs, &systemMs);
        return jlong{userMs + systemMs};
    });
}

JNIEXPORT jintArray JNICALL Java_com_velora_probe_ProbeSystem_getSamplingRates(JNIEnv* env,
                                                                               jclass) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_getSamplingRates(JNIEnv*, jclass)");
    return atJniEdge("getSamplingRates", static_cast<jintArray>(nullptr), [&] {
        const SamplingRates current = ProbeSystem::samplingRates();
        const jintArray array = env->NewIntArray(4);  // null: the exception is the caller's answer
        if (array != nullptr) env->SetIntArrayRegion(array, 0, 4, current.rates);
        return array;
    });
}

JNIEXPORT void JNICALL Java_com_velora_probe_ProbeSystem_setSamplingRates(JNIEnv* env, jclass,
                                                                          jintArray newRates,
                                                                          jboolean useDefault) {
    VEL_TRACE(
        "Java_com_velora_probe_ProbeSystem_setSamplingRates(JNIEnv*, jclass, jintArray, jboolean)");
    atJniEdge("setSamplingRates", [&] {
        if (newRates == nullptr || env->GetArrayLength(newRates) != 4) return;
        SamplingRates changed;
        env->GetIntArrayRegion(newRates, 0, 4, changed.rates);
        changed.useDefault = useDefault != JNI_FALSE;
        ProbeSystem::setSamplingRates(changed);
        announceRates(env, changed);
    });
}

JNIEXPORT jstring JNICALL Java_com_velora_probe_ProbeSystem_getBuildTime(JNIEnv* env, jclass) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_getBuildTime(JNIEnv*, jclass)");
    return currentText(env, "getBuildTime", VELORA_BUILD_TIME " " VELORA_BUILD_DATE);
}

JNIEXPORT jstring JNICALL Java_com_velora_probe_ProbeSystem_getHome(JNIEnv* env, jclass) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_getHome(JNIEnv*, jclass)");
    return currentText(env, "getHome", Identity::home());
}

JNIEXPORT jstring JNICALL Java_com_velora_probe_ProbeSystem_getNodeName(JNIEnv* env, jclass) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_getNodeName(JNIEnv*, jclass)");
    return currentText(env, "getNodeName", Identity::nodeName());
}

JNIEXPORT jstring JNICALL Java_com_velora_probe_ProbeSystem_getAppServerName(JNIEnv* env, jclass) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_getAppServerName(JNIEnv*, jclass)");
    return currentText(env, "getAppServerName", Identity::appServerName());
}

JNIEXPORT jstring JNICALL Java_com_velora_probe_ProbeSystem_getProfileName(JNIEnv* env, jclass) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_getProfileName(JNIEnv*, jclass)");
    return currentText(env, "getProfileName", Identity::profileName());
}

JNIEXPORT jstring JNICALL Java_com_velora_probe_ProbeSystem_getModFileName(JNIEnv* env, jclass) {
    VEL_TRACE("Java_com_velora_probe_ProbeSystem_getModFileName(JNIEnv*, jclass)");
    return currentText(env, "getModFileName", modFileName);
}

JNIEXPORT void JNICALL Java_com_velora_probe_ProbeSystem_setServerIdentity(JNIEnv* env, jclass,
                                                                           jstring version,
                                                                           jstring componentId,
                                                                           jint adminPort) {
    VEL_TRACE(
        "Java_com_velora_probe_ProbeSystem_setServerIdentity(JNIEnv*, jclass, jstring, jstring, "
        "jint)");
    atJniEdge("setServerIdentity", [&] {
        ProbeMgr* const probe = ProbeMgr::getInstance();
        const UtfChars versionText(env, version);
        const UtfChars componentText(env, componentId);
        handleJavaException(env);
        probe->setAppServerVersion(versionText.get());
        probe->setComponentId(componentText.get());
        probe->setAdminServerPort(adminPort);
    });
}

}  // extern "C"
