// The natives of com.velora.probe.ProbeController and com.velora.probe.ProbeUtils: the Java side's
// controls of the collector. Each is a thin skin over ProbeMgr. (ProbeController.setupGps is with
// the correlation tokens in capture/command_agent.cpp.)
#include <jni.h>

#include "agent/ProbeMgr.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/ProbeLog.h"
#include "transport/EvtAgentMgr.h"

extern "C" {

JNIEXPORT jboolean JNICALL Java_com_velora_probe_ProbeUtils_customServiceStart(JNIEnv* env,
                                                                               jobject) {
    VEL_TRACE("Java_com_velora_probe_ProbeUtils_customServiceStart(JNIEnv*, jobject)");
    return atJniEdge("customServiceStart", jboolean{JNI_FALSE}, [&]() -> jboolean {
        return ProbeMgr::customServiceStart(env) ? JNI_TRUE : JNI_FALSE;
    });
}

JNIEXPORT void JNICALL Java_com_velora_probe_ProbeUtils_customServiceShutDown(JNIEnv* env,
                                                                              jobject) {
    VEL_TRACE("Java_com_velora_probe_ProbeUtils_customServiceShutDown(JNIEnv*, jobject)");
    atJniEdge("customServiceShutDown", [&] { ProbeMgr::customServiceShutDown(env); });
}

JNIEXPORT void JNICALL Java_com_velora_probe_ProbeController_startNativeProbe(JNIEnv* env,
                                                                              jobject) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_startNativeProbe(JNIEnv*, jobject)");
    atJniEdge("startNativeProbe", [&] { ProbeMgr::getInstance()->probeStart(env); });
}

JNIEXPORT void JNICALL Java_com_velora_probe_ProbeController_stopNativeProbe(JNIEnv* env, jobject) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_stopNativeProbe(JNIEnv*, jobject)");
    atJniEdge("stopNativeProbe", [&] { ProbeMgr::getInstance()->probeStop(env); });
}

JNIEXPORT jint JNICALL Java_com_velora_probe_ProbeController_getMonitoringLevel(JNIEnv*, jobject) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_getMonitoringLevel(JNIEnv*, jobject)");
    return ProbeMgr::getProbeLevel() + 1000;
}

JNIEXPORT jboolean JNICALL Java_com_velora_probe_ProbeController_setModLevel(JNIEnv*, jobject,
                                                                             jint level) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_setModLevel(JNIEnv*, jobject, jint)");
    return atJniEdge("setModLevel", jboolean{JNI_FALSE}, [&]() -> jboolean {
        if (ProbeMgr::isProbeDisabled()) {
            ProbeLog::_log("Native probe is disabled, rejecting setModLevel");
            return JNI_FALSE;
        }
        return ProbeMgr::setProbeLevel(level) ? JNI_TRUE : JNI_FALSE;
    });
}

JNIEXPORT jboolean JNICALL Java_com_velora_probe_ProbeController_restartOnToFromL1(JNIEnv*,
                                                                                   jobject) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_restartOnToFromL1(JNIEnv*, jobject)");
    return ProbeMgr::restartOnToL1() ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jboolean JNICALL Java_com_velora_probe_ProbeController_isNativeProbeEnabled(JNIEnv*,
                                                                                      jobject) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_isNativeProbeEnabled(JNIEnv*, jobject)");
    return ProbeMgr::isProbeDisabled() ? JNI_FALSE : JNI_TRUE;
}

JNIEXPORT void JNICALL Java_com_velora_probe_ProbeController_setIncludeExcludeList(
    JNIEnv* env, jobject, jobjectArray include, jobjectArray exclude) {
    VEL_TRACE(
        "Java_com_velora_probe_ProbeController_setIncludeExcludeList(JNIEnv*, jobject, "
        "jobjectArray, "
        "jobjectArray)");
    atJniEdge("setIncludeExcludeList",
              [&] { ProbeMgr::setIncludeExcludeList(env, include, exclude); });
}

JNIEXPORT jboolean JNICALL Java_com_velora_probe_ProbeController_isJvmpiEnabled(JNIEnv*, jobject) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_isJvmpiEnabled(JNIEnv*, jobject)");
    return ProbeMgr::isJVMPIEnabled() ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jboolean JNICALL Java_com_velora_probe_ProbeController_initializeJVMPI(JNIEnv*, jobject) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_initializeJVMPI(JNIEnv*, jobject)");
    return atJniEdge("initializeJVMPI", jboolean{JNI_FALSE}, []() -> jboolean {
        return ProbeMgr::initializeJVMPI() ? JNI_TRUE : JNI_FALSE;
    });
}

// The server is about to exit: has the agents send what is queued without waiting for their
// periods, for so many milliseconds at most. Nothing is sent afterwards until the probe is started
// again.
JNIEXPORT void JNICALL Java_com_velora_probe_ProbeController_flushNativeProbe(JNIEnv*, jobject,
                                                                              jint ms) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_flushNativeProbe(JNIEnv*, jobject, jint)");
    atJniEdge("flushNativeProbe", [&] {
        if (EvtAgentMgr* const agents = evtMgr_.load(std::memory_order_acquire); agents != nullptr)
            agents->flush(ms);
    });
}

// After that flush: the workers' loops end, so that the dying VM does not wait for them.
JNIEXPORT jboolean JNICALL Java_com_velora_probe_ProbeController_endWorkers(JNIEnv*, jobject,
                                                                            jint ms) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_endWorkers(JNIEnv*, jobject, jint)");
    return atJniEdge("endWorkers", jboolean{JNI_FALSE}, [&]() -> jboolean {
        EvtAgentMgr* const agents = evtMgr_.load(std::memory_order_acquire);
        return agents == nullptr || agents->endLoops(ms) ? JNI_TRUE : JNI_FALSE;
    });
}

}  // extern "C"
