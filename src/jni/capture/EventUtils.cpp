#include "capture/EventUtils.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>

#include "capture/CallingThread.h"
#include "capture/EventStamp.h"
#include "capture/JavaText.h"
#include "capture/NestedRequest.h"
#include "event/Events.h"
#include "event/GPSTokenUtils.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "transport/MemoryMonitor.h"

namespace {

constexpr int kTokenBytes = 4;
constexpr int kTokenText = kTokenBytes + 1;  // the token as a request name: its bytes and a zero

void writeBigEndian(std::uint32_t token, jbyte* bytes) {
    for (int i = 0; i < kTokenBytes; ++i)
        bytes[i] = static_cast<jbyte>(token >> (8 * (kTokenBytes - 1 - i)));
}

// The thread's token as a new text. The bytes may be zeros: nobody takes its length.
char* tokenText(const jbyte* token) {
    char* const text = new char[kTokenText];
    std::memcpy(text, token, kTokenBytes);
    text[kTokenBytes] = '\0';
    return text;
}

void forgetToken(ThreadData& thread) {
    delete[] thread.gpsToken_;
    thread.gpsToken_ = nullptr;
}

// A call leaves for another server: a new token for the thread and the event.
void giveToken(ThreadData& thread, GPSEvent& event) {
    // A token that came by a CONNECT may be longer, never shorter.
    if (thread.gpsToken_ == nullptr) thread.gpsToken_ = new jbyte[kTokenBytes]();
    const unsigned token = GPSTokenUtils::getToken();
    VEL_DEBUG_MIN("sendRequest", "GPS token is %d", token);
    writeBigEndian(token, thread.gpsToken_);
    event.request_name = tokenText(thread.gpsToken_);
    VEL_DEBUG_MIN("sendRequest", "Finished copying memcpy tokens");
    event.token = token;
}

// A call arrived and its token came as the request name.
void takeToken(JNIEnv* env, ThreadData& thread, GPSEvent& event, jstring requestName) {
    const javatext::Text name =
        javatext::copy(env, requestName, MemoryMonitor::getURLLimit(), kTokenText);
    event.request_name = name.chars;
    event.noteText(name.length);
    // At least a token's bytes: whoever takes the token out takes that many.
    const auto length = static_cast<std::size_t>(name.length) - 1;
    auto* const token = new jbyte[std::max<std::size_t>(length, kTokenBytes)]();
    std::memcpy(token, name.chars, length);
    forgetToken(thread);
    thread.gpsToken_ = token;
}

// False: the event is not to be queued.
bool settleToken(JNIEnv* env, ThreadData& thread, GPSEvent& event, jstring requestName) {
    if (event.getSubType() == START) {
        giveToken(thread, event);
    } else if (event.getSubType() == CONNECT) {
        if (requestName == nullptr) return false;
        takeToken(env, thread, event, requestName);
    }
    return true;
}

char* copyName(JNIEnv* env, Event& event, const CallText& name,
               [[maybe_unused]] const char* noteWhenNull) {
    if (name.isNull()) {
        VEL_DEBUG_MIN("sendRequest", "%s", noteWhenNull);
        return emptyText();
    }
    return capture::copyText(env, event, name);
}

char* copyUrl(JNIEnv* env, Event& event, const CallText& url) {
    if (url.isNull()) {
        VEL_DEBUG_MIN("sendRequest", "url is null");
        return emptyText();
    }
    const javatext::Text text = url.copy(env, MemoryMonitor::getURLLimit());
    event.noteText(text.length);
    if (!MemoryMonitor::avgURLCalculated()) MemoryMonitor::httpEJBRequest(text.length);
    return text.chars;
}

// The fields that all lock steps share; the event, or null when the thread has no record.
template <typename LockKind>
std::unique_ptr<LockKind> newLockEvent(JNIEnv* env, ThreadData* thread, EventSubType phase,
                                       jint methodId, jstring lockName) {
    if (thread == nullptr) return nullptr;
    auto event = std::make_unique<LockKind>(phase);
    capture::stamp(*event, thread);
    event->method_id = capture::methodIdFrom(methodId);
    event->className = capture::attach(*event, env, lockName);
    event->depth = thread->servletDepth_;
    return event;
}

template <typename LockKind>
jboolean appendLockStep(JNIEnv* env, EventSubType phase, jint methodId, jstring lockName) {
    ThreadData* const thread = callingThread(env);
    auto event = newLockEvent<LockKind>(env, thread, phase, methodId, lockName);
    return event != nullptr && EventUtils::appendRequestEvent(env, thread, event.release());
}

jboolean appendContention(JNIEnv* env, EventSubType phase, jint methodId, jstring lockName,
                          jbyte ownerRequestType, jstring ownerRequestName,
                          jstring ownerApplicationName, jint ownerMethodId) {
    ThreadData* const thread = callingThread(env);
    auto event = newLockEvent<LockContentionEvent>(env, thread, phase, methodId, lockName);
    if (event == nullptr) return JNI_FALSE;
    event->owningRequestType = ownerRequestType;
    event->owningRequestName = capture::attach(*event, env, ownerRequestName);
    event->owningApplicationName = capture::attach(*event, env, ownerApplicationName);
    event->owning_method_id = capture::methodIdFrom(ownerMethodId);
    return EventUtils::appendRequestEvent(env, thread, event.release());
}

// The queue of the VM's event thread; null when no event is wanted.
ThreadData* threadForGcEvent(JNIEnv* env) {
    static std::atomic<bool> told{false};
    if (env == nullptr) {
        if (!told.exchange(true, std::memory_order_relaxed))
            VEL_DEBUG_MIN("appendGCEvent", "GC event without an environment, ignored");
        return nullptr;
    }
    return MemoryMonitor::reachedULimit(env) ? nullptr : callingThread(env);
}

void stampAt(GCEvent& event, ThreadData* thread, const GcEdge& edge) {
    capture::stamp(event, thread);
    if (!edge.known()) return;
    event.timeSec_ = edge.sec;
    event.timeUSec_ = edge.usec;
}

}  // namespace

