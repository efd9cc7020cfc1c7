// The calling thread's record and the nesting of requests on it.
#pragma once

#include <jni.h>

#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "foundation/Globals.h"

// The calling thread's record, made on its first call; null while there is no thread manager or no
// event agent to take the thread.
inline ThreadData* callingThread(JNIEnv* env) {
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    return threads == nullptr ? nullptr : threads->getThreadLocalStorage(env);
}

inline jint idOf(const ThreadData* thread) {
    return thread == nullptr ? 0 : static_cast<jint>(thread->getThreadIntId());
}

// At monitoring level 1 a server may ask for outermost requests only.
inline bool nestedRequestsAreSwallowed() {
    return disableNestedRequests.load(std::memory_order_relaxed) &&
           probe_level.load(std::memory_order_relaxed) == 1;
}

// A request begins: the thread is one deeper. False when the request makes no event.
inline bool enterRequest(ThreadData& thread) {
    if (nestedRequestsAreSwallowed() && thread.servletDepth_ > 0) {
        ++thread.nestedRequestDepth_;
        return false;
    }
    ++thread.servletDepth_;
    return true;
}

// A request ends. False when its begin made no event, so its end makes none either. A depth of 0
// stays: the record of an end without a begin carries depth 1.
inline bool leaveRequest(ThreadData& thread) {
    if (thread.servletDepth_ < 1) return true;
    if (nestedRequestsAreSwallowed() && thread.nestedRequestDepth_ > 0) {
        --thread.nestedRequestDepth_;
        return false;
    }
    --thread.servletDepth_;
    return true;
}

// For the calls that nest without being swallowed: one level up, but never below none, where a
// cancelled nest may have left the thread before its inner calls end.
inline void leaveLevel(ThreadData& thread) {
    if (thread.servletDepth_ > 0) --thread.servletDepth_;
}
