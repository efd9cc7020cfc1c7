// Class load and unload events.
#pragma once

#include "jvmpi/Jvmti.h"
#include "jvmpi/jvmpi.h"

namespace adapter {

// Class load is reported when a class is prepared: earlier the VM does not tell its methods.
bool followClassLoad();
void JNICALL onClassPrepare(jvmtiEnv*, JNIEnv* env, jthread, jclass type);

// Class unload: the VM tells of a freed mirror at a moment when nothing may be asked, so a thread
// of ours sends the event a little later. Only classes that were given an id are reported: no other
// means anything to the agent.
bool followClassUnload();

// Ends the sending thread, which the VM would otherwise wait for when it exits.
void endUnloadSender();

// Sends the requested form of the load event, in the calling thread. JVMPI_FAIL for an id that is
// no class's (any more) or a class that cannot be linked.
jint requestClassLoad(jobjectID id);

}  // namespace adapter
