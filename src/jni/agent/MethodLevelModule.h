// Natives for methods whose ids come from Java instrumentation instead of the VM.
//
// com.velora.command.MethodLevelModule
//     static void initializeClass(int classId, String className, int[] methodIds, String[]
//     methodNames,
//                                 String[] methodSignatures)
//     static void unloadClass(int classId, String className, int[] methodIds)
// com.velora.probe.l3trace.BcmRuntime
//     static boolean appendL3Event(byte phase, int methodId)     phase 0: entry, 1: exit
//     static boolean sendClassEventNative(int classId, String className, int[] methodIds,
//                                         String[] methodNames, String[] methodSignatures)
//     static boolean sendClassUnloadEventNative(int classId, String className, int[] methodIds)
//
// The contract with Java: class ids and method ids are chosen by Java, are not 0, and are unique in
// the process; the three arrays have the same length. A class is announced before its first method
// event. An announcement registers the class in the class and method tables (once; repeating it, as
// after a reconnection, only sends the record again) and queues a class-load event, which is never
// dropped, so that the Publish Server can name the methods. A withdrawal is the reverse. The
// results tell whether an event was queued; a null name, arrays of different lengths or a disabled
// probe give false.
#pragma once

#include <jni.h>

extern "C" {

JNIEXPORT void JNICALL Java_com_velora_command_MethodLevelModule_initializeClass(
    JNIEnv* env, jobject self, jint classId, jstring className, jintArray methodIds,
    jobjectArray names, jobjectArray signatures);
JNIEXPORT void JNICALL Java_com_velora_command_MethodLevelModule_unloadClass(
    JNIEnv* env, jobject self, jint classId, jstring className, jintArray methodIds);
JNIEXPORT jboolean JNICALL Java_com_velora_probe_l3trace_BcmRuntime_appendL3Event(JNIEnv* env,
                                                                                  jclass self,
                                                                                  jbyte phase,
                                                                                  jint methodId);
JNIEXPORT jboolean JNICALL Java_com_velora_probe_l3trace_BcmRuntime_sendClassEventNative(
    JNIEnv* env, jclass self, jint classId, jstring className, jintArray methodIds,
    jobjectArray names, jobjectArray signatures);
JNIEXPORT jboolean JNICALL Java_com_velora_probe_l3trace_BcmRuntime_sendClassUnloadEventNative(
    JNIEnv* env, jclass self, jint classId, jstring className, jintArray methodIds);

}  // extern "C"

// For servers with a just-in-time compiler that had to be told to leave monitored classes alone.
// Today's VMs keep method events exact by themselves: does nothing.
void turnOffJitOfApps();
