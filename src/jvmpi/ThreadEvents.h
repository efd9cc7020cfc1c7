// Thread start and end, as they happen and on request.
#pragma once

#include "jvmpi/Jvmti.h"
#include "jvmpi/jvmpi.h"

namespace adapter {

// Lets the VM report threads when either event is on.
bool followThreadEvents();

void JNICALL onThreadStart(jvmtiEnv*, JNIEnv* env, jthread thread);
void JNICALL onThreadEnd(jvmtiEnv*, JNIEnv* env, jthread thread);

// The main thread is announced when the VM is up: its own start event comes later, in no fixed
// order, and is then skipped.
void announceMainThread(JNIEnv* env, jthread main);

// Sends the requested form of the start event about wanted, in the calling thread.
// JVMPI_FAIL when that thread is unknown.
jint requestThreadStart(JNIEnv* wanted);

}  // namespace adapter
