// Binding natives at run time. The runtime classes live in the boot loader, where the VM does not
// find the library's exported names; a helper class of the Java side therefore calls one native
// with each of them, and that one is bound as soon as the VM can resolve classes.
#include <atomic>
#include <cstring>
#include <iterator>

#include "agent/MethodLevelModule.h"
#include "agent/velora.h"
#include "diagnostics/LockAgentMgr.h"
#include "diagnostics/heapdump.h"
#include "foundation/JniEdge.h"
#include "foundation/JniScope.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Utils.h"

std::atomic<bool> isJVMInitializationDone{false};
std::atomic<bool> isBcmBootstrapNativeRegistered{false};
std::atomic<bool> inRegisterBcmBootstrapNative{false};

namespace {

constexpr char kHelperClass[] = "com/velora/bcm/bootstrap/BcmBootstrapDefineHelper";
constexpr char kCanNotRegister[] =
    "Can not register defineNativeMethodsForClassNative for "
    "com.velora.bcm.bootstrap.BcmBootstrap.class";

JNINativeMethod native(const char* name, const char* signature, void* function) {
    return {const_cast<char*>(name), const_cast<char*>(signature), function};
}

template <typename Function>
void* address(Function* function) {
    return reinterpret_cast<void*>(function);
}

// JNI_OK, the VM's error, or JNI_OK when the class is none of the three: then nothing is
// registered.
jint registerNativesOf(JNIEnv* env, jclass clazz, const char* className) {
    if (std::strcmp(className, "com.velora.probe.l3trace.BcmRuntime") == 0) {
        const JNINativeMethod methods[] = {
            native("appendL3Event", "(BI)Z",
                   address(Java_com_velora_probe_l3trace_BcmRuntime_appendL3Event)),
            native("sendClassEventNative",
                   "(ILjava/lang/String;[I[Ljava/lang/String;[Ljava/lang/String;)Z",
                   address(Java_com_velora_probe_l3trace_BcmRuntime_sendClassEventNative)),
            native("sendClassUnloadEventNative", "(ILjava/lang/String;[I)Z",
                   address(Java_com_velora_probe_l3trace_BcmRuntime_sendClassUnloadEventNative)),
        };
        return env->RegisterNatives(clazz, methods, std::size(methods));
    }
    if (std::strcmp(className, "com.velora.probe.heap.HeapAnalysisRuntime") == 0) {
        const JNINativeMethod methods[] = {
            native(
                "nativeHeapAllocationStart", "(IILjava/lang/String;)V",
                address(Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationStart)),
            native("nativeHeapAllocationEnd", "(IILjava/lang/String;)V",
                   address(Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationEnd)),
        };
        return env->RegisterNatives(clazz, methods, std::size(methods));
    }
    if (std::strcmp(className, "com.velora.probe.lock.LockAnalysisRuntime") == 0) {
        const JNINativeMethod method =
            native("appendEvent", "(BLjava/lang/String;IBLjava/lang/String;Ljava/lang/String;II)Z",
                   address(Java_com_velora_probe_lock_LockAnalysisRuntime_appendEvent));
        return env->RegisterNatives(clazz, &method, 1);
    }
    VEL_DEBUG_MIN("defineNativeMethodsForClassNative(JNIEnv*, jobject, jclass, jstring)",
                  "No native method registration for class %s", className);
    return JNI_OK;
}

void defineNatives(JNIEnv* env, jclass clazz, jstring className) {
    constexpr char kSignature[] =
        "defineNativeMethodsForClassNative(JNIEnv*, jobject, jclass, jstring)";
    if (clazz == nullptr || className == nullptr) return;
    const UtfChars name(env, className);
    if (name.get() == nullptr) {
        handleJavaException(env);
        return;
    }
    const jint result = registerNativesOf(env, clazz, name.get());
    handleJavaException(env);
    if (result != JNI_OK) {
        VEL_DEBUG_MIN(kSignature, "Native methods registration for class %s failed", name.get());
    } else {
        VEL_DEBUG_MIN(kSignature, "Successfully registered native methods for %s", name.get());
    }
}

}  // namespace

extern "C" JNIEXPORT void JNICALL
Java_com_velora_bcm_bootstrap_BcmBootstrap_defineNativeMethodsForClassNative(JNIEnv* env, jobject,
                                                                             jclass clazz,
                                                                             jstring className) {
    VEL_TRACE("defineNativeMethodsForClassNative(JNIEnv*, jobject, jclass, jstring)");
    atJniEdge("defineNativeMethodsForClassNative", [&] { defineNatives(env, clazz, className); });
}

void registerBcmBootstrapNative(JVMPI_Event* event) {
    constexpr char kSignature[] = "registerBcmBootstrapNative(JVMPI_Event*)";
    VEL_TRACE(kSignature);
    if (!isJVMInitializationDone.load() || inRegisterBcmBootstrapNative.exchange(true)) return;
    JNIEnv* const env = event->env_id;
    if (env == nullptr) {
        VEL_DEBUG_MIN(kSignature, "Can not obtain JNIEnv pointer");
        VEL_DEBUG_MIN(kSignature, kCanNotRegister);
        inRegisterBcmBootstrapNative.store(false);  // as it was: a later event tries again
        return;
    }
    const LocalRef helper(env, env->FindClass(kHelperClass));
    handleJavaException(env);
    if (!helper) {
        logMessage(msg::kBootstrapNotFound);
    } else {
        const JNINativeMethod method = native(
            "defineNativeMethodsForClassNative", "(Ljava/lang/Class;Ljava/lang/String;)V",
            address(Java_com_velora_bcm_bootstrap_BcmBootstrap_defineNativeMethodsForClassNative));
        const jint result = env->RegisterNatives(helper.get(), &method, 1);
        handleJavaException(env);
        // Intended, however odd it reads: success says nothing, and a failure that no trace shows
        // is reported with the message of success.
        if (result != JNI_OK) {
            if (traceOn(kDebugMin)) {
                VEL_DEBUG_MIN(kSignature, kCanNotRegister);
            } else {
                logMessage(msg::kBootstrapRegistered);
            }
        }
    }
    inRegisterBcmBootstrapNative.store(false);
    isBcmBootstrapNativeRegistered.store(true);
}
