// Builds the events of portals and web services that are no plain timed call (Capture.h has those):
// a portal's steps and summaries, and faults. They stand at the depth of the current request. Works
// on the calling thread, fills every field that a record carries, and queues. False (or nothing)
// when the thread has no record. The caller has asked the memory monitor's gate.
#pragma once

#include <jni.h>

#include "event/PortalEvents.h"

namespace portal {

// A portal's gateway servlet. Its END carries the page that was shown meanwhile.
bool appendGatewayServlet(JNIEnv* env, EventSubType phase);

// A step of a portal, told by its method: kinds 37 to 42. False for any other kind.
bool appendMethod(JNIEnv* env, EventType type, EventSubType phase, jstring methodName);

// Summaries of a period. Kinds 18 and 19; kinds 34, 35 and 36. False for any other kind.
bool appendAccessChecks(JNIEnv* env, EventType type, jint count, jlong avgTimeTaken);
bool appendAggregate(JNIEnv* env, EventType type, jint count, jlong avgTimeTaken);

struct CountAndTime {
    jint count;
    jlong avgTime;
};
struct CredentialVault {
    CountAndTime getCredential, setCredentialBinary, setCredentialUserPassword, createSlot,
        deleteSlot;
};
bool appendCredentialVault(JNIEnv* env, const CredentialVault& summary);
struct ContentAccess {
    CountAndTime getInputStream, getMarkup, getURL, include;
};
bool appendContentAccess(JNIEnv* env, const ContentAccess& summary);

}  // namespace portal

namespace webservice {

bool appendFault(JNIEnv* env, EventSubType phase, jstring applicationName, jstring faultCode,
                 jstring faultString);

}  // namespace webservice
