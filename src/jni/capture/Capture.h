// One begin and one end for every kind of timed call: what com.velora.probe.Capture asks for.
//
// A kind is an EventType. Its texts, in the order in which they are given:
//
//     SERVLET, PORTAL_PAGE, PORTAL_PORTLET   name, application, url, user
//     EJB                                    class, method, descriptor
//     DOVERBFOR, POLLFOREVENTS               name, application, url
//     WS_CLIENT, WS_PROVIDER                 operation, application, url
//     IIOP_CLIENT, IIOP_SERVER               class, method
//     SQL                                    data source, statement
//     JMS (number: JMS_ACTION)               server, queue or topic, selector
//     MQ (number: the record's action)       queue, queue manager
//     JCA                                    name of the information system
//     JNDI                                   provider url, name looked up
//     JDO                                    class, method, arguments
//     MAIL                                   server url, subject
//     a portal's steps (37 to 42)            method
//     PORTAL_GATEWAY_SERVLET_REQUEST         none
//
// Requests and IIOP calls nest by the thread's depth; everything else stands at the depth of the
// current request. While capture is stopped, for a thread without a record and for a kind that is
// none of these nothing is queued.
// Threads: on the thread whose environment is given.
#pragma once

#include <jni.h>

#include "capture/CallText.h"

namespace capture {

// Whether an event was queued: then the call's end is to be told, too.
bool begin(JNIEnv* env, jint kind, const CallTexts& texts, jint number);

// number as at the begin. A failed SERVLET ends with an error record; the other kinds have none.
void end(JNIEnv* env, jint kind, jint number, bool failed);

}  // namespace capture
