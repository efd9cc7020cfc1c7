#include "diagnostics/threaddump.h"

#include "foundation/Log.h"

int generateThreadDump(JNIEnv*, char*, long*) {
    VEL_TRACE("generateThreadDump(JNIEnv*, char*, long*)");
    VEL_DEBUG_MIN("generateThreadDump", "No javacore is generated");
    return -1;
}

int readJavaCore(JNIEnv*, unsigned long, jobjectArray&) {
    VEL_TRACE("readJavaCore(JNIEnv*, unsigned long, jobjectArray&)");
    return 0;
}
