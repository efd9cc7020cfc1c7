// The natives that look at another thread by its id: its stack, its status, its cancel and suspend
// flags, and the thread dump.
//
// Threads: any Java thread may ask about any other; the flags of a record are plain stores by
// design, the record itself is valid until its thread ended and its queue is drained.
#pragma once

#include <jni.h>

#include <atomic>

// Writes the file name (256 bytes) and offset of a new thread dump; 0, or an error code.
using ThreadDumpGenerator = int (*)(JNIEnv* env, char* filename, long* offset);
// What the native does, with any generator: this platform's makes no dump.
jint dumpThreads(JNIEnv* env, jobject info, ThreadDumpGenerator generate);

// java/lang/String, looked up on first use and kept for the life of the process.
extern std::atomic<jclass> javastring;

extern "C" {

// Three strings a frame, callee first: class (slash form), method, signature; elements of frames
// that are not known stay null. The array has maxDepth x 3 elements; a depth above 32768 counts as
// 32768. Null when the probe is disabled, maxDepth is 0 or less, or the thread is unknown, ended or
// cancelled.
JNIEXPORT jobjectArray JNICALL Java_com_velora_probe_ThreadManager_getStackTrace(
    JNIEnv* env, jobject self, jint threadId, jint maxDepth, jint jvmVendor);

// 1 runnable, 2 waits for a monitor, 3 waits for a condition, 0 other, with 0x8000 suspended and
// 0x4000 interrupted; 4: ended or cancelled; -1: unknown.
JNIEXPORT jint JNICALL Java_com_velora_probe_ThreadManager_getNativeThreadStatus(JNIEnv* env,
                                                                                 jobject self,
                                                                                 jint threadId);

// 4 cancels, 0x2000 resumes, 0x8000 suspends; anything else changes nothing.
JNIEXPORT void JNICALL Java_com_velora_probe_ThreadManager_setThreadStatus(JNIEnv* env,
                                                                           jobject self,
                                                                           jint threadId,
                                                                           jint threadStatus);

// Gives threadDumpInfo the file and offset of a new thread dump; 0, -1 or the generator's error
// code.
JNIEXPORT jint JNICALL Java_com_velora_command_CommandAgent_generateThreadDump(
    JNIEnv* env, jobject self, jobject threadDumpInfo);

}  // extern "C"
