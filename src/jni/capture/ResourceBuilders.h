// Builds the events of resources that are no plain timed call (Capture.h has those): queue
// operations with a correlation token, summaries of a period, exceptions, and the server's own
// status.
//
// Every function works on the calling thread, fills every field (a null string gives the empty
// text, so no field that a record carries is null), cuts texts at the memory monitor's limits,
// stamps both clocks and queues. The depth is that of the thread's current request. False when
// nothing was queued. The caller has asked the memory monitor's gate.
#pragma once

#include <jni.h>

#include "event/RequestEvents.h"
#include "event/ResourceEvents.h"

namespace resource {

// A queue operation that carries a correlation token; a null token has no bytes.
bool appendGPSMQ(JNIEnv* env, EventSubType phase, GPSMQ_ACTION action, jstring queueName,
                 jbyteArray token);

// Summaries of a period. snapShotTime and average times in the units that the Java side chose.
bool appendCTG(JNIEnv* env, jstring gatewayName, jstring serverName, jstring progName,
               jlong snapShotTime, jint count, jlong avgTimeTaken);
// One entry per element; arrays of different lengths count as long as the shortest.
bool appendMQI(JNIEnv* env, jstring mgrName, jstring queueName, jlong snapShotTime,
               jbyteArray types, jintArray counts, jlongArray avgTimesTaken);

// The stack trace may be as long as an SQL text.
bool appendException(JNIEnv* env, jstring exception, jstring className, jstring methodName,
                     jstring stackTrace);
bool appendPSStatus(JNIEnv* env, jstring status);

}  // namespace resource
