// See ProbeLogger.h.
#include "foundation/ProbeLogger.h"

#include <cstring>
#include <memory>

#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/ProbeLog.h"
#include "foundation/ProbeQLog.h"
#include "foundation/Utils.h"

namespace {

constexpr std::size_t kLongestMessage = 2000;  // bytes of modified UTF-8

// A copy of at most kLongestMessage bytes that does not end inside a character; null for null.
std::unique_ptr<char[]> copyMessage(JNIEnv* env, jstring message) {
    std::unique_ptr<char[]> text(Utils::java2c_string(env, message));
    if (text == nullptr || std::strlen(text.get()) <= kLongestMessage) return text;
    std::size_t end = kLongestMessage;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
    text[end] = '\0';
    return text;
}

}  // namespace

void Java_com_velora_probe_log_ProbeLogger_write(JNIEnv* env, jclass, jint level, jstring message) {
    VEL_TRACE("Java_com_velora_probe_log_ProbeLogger_write(JNIEnv*, jclass, jint, jstring)");
    atJniEdge("ProbeLogger.write",
              [&] { ProbeLog::_logV(level, copyMessage(env, message).get()); });
}

void Java_com_velora_probe_log_ProbeLogger_writeText(JNIEnv* env, jclass, jint level,
                                                     jstring text) {
    VEL_TRACE("Java_com_velora_probe_log_ProbeLogger_writeText(JNIEnv*, jclass, jint, jstring)");
    atJniEdge("ProbeLogger.writeText",
              [&] { ProbeLog::writeText(level, copyMessage(env, text).get()); });
}

void Java_com_velora_probe_log_ProbeLogger_setNativeProbeLoggingLevel(JNIEnv*, jclass, jint level) {
    VEL_TRACE(
        "Java_com_velora_probe_log_ProbeLogger_setNativeProbeLoggingLevel(JNIEnv*, jclass, jint)");
    atJniEdge("ProbeLogger.setNativeProbeLoggingLevel", [&] { ProbeQLog::setLogLevel(level); });
}

jstring Java_com_velora_probe_log_ProbeLogger_getLogFileName(JNIEnv* env, jclass) {
    VEL_TRACE("Java_com_velora_probe_log_ProbeLogger_getLogFileName(JNIEnv*, jclass)");
    return atJniEdge("ProbeLogger.getLogFileName", jstring{nullptr}, [&]() -> jstring {
        const char* const name = ProbeLog::getLogFileName();
        return name == nullptr ? nullptr : env->NewStringUTF(name);
    });
}
