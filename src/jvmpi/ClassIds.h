// Class ids: the tag of a class's java.lang.Class object in the adapter's environment, and the way
// back.
//
// An id is given when it is first asked for and never given again. Only class mirrors carry tags in
// that environment, so a freed tag tells of an unloaded class: its table entry goes and, if the
// agent wants it, the unload event is sent.
#pragma once

#include <functional>

#include "jvmpi/Jvmti.h"
#include "jvmpi/jvmpi.h"

namespace adapter {

// Null when memory is exhausted or the VM is in no phase for it. No JNI call is made for a class
// that has its id already.
jobjectID idOfClass(JNIEnv* env, jclass type);

// Empty when the class was unloaded or the id is none of a class.
LocalRef<jclass> classOfId(JNIEnv* env, jobjectID id);

// JVMTI tells of a freed tag, in a thread and at a moment where hardly anything is allowed: the tag
// is only queued.
void JNICALL onObjectFree(jvmtiEnv*, jlong tag);

// What onObjectFree calls after queueing; null: nobody waits. Must do no more than post a
// semaphore.
void setFreedListener(void (*listener)());

// Takes the unloaded classes off the queue, oldest first, and forgets them.
void drainUnloaded(const std::function<void(jobjectID)>& each);

}  // namespace adapter
