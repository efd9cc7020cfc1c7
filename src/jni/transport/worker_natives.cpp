// The natives through which Java threads run the workers' loops: classes
// com.velora.probe.event.EventAgent, com.velora.probe.event.NetworkAgent and
// com.velora.network.NetworkAgent.
#include <jni.h>

#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "transport/EvtAgentMgr.h"
#include "transport/NetworkAgentMgr.h"

extern "C" {

JNIEXPORT void JNICALL Java_com_velora_network_NetworkAgent_initCppSide(JNIEnv*, jobject) {
    VEL_TRACE("Java_com_velora_network_NetworkAgent_initCppSide(JNIEnv*, jobject)");
}

// Returns when the agent has been stopped.
JNIEXPORT void JNICALL Java_com_velora_probe_event_NetworkAgent_startThread(JNIEnv* env, jobject,
                                                                            jint id) {
    VEL_TRACE("Java_com_velora_probe_event_NetworkAgent_startThread(JNIEnv*, jobject, jint)");
    atJniEdge("NetworkAgent.startThread",
              [&] { NetworkAgentMgr::getInstance()->startNetworkAgent(env, id); });
}

JNIEXPORT void JNICALL Java_com_velora_probe_event_NetworkAgent_stopThread(JNIEnv* env, jobject,
                                                                           jint id) {
    VEL_TRACE("Java_com_velora_probe_event_NetworkAgent_stopThread(JNIEnv*, jobject, jint)");
    atJniEdge("NetworkAgent.stopThread",
              [&] { NetworkAgentMgr::getInstance()->stopNetworkAgent(env, id); });
}

JNIEXPORT jint JNICALL Java_com_velora_probe_event_NetworkAgent_getNetAgentCount(JNIEnv*, jobject) {
    VEL_TRACE("Java_com_velora_probe_event_NetworkAgent_getNetAgentCount(JNIEnv*, jobject)");
    return atJniEdge("NetworkAgent.getNetAgentCount", jint{0},
                     [] { return jint{NetworkAgentMgr::getInstance()->getNetworkAgentCount()}; });
}

// Returns when the agent has been stopped.
JNIEXPORT void JNICALL Java_com_velora_probe_event_EventAgent_startThread(JNIEnv* env, jobject,
                                                                          jint id) {
    VEL_TRACE("Java_com_velora_probe_event_EventAgent_startThread(JNIEnv*, jobject, jint)");
    atJniEdge("EventAgent.startThread",
              [&] { EvtAgentMgr::getInstance()->startEvtAgent(env, id); });
}

JNIEXPORT void JNICALL Java_com_velora_probe_event_EventAgent_stopThread(JNIEnv*, jobject,
                                                                         jint id) {
    VEL_TRACE("Java_com_velora_probe_event_EventAgent_stopThread(JNIEnv*, jobject, jint)");
    atJniEdge("EventAgent.stopThread", [&] { EvtAgentMgr::getInstance()->stopEvtAgent(id); });
}

JNIEXPORT jint JNICALL Java_com_velora_probe_event_EventAgent_getEvtAgentCount(JNIEnv*, jobject) {
    VEL_TRACE("Java_com_velora_probe_event_EventAgent_getEvtAgentCount(JNIEnv*, jobject)");
    return atJniEdge("EventAgent.getEvtAgentCount", jint{0},
                     [] { return jint{EvtAgentMgr::getInstance()->getEvtAgentCount()}; });
}

}  // extern "C"
