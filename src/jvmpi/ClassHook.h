// The class-load hook: the agent sees, and may replace, the bytes of each class as it is defined.
#pragma once

#include "jvmpi/Jvmti.h"

namespace adapter {

// Turns the VM's hook on while the event is on. The VM must then make class files available that it
// would otherwise take ready-made from its archive, so it stays off until an agent asks.
bool followClassHook();

void JNICALL onClassFileLoadHook(jvmtiEnv*, JNIEnv* env, jclass redefined, jobject loader,
                                 const char* name, jobject protectionDomain, jint length,
                                 const unsigned char* bytes, jint* newLength,
                                 unsigned char** newBytes);

}  // namespace adapter