bool EventUtils::appendRequestEvent(JNIEnv* env, ThreadData* thread, Event* event) {
    VEL_TRACE("EventUtils::appendRequestEvent(JNIEnv*, ThreadData*, Event*)");
    if (event == nullptr) return false;
    if (thread == nullptr) {
        std::unique_ptr<Event> owned(event);
        ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
        thread = threads == nullptr ? nullptr : threads->getThreadLocalStorage(env);
        if (thread == nullptr) {
            logMessage(msg::kThreadDataFailed);
            return false;
        }
        if (event->threadId_ == 0) event->threadId_ = thread->getThreadIntId();
        (void)owned.release();  // the queue's now
    }
    return thread->appendEvent(event);
}

void EventUtils::sendRequest(JNIEnv* env, ThreadData* thread, RequestEvent* event,
                             const CallText& requestName, const CallText& applicationName,
                             const CallText& url) {
    VEL_TRACE(
        "EventUtils::sendRequest(JNIEnv*, ThreadData*, RequestEvent*, jstring, jstring, jstring)");
    std::unique_ptr<RequestEvent> owned(event);
    if (event == nullptr) return;
    if (thread == nullptr) {
        VEL_DEBUG_MIN("sendRequest", "thread local storage is NULL");
        return;
    }
    freeText(event->request_name);
    freeText(event->application_name);
    freeText(event->url);
    capture::stamp(*event, thread);
    if (event->getType() == GPS &&
        !settleToken(env, *thread, static_cast<GPSEvent&>(*event), requestName.text))
        return;
    if (event->request_name == nullptr)
        event->request_name = copyName(env, *event, requestName, "request name is null");
    event->application_name = copyName(env, *event, applicationName, "application name is null");
    event->url = copyUrl(env, *event, url);
    if (event->userName == nullptr) event->userName = emptyText();
    event->size_ = MemoryMonitor::getRequestSize();
    appendRequestEvent(env, thread, owned.release());
    if (thread->servletDepth_ == 0) forgetToken(*thread);
}

