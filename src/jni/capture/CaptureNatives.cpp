// The natives of com.velora.probe.Capture.
#include <jni.h>

#include <cstring>
#include <memory>

#include "capture/Capture.h"
#include "capture/CaptureEdge.h"
#include "event/RegisteredTexts.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"
#include "transport/MemoryMonitor.h"

extern "C" {

JNIEXPORT jint JNICALL Java_com_velora_probe_Capture_register(JNIEnv* env, jclass, jstring text) {
    VEL_TRACE("Java_com_velora_probe_Capture_register(JNIEnv*, jclass, jstring)");
    return atJniEdge("register", jint{0}, [&]() -> jint {
        const std::unique_ptr<char[]> chars(Utils::java2c_string(env, text));
        // A longer one would have to be cut, at a limit that may change: it is copied each time.
        const auto limit = static_cast<std::size_t>(MemoryMonitor::getURLLimit());
        const bool fits = chars != nullptr && std::strlen(chars.get()) < limit;
        return fits ? RegisteredTexts::add(chars.get()) : 0;
    });
}

JNIEXPORT jboolean JNICALL Java_com_velora_probe_Capture_begin(JNIEnv* env, jclass, jint kind,
                                                               jstring a, jstring b, jstring c,
                                                               jint number) {
    VEL_TRACE(
        "Java_com_velora_probe_Capture_begin(JNIEnv*, jclass, jint, jstring, jstring, jstring, "
        "jint)");
    return capture::atCaptureEdge("begin", jboolean{JNI_FALSE}, [&]() -> jboolean {
        return capture::begin(env, kind, {a, b, c, nullptr}, number);
    });
}

JNIEXPORT jboolean JNICALL Java_com_velora_probe_Capture_beginRegistered(JNIEnv* env, jclass,
                                                                         jint kind, jint a, jint b,
                                                                         jstring c, jstring d,
                                                                         jint number) {
    VEL_TRACE(
        "Java_com_velora_probe_Capture_beginRegistered(JNIEnv*, jclass, jint, jint, jint, jstring, "
        "jstring, jint)");
    return capture::atCaptureEdge("beginRegistered", jboolean{JNI_FALSE}, [&]() -> jboolean {
        return capture::begin(env, kind, {CallText::number(a), CallText::number(b), c, d}, number);
    });
}

JNIEXPORT void JNICALL Java_com_velora_probe_Capture_end(JNIEnv* env, jclass, jint kind,
                                                         jint number, jboolean failed) {
    VEL_TRACE("Java_com_velora_probe_Capture_end(JNIEnv*, jclass, jint, jint, jboolean)");
    capture::atCaptureEdge("end", [&] { capture::end(env, kind, number, failed != JNI_FALSE); });
}

}  // extern "C"
