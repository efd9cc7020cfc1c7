// The natives of com.velora.probe.ThreadManager that the thread registry itself answers.
#include <jni.h>

#include <cstdio>
#include <string>

#include "event/ThreadMgr.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "transport/MemoryMonitor.h"

namespace {

// A new Java string; null, with no exception left pending, when the VM has no memory.
jstring javaString(JNIEnv* env, const char* text) {
    jstring const made = env->NewStringUTF(text);
    if (made == nullptr && env->ExceptionCheck()) env->ExceptionClear();
    return made;
}

}  // namespace

extern "C" JNIEXPORT jstring JNICALL
Java_com_velora_probe_ThreadManager_getNativeProbeStatus(JNIEnv* env, jclass) {
    VEL_TRACE("Java_com_velora_probe_ThreadManager_getNativeProbeStatus(JNIEnv*, jclass)");
    return atJniEdge("getNativeProbeStatus", jstring{}, [&]() -> jstring {
        const MemoryMonitor* const monitor = memMon_.load(std::memory_order_acquire);
        if (monitor == nullptr) return nullptr;
        char text[128];
        std::snprintf(text, sizeof text, "Approximate Velora Native Memory consumed(bytes): %ld \n",
                      static_cast<long>(monitor->getMemoryTaken()));
        return javaString(env, text);
    });
}

// The ids that have stopped since the last call, each as 21 characters and a semicolon.
extern "C" JNIEXPORT jstring JNICALL
Java_com_velora_probe_ThreadManager_getNativeStoppedThreadIDs(JNIEnv* env, jclass) {
    VEL_TRACE("Java_com_velora_probe_ThreadManager_getNativeStoppedThreadIDs(JNIEnv*, jclass)");
    return atJniEdge("getNativeStoppedThreadIDs", jstring{}, [&]() -> jstring {
        ThreadMgr* const manager = thrMgr_.load(std::memory_order_acquire);
        if (manager == nullptr) return nullptr;
        std::string text;
        for (const std::uint32_t id : manager->takeStoppedThreadIDs()) {
            char field[32];
            // Signed, as Java knows its thread ids.
            std::snprintf(field, sizeof field, "%21d;", static_cast<int>(id));
            text += field;
        }
        return text.empty() ? nullptr : javaString(env, text.c_str());
    });
}