CommonEvent* EventUtils::createCommonEvent(EventType type, EventSubType phase) {
    switch (type) {
        case IIOP_CLIENT:
            return new IIOP_ClientEvent(phase);
        case IIOP_SERVER:
            return new IIOP_ServerEvent(phase);
        default:
            return nullptr;
    }
}

bool EventUtils::appendCommonEvent(JNIEnv* env, EventType type, EventSubType phase,
                                   const CallText& className, const CallText& methodName,
                                   jstring* extra) {
    VEL_TRACE(
        "EventUtils::appendCommonEvent(JNIEnv*, EventType, EventSubType, jstring, jstring, "
        "jstring*)");
    ThreadData* const thread = callingThread(env);
    std::unique_ptr<CommonEvent> event(createCommonEvent(type, phase));
    if (event == nullptr) return false;
    if (thread != nullptr && phase == START) ++thread->servletDepth_;
    event->depth = thread == nullptr ? 0 : thread->servletDepth_;
    capture::stamp(*event, thread, capture::ClockOrder::wallFirst);
    event->className = capture::attach(*event, env, className);
    event->methodName = capture::attach(*event, env, methodName);
    event->init(env, extra);
    const bool queued = appendRequestEvent(env, thread, event.release());
    if (thread != nullptr && phase == END) leaveLevel(*thread);
    return queued;
}

void EventUtils::appendGPSReceiveEvent(JNIEnv* env, ThreadData* thread, GPSEvent* event) {
    VEL_TRACE("EventUtils::appendGPSReceiveEvent(JNIEnv*, ThreadData*, GPSEvent*)");
    std::unique_ptr<GPSEvent> owned(event);
    if (event == nullptr || thread == nullptr) return;
    // The names stay null: no record of these phases has more than the token.
    freeText(event->request_name);
    freeText(event->application_name);
    freeText(event->url);
    freeText(event->userName);
    capture::stamp(*event, thread, capture::ClockOrder::wallFirst);
    if (event->getSubType() == CONNECT) {
        std::unique_ptr<jbyte[]> token(new jbyte[kTokenText]());
        writeBigEndian(event->token, token.get());
        event->request_name = tokenText(token.get());
        forgetToken(*thread);
        thread->gpsToken_ = token.release();
    }
    appendRequestEvent(env, thread, owned.release());
}

void EventUtils::beginBeanRequest(JNIEnv* env, jstring className, jstring methodName,
                                  jstring descriptor) {
    VEL_TRACE("EventUtils::beginBeanRequest(JNIEnv*, jstring, jstring, jstring)");
    ThreadData* const thread = callingThread(env);
    if (thread != nullptr)
        capture::beginRequest<EJBEvent>(env, *thread, {className, methodName, descriptor});
}

void EventUtils::endBeanRequest(JNIEnv* env, jstring, jstring, jstring) {
    VEL_TRACE("EventUtils::endBeanRequest(JNIEnv*, jstring, jstring, jstring)");
    ThreadData* const thread = callingThread(env);
    if (thread != nullptr) capture::endRequest<EJBEvent>(env, *thread);
}

void EventUtils::appendGCStartEvent(JNIEnv* env, const GcEdge& edge) {
    VEL_TRACE("EventUtils::appendGCStartEvent(JNIEnv*)");
    ThreadData* const thread = threadForGcEvent(env);
    if (thread == nullptr) return;
    auto event = std::make_unique<GCEvent>(START);
    stampAt(*event, thread, edge);
    appendRequestEvent(env, thread, event.release());
}

void EventUtils::appendGCEndEvent(JNIEnv* env, jlong usedObjects, jlong usedSpace, jlong totalSpace,
                                  const GcEdge& edge) {
    VEL_TRACE("EventUtils::appendGCEndEvent(JNIEnv*, jlong, jlong, jlong)");
    ThreadData* const thread = threadForGcEvent(env);
    if (thread == nullptr) return;
    auto event = std::make_unique<GCEvent>(END);
    stampAt(*event, thread, edge);
    event->used_objects = usedObjects;
    event->used_object_space = usedSpace;
    event->total_object_space = totalSpace;
    appendRequestEvent(env, thread, event.release());
}

