// Finds the JNIEnv* of a Java thread without running on it.
#pragma once

#include "jvmpi/Jvmti.h"

namespace adapter {

// HotSpot keeps the address of a thread's native half in the private field java.lang.Thread.eetop;
// its JNIEnv lies at a fixed distance inside. The distance differs between releases, so it is
// measured on the calling thread, and believed only while a later measurement agrees. Null when the
// thread is not running, or the VM is built otherwise.
JNIEnv* nativeEnvOf(JNIEnv* caller, jthread thread) noexcept;

// Tells of a thread whose JNIEnv is known for sure; one that disagrees ends the belief in the
// measured distance.
void confirmNativeEnv(JNIEnv* env, jthread thread) noexcept;

}  // namespace adapter
