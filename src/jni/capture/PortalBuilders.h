// Builds the events of portals, business processes and web services.
//
// Requests nest by the thread's depth like HTTP requests; everything else stands at the depth of
// the current request. Works on the calling thread, fills every field that a record carries, and
// queues. False (or nothing) when the thread has no record. The caller has asked the memory
// monitor's gate.
#pragma once

#include <jni.h>

#include "event/PortalEvents.h"

namespace portal {

// Requests. A portal page also becomes the thread's current page, until its gateway servlet ends.
void beginPage(JNIEnv* env, jstring pageName, jstring applicationName, jstring url,
               jstring userName);
void endPage(JNIEnv* env);
void beginPortlet(JNIEnv* env, jstring portletName, jstring applicationName, jstring url,
                  jstring userName);
void endPortlet(JNIEnv* env);
void beginDoVerbFor(JNIEnv* env, jstring requestName, jstring applicationName, jstring url);
void endDoVerbFor(JNIEnv* env);
void beginPollForEvents(JNIEnv* env, jstring requestName, jstring applicationName, jstring url);
void endPollForEvents(JNIEnv* env);

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

void beginClient(JNIEnv* env, jstring applicationName, jstring operation, jstring url);
void endClient(JNIEnv* env);
void beginProvider(JNIEnv* env, jstring applicationName, jstring operation, jstring url);
void endProvider(JNIEnv* env);
bool appendFault(JNIEnv* env, EventSubType phase, jstring applicationName, jstring faultCode,
                 jstring faultString);

}  // namespace webservice
