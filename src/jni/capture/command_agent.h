// The natives at the boundaries of the server's units of work: HTTP, EJB and IIOP requests,
// correlated (GPS) calls, trace requests, thread ids. Stack traces, thread status and thread dumps,
// which look at other threads, are in diagnostics/thread_natives.h.
//
// Each runs on the Java thread that called it, asks the memory monitor's gate first, and nests
// requests by the depth kept in the thread's record. Integer results are the thread's id, 0 when
// the thread has no record and none can be made.
#pragma once

#include <jni.h>

// Queues a trace request (no depth change) on the calling thread.
void createTraceRequest(JNIEnv* env, jstring requestName, jstring applicationName, jstring url);

// The calling thread's correlation token as a new byte[4], handed out once; zeros when there is
// none.
jbyteArray getGpsToken(JNIEnv* env);

extern "C" {

JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_startNativeHttpRequest(
    JNIEnv* env, jobject self, jobject request, jstring requestName, jstring applicationName,
    jstring url, jstring userName);
JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_finishNativeHttpRequest(
    JNIEnv* env, jobject self, jstring requestName, jstring applicationName, jstring url);
JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_errorNativeHttpRequest(
    JNIEnv* env, jobject self, jstring requestName, jstring applicationName, jstring err);

JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_startIIOPServerRequest(
    JNIEnv* env, jobject self, jstring className, jstring methodName);
JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_finishIIOPServerRequest(JNIEnv* env,
                                                                                   jobject self);
JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_startIIOPClientRequest(
    JNIEnv* env, jobject self, jstring className, jstring methodName);
JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_finishIIOPClientRequest(JNIEnv* env,
                                                                                   jobject self);

JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_beginNativeEJBRequest(
    JNIEnv* env, jobject self, jstring className, jstring methodName, jstring descriptor);
JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_endNativeEJBRequest(
    JNIEnv* env, jobject self, jstring className, jstring methodName, jstring descriptor);

JNIEXPORT void JNICALL
Java_com_velora_command_CommandAgent_startNativeGpsInvokeRequest(JNIEnv* env, jobject self);
JNIEXPORT void JNICALL Java_com_velora_command_CommandAgent_endNativeGpsInvokeRequest(JNIEnv* env,
                                                                                      jobject self);
JNIEXPORT void JNICALL Java_com_velora_command_CommandAgent_startNativeGpsReceiveRequest(
    JNIEnv* env, jobject self, jint gpsToken);
JNIEXPORT void JNICALL Java_com_velora_command_CommandAgent_completeNativeGpsReceiveRequest(
    JNIEnv* env, jobject self, jint gpsToken);
JNIEXPORT jbyteArray JNICALL Java_com_velora_command_CommandAgent_getNativeGpsToken(JNIEnv* env,
                                                                                    jobject self);
JNIEXPORT void JNICALL Java_com_velora_probe_ProbeController_setupGps(JNIEnv* env, jobject self,
                                                                      jstring regMask);

JNIEXPORT void JNICALL Java_com_velora_probe_ThreadManager_issueTraceRequest(JNIEnv* env,
                                                                             jobject self);

JNIEXPORT jint JNICALL Java_com_velora_command_CommandAgent_getThreadId(JNIEnv* env, jobject self,
                                                                        jstring threadName,
                                                                        jstring groupName);
JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_getEnv(JNIEnv* env, jobject self);

}  // extern "C"
