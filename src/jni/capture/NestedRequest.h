// Begin and end of the request kinds that nest by the thread's depth: what HTTP, EJB, portal,
// web-service and business-process requests have in common.
#pragma once

#include <jni.h>

#include <memory>

#include "capture/CallText.h"
#include "capture/CallingThread.h"
#include "capture/EventStamp.h"
#include "capture/EventUtils.h"
#include "event/RequestEvents.h"
#include "transport/MemoryMonitor.h"

namespace capture {

// Texts: request name, application name, url, user. False when the request makes no event.
template <typename Kind>
bool beginRequest(JNIEnv* env, ThreadData& thread, const CallTexts& texts) {
    if (!enterRequest(thread)) return false;
    auto event = std::make_unique<Kind>(START);
    event->servletDepth = thread.servletDepth_;
    event->userName = copyText(env, *event, texts[3]);
    EventUtils::sendRequest(env, &thread, event.release(), texts[0], texts[1], texts[2]);
    return true;
}

// An end carries no names: the server matches it to its begin by thread and depth. Intended: an
// error is never swallowed, it ends the nest's outer request.
template <typename Kind>
bool endRequest(JNIEnv* env, ThreadData& thread, bool failed = false) {
    if (failed)
        leaveLevel(thread);
    else if (!leaveRequest(thread))
        return false;
    auto event = std::make_unique<Kind>(failed ? ERRORS : END);
    event->servletDepth = thread.servletDepth_ + 1;  // the depth that the request had
    EventUtils::sendRequest(env, &thread, event.release(), nullptr, nullptr, nullptr);
    return true;
}

}  // namespace capture
