// The thread-dump locator. On this platform both entry points are inert on purpose: no dump is made
// and none is read. The routines that find and parse the VM's text dumps are in
// diagnostics/javacore.h and must stay unreached from here.
#pragma once

#include <jni.h>

// Always -1; writes nothing to filename or offset.
int generateThreadDump(JNIEnv* env, char* filename, long* offset);

// Always 0 frames; does not touch the array.
int readJavaCore(JNIEnv* env, unsigned long tid, jobjectArray& arry);
