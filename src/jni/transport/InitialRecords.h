// What a server is told anew after a connection, besides the initial records themselves.
#pragma once

#include <jni.h>

// Has the Java side emit every class event again, on the calling thread's queue. A missing class or
// method is told once; no Java exception stays pending.
void requestClassEvents(JNIEnv* env);
