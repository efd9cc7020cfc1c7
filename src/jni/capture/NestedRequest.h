// Begin and end of the request kinds that nest by the thread's depth: what HTTP, EJB, portal,
// web-service and business-process requests have in common.
#pragma once

#include <jni.h>

#include <memory>

#include "capture/CallingThread.h"
#include "capture/EventUtils.h"
#include "capture/JavaText.h"
#include "event/RequestEvents.h"
#include "transport/MemoryMonitor.h"

namespace capture {

template <typename Kind>
void beginRequest(JNIEnv* env, ThreadData& thread, jstring requestName, jstring applicationName,
                  jstring url, jstring userName = nullptr) {
    if (!enterRequest(thread)) return;
    auto event = std::make_unique<Kind>(START);
    event->servletDepth = thread.servletDepth_;
    event->userName = javatext::copy(env, userName, MemoryMonitor::getURLLimit()).chars;
    EventUtils::sendRequest(env, &thread, event.release(), requestName, applicationName, url);
}

// An end carries no names: the server matches it to its begin by thread and depth.
template <typename Kind>
void endRequest(JNIEnv* env, ThreadData& thread) {
    if (!leaveRequest(thread)) return;
    auto event = std::make_unique<Kind>(END);
    event->servletDepth = thread.servletDepth_ + 1;  // the depth that the request had
    EventUtils::sendRequest(env, &thread, event.release(), nullptr, nullptr, nullptr);
}

}  // namespace capture
