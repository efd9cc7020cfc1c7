// Heap dump analysis: takes a heap dump through the VM interface, walks its records once and sums
// the objects up by class in a text of comma-separated lines.
//
// The counters, the class table and the summary are single global instances: two analyses at the
// same time are refused by the native (result 2), everything else here has one caller, the dump's
// own thread.
#pragma once

#include <jni.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "instrument/class_load.h"

// Bytes that a field of that signature takes in a dump: Z B 1, C S 2, I F 4, J D L [ 8, else 0.
std::size_t getSignatureTypeSize(char signature);

// 0: a dump can be afforded now, 1: not enough memory.
int testHeapEnvironment(JNIEnv* env);
// Asks the VM for a level-2 dump, which arrives through the dispatcher before this returns. Always
// 0; what the VM answered goes into the result of getHeapSnapShotData.
int getHeapDump();
// Called by the dispatcher with the dump's bytes: the summary of [begin, end) becomes ClzSumStr.
void processHeapDump(char* begin, char* end);

// The summary text, allocated with malloc; null when there is no memory for it. A damaged dump is
// read up to the damage.
[[nodiscard]] char* readHeapDump(const char* begin, const char* end);

// The number after the last "-Xmx" of a command line as atoi reads it, so "-Xmx512m" gives 512; 128
// when missing or 0.
int maxHeapFromCommandLine(const std::vector<std::string>& arguments);

// "MemAvailable" of a file like /proc/meminfo in bytes; -1 when it does not tell.
std::int64_t availableMemory(const char* meminfo);
// Whether that many bytes can be had: allocated for a trial, and not more than what is available
// (-1: unknown). The second test is needed because the system promises more memory than it has.
bool memoryCanHold(std::int64_t bytes, std::int64_t available);

extern std::uint32_t heapDumpCount;  // analyses since the library was loaded
extern char* ClzSumStr;              // the last summary until the native takes it; C heap

extern "C" {

JNIEXPORT jint JNICALL
Java_com_velora_command_heap_HeapUtil_testHeapDumpEnvironmentNative(JNIEnv* env, jobject self);
// Appends the summary to a StringBuffer. 0, also when there was no memory for the text and nothing
// is appended; 1 not enough memory for a dump, 2 another analysis is running, 3 the append failed
// in Java, 4 the VM takes no dumps.
JNIEXPORT jint JNICALL Java_com_velora_command_heap_HeapUtil_getHeapSnapShotData(JNIEnv* env,
                                                                                 jobject self,
                                                                                 jobject buffer);

// "(IILjava/lang/String;)V": method and source line of the allocation, class of the new object.
JNIEXPORT void JNICALL Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationStart(
    JNIEnv* env, jclass self, jint methodId, jint lineNumber, jstring className);
JNIEXPORT void JNICALL Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationEnd(
    JNIEnv* env, jclass self, jint methodId, jint lineNumber, jstring className);

}  // extern "C"
