// Who is behind a JNIEnv*: JVMPI names threads by that pointer, JVMTI by a Java reference.
//
// The map begins to follow threads when it is first needed (a thread event switched on, or a
// question about another thread), so that a process that never asks pays nothing per thread.
// Threads that started earlier are found when asked for, by reading where each Java thread keeps
// its native half. A thread leaves the map when it ends, because the VM may give its JNIEnv* to
// another one.
//
// Threads: any. The map's lock guards memory only; no Java code runs under it.
#pragma once

#include "jvmpi/Jvmti.h"
#include "jvmpi/jvmpi.h"

namespace adapter {

// Starts to follow thread starts and ends. Any phase.
void followThreads();

// A thread as a caller may use it: a reference of its own to the Java thread, null when the thread
// is unknown or has ended. For the calling thread itself this is the thread that runs now, be it a
// virtual one.
LocalRef<jthread> threadOf(JNIEnv* caller, JNIEnv* wanted);

// The JNIEnv* of a thread; null when it is not alive or cannot be told.
JNIEnv* envOf(JNIEnv* caller, jthread thread);

// For the VM's thread events. threadBegan answers false when the thread was known as begun already.
bool threadBegan(JNIEnv* env, jthread thread);
void threadEnded(JNIEnv* env);

// One pointer per thread, kept for the agent until the thread ends. Null for unknown threads.
void setThreadLocal(JNIEnv* wanted, void* value);
void* threadLocal(JNIEnv* wanted);

// CPU nanoseconds of a thread when it was suspended last and the time before; -1: never suspended.
struct SuspendMarks {
    jlong last = -1;
    jlong before = -1;
    bool suspended = false;
};
void noteSuspended(JNIEnv* wanted, jlong cpuNs);
void noteResumed(JNIEnv* wanted);
SuspendMarks suspendMarks(JNIEnv* wanted);

}  // namespace adapter
