// Loads the test agent the way a host does: by -agentpath, or late by System.load.
#include <cstdio>

#include "jvmpi/Adapter.h"

extern "C" jint JNICALL JVM_OnLoad(JavaVM* vm, char* options, void* reserved);

namespace {

void noteDeath(JNIEnv*) {
    puts("host: before shut-down");
}

bool started = false;

void start(JavaVM* vm, char* options) {
    if (started) return;
    started = true;
    JavaVM* profiled = adapter::bringUp(vm, {.beforeShutDown = noteDeath});
    if (profiled != adapter::bringUp(vm, {})) puts("FAILED: two proxies");
    if (JVM_OnLoad(profiled, options, nullptr) == JNI_OK) {
        adapter::agentIsUp();
    } else {
        adapter::agentFailed();
    }
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char* options, void*) {
    start(vm, options);
    return JNI_OK;
}

JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
    start(vm, nullptr);
    return JNI_VERSION_1_8;
}
}
