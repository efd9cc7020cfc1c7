// Natives of com.velora.probe.log.ProbeLogger: the Java side's way into the collector's logs.
#pragma once

#include <jni.h>

extern "C" {

// Writes the text of a LogMessages key; of a longer message only the first 2000 bytes count.
JNIEXPORT void JNICALL Java_com_velora_probe_log_ProbeLogger_write(JNIEnv* env, jclass, jint level,
                                                                   jstring message);
JNIEXPORT void JNICALL Java_com_velora_probe_log_ProbeLogger_writeText(JNIEnv* env, jclass,
                                                                       jint level, jstring text);
JNIEXPORT void JNICALL Java_com_velora_probe_log_ProbeLogger_setNativeProbeLoggingLevel(JNIEnv* env,
                                                                                        jclass,
                                                                                        jint level);
JNIEXPORT jstring JNICALL Java_com_velora_probe_log_ProbeLogger_getLogFileName(JNIEnv* env, jclass);
}
