// What a thread does, stopping and resuming it, and threads of the agent's own.
#pragma once

#include "jvmpi/Jvmti.h"
#include "jvmpi/jvmpi.h"

namespace adapter {

// JVMPI_THREAD_* with the SUSPENDED and INTERRUPTED bits; 0 for a thread that is unknown, not
// started or ended.
jint threadStatus(JNIEnv* wanted);

void suspendThread(JNIEnv* wanted);
void resumeThread(JNIEnv* wanted);

// All in one VM call; results[i] is JVMPI_SUCCESS or JVMPI_FAIL for list[i].
void suspendThreads(jint count, JNIEnv** list, jint* results);
void resumeThreads(jint count, JNIEnv** list, jint* results);

// Whether a suspended thread has used CPU since the suspension before this one; a running one,
// since its last suspension. True when that cannot be told.
bool threadHasRun(JNIEnv* wanted);

// Runs body on a new daemon thread of the VM, which inherits nothing from the calling one: neither
// thread-locals nor class loader, so that no application is held in memory. priority: 1 to 10. Only
// while the VM is up.
bool startAgentThread(JNIEnv* env, const char* name, jint priority, jvmtiStartFunction body,
                      void* argument);

// The agent's own way to a thread; body is called with null.
jint createSystemThread(const char* name, jint priority, void (*body)(void*));

}  // namespace adapter