void EventUtils::appendSamplingRateEvent(JNIEnv* env, ThreadData* thread, const int levels[4],
                                         int useDefault) {
    VEL_TRACE("EventUtils::appendSamplingRateEvent(JNIEnv*, ThreadData*, const int*, int)");
    auto event = std::make_unique<SamplingEvent>(NOSTYPE);
    capture::stamp(*event, thread);
    std::copy_n(levels, 4, event->probeLevels);
    event->useDefault = useDefault;
    appendRequestEvent(env, thread, event.release());
}

void EventUtils::appendDroppedEvent(JNIEnv* env, ThreadData* thread) {
    VEL_TRACE("EventUtils::appendDroppedEvent(JNIEnv*, ThreadData*)");
    auto event = std::make_unique<DroppedEvent>(NOSTYPE);
    if (thread != nullptr) event->threadId_ = thread->getThreadIntId();
    appendRequestEvent(env, thread, event.release());
}

jboolean EventUtils::beginLockAcquisition(JNIEnv* env, jint methodId, jstring lockName) {
    VEL_TRACE("EventUtils::beginLockAcquisition(JNIEnv*, jint, jstring)");
    return appendLockStep<LockAcquisitionEvent>(env, START, methodId, lockName);
}

jboolean EventUtils::endLockAcquisition(JNIEnv* env, jint methodId, jstring lockName) {
    VEL_TRACE("EventUtils::endLockAcquisition(JNIEnv*, jint, jstring)");
    return appendLockStep<LockAcquisitionEvent>(env, END, methodId, lockName);
}

jboolean EventUtils::beginLockContention(JNIEnv* env, jint methodId, jstring lockName,
                                         jbyte ownerRequestType, jstring ownerRequestName,
                                         jstring ownerApplicationName, jint ownerMethodId, jint) {
    VEL_TRACE(
        "EventUtils::beginLockContention(JNIEnv*, jint, jstring, jbyte, jstring, jstring, jint, "
        "jint)");
    return appendContention(env, START, methodId, lockName, ownerRequestType, ownerRequestName,
                            ownerApplicationName, ownerMethodId);
}

jboolean EventUtils::endLockContention(JNIEnv* env, jint methodId, jstring lockName,
                                       jbyte ownerRequestType, jstring ownerRequestName,
                                       jstring ownerApplicationName, jint ownerMethodId, jint) {
    VEL_TRACE(
        "EventUtils::endLockContention(JNIEnv*, jint, jstring, jbyte, jstring, jstring, jint, "
        "jint)");
    return appendContention(env, END, methodId, lockName, ownerRequestType, ownerRequestName,
                            ownerApplicationName, ownerMethodId);
}

jboolean EventUtils::beginLockRelease(JNIEnv* env, jint methodId, jstring lockName) {
    VEL_TRACE("EventUtils::beginLockRelease(JNIEnv*, jint, jstring)");
    return appendLockStep<LockReleaseEvent>(env, START, methodId, lockName);
}

jboolean EventUtils::endLockRelease(JNIEnv* env, jint methodId, jstring lockName) {
    VEL_TRACE("EventUtils::endLockRelease(JNIEnv*, jint, jstring)");
    return appendLockStep<LockReleaseEvent>(env, END, methodId, lockName);
}

bool EventUtils::appendHeapEvent(JNIEnv* env, EventSubType phase, jint methodId, jint lineNumber,
                                 jstring className) {
    VEL_TRACE("EventUtils::appendHeapEvent(JNIEnv*, EventSubType, jint, jint, jstring)");
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr) return false;
    auto event = std::make_unique<HeapEvent>(phase);
    capture::stamp(*event, thread);
    event->method_id = capture::methodIdFrom(methodId);
    event->instantiated_class_name = capture::attach(*event, env, className);
    event->line_number = lineNumber;
    event->depth = thread->servletDepth_;
    return appendRequestEvent(env, thread, event.release());
}
