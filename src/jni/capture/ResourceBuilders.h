// Builds the events of calls to resources outside the server, of exceptions, and of the server's
// own status.
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

bool appendSQL(JNIEnv* env, EventSubType phase, jstring dataSource, jstring sql);
bool appendJMS(JNIEnv* env, EventSubType phase, JMS_ACTION action, jstring serverName,
               jstring queueOrTopicName, jstring selector);
bool appendJCA(JNIEnv* env, EventSubType phase, jstring eisName);
bool appendJNDI(JNIEnv* env, EventSubType phase, jstring providerURL, jstring lookupName);
bool appendJDO(JNIEnv* env, EventSubType phase, jstring className, jstring methodName,
               jstring arguments);
bool appendMail(JNIEnv* env, EventSubType phase, jstring serverURL, jstring subject);

// action: a byte that the record carries as it is.
bool appendMQ(JNIEnv* env, EventSubType phase, jint action, jstring queueName,
              jstring queueMgrName);
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
