// Garbage-collection start and finish.
//
// The VM tells of them in its own thread, stopped world and without a JNIEnv; an agent's handler
// that took a lock there could hang the process, because the lock's owner may be standing still. So
// the callback only posts a semaphore, and a thread of ours sends the events with its own JNIEnv:
// the start usually still during the pause, the finish right after it.
#pragma once

#include "jvmpi/Jvmti.h"

namespace adapter {

// Brings notifications and, in a living VM, the sending thread in line with what is on.
bool followGc();

// Ends the sending thread, which the VM would otherwise wait for when it exits.
void endGcSender();

void JNICALL onGcStart(jvmtiEnv*);
void JNICALL onGcFinish(jvmtiEnv*);

}  // namespace adapter
