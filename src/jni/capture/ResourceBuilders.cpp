#include "capture/ResourceBuilders.h"

#include <algorithm>
#include <memory>

#include "capture/CallingThread.h"
#include "capture/EventStamp.h"
#include "capture/EventUtils.h"
#include "event/ControlEvents.h"
#include "event/VmEvents.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"
#include "transport/MemoryMonitor.h"

namespace resource {
namespace {

// An event of the calling thread, stamped; the thread too, null (with no event) without a record.
template <typename Kind>
struct Made {
    ThreadData* thread;
    std::unique_ptr<Kind> event;
};

template <typename Kind>
Made<Kind> make(JNIEnv* env, EventSubType phase) {
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr) return {nullptr, nullptr};
    auto event = std::make_unique<Kind>(phase);
    capture::stamp(*event, thread);
    return {thread, std::move(event)};
}

template <typename Kind>
bool queue(JNIEnv* env, Made<Kind>& made) {
    return EventUtils::appendRequestEvent(env, made.thread, made.event.release());
}

// The four names that a request event has but these kinds' records do not carry.
void fillNames(RequestEvent& event) {
    event.request_name = emptyText();
    event.application_name = emptyText();
    event.url = emptyText();
    event.userName = emptyText();
}

jsize lengthOf(JNIEnv* env, jarray array) {
    return array == nullptr ? 0 : env->GetArrayLength(array);
}

}  // namespace

bool appendGPSMQ(JNIEnv* env, EventSubType phase, GPSMQ_ACTION action, jstring queueName,
                 jbyteArray token) {
    VEL_TRACE("appendGPSMQ(JNIEnv*, EventSubType, GPSMQ_ACTION, jstring, jbyteArray)");
    auto made = make<GPSMQEvent>(env, phase);
    if (made.event == nullptr) return false;
    GPSMQEvent& event = *made.event;
    event.size_ = EventCosts::GPSMQ;
    fillNames(event);
    event.depth = made.thread->servletDepth_;
    event.servletDepth = event.depth;
    event.action = action;
    event.queueName = capture::attach(event, env, queueName);
    const jsize length = lengthOf(env, token);
    event.gpsToken = new jbyte[static_cast<std::size_t>(length)];
    event.arrLength = length;
    if (length > 0) env->GetByteArrayRegion(token, 0, length, event.gpsToken);
    capture::charge(event, length);
    return queue(env, made);
}

bool appendCTG(JNIEnv* env, jstring gatewayName, jstring serverName, jstring progName,
               jlong snapShotTime, jint count, jlong avgTimeTaken) {
    VEL_TRACE("appendCTG(JNIEnv*, jstring, jstring, jstring, jlong, jint, jlong)");
    auto made = make<CTGEvent>(env, NOSTYPE);
    if (made.event == nullptr) return false;
    CTGEvent& event = *made.event;
    event.gatewayName = capture::attach(event, env, gatewayName);
    event.serverName = capture::attach(event, env, serverName);
    event.progName = capture::attach(event, env, progName);
    event.snapShotTime = snapShotTime;
    event.count = count;
    event.avgTimeTaken = avgTimeTaken;
    return queue(env, made);
}

bool appendMQI(JNIEnv* env, jstring mgrName, jstring queueName, jlong snapShotTime,
               jbyteArray types, jintArray counts, jlongArray avgTimesTaken) {
    VEL_TRACE("appendMQI(JNIEnv*, jstring, jstring, jlong, jbyteArray, jintArray, jlongArray)");
    auto made = make<MQIEvent>(env, NOSTYPE);
    if (made.event == nullptr) return false;
    MQIEvent& event = *made.event;
    event.mgrName = capture::attach(event, env, mgrName);
    event.queueName = capture::attach(event, env, queueName);
    event.snapShotTime = snapShotTime;
    const jsize entries =
        std::min({lengthOf(env, types), lengthOf(env, counts), lengthOf(env, avgTimesTaken)});
    const auto room = static_cast<std::size_t>(entries);
    event.ctype = new jbyte[room];
    event.count = new std::int32_t[room];
    event.avgTimeTaken = new std::int64_t[room];
    if (entries > 0) {
        env->GetByteArrayRegion(types, 0, entries, event.ctype);
        env->GetIntArrayRegion(counts, 0, entries, event.count);
        env->GetLongArrayRegion(avgTimesTaken, 0, entries, event.avgTimeTaken);
    }
    event.arrLength = entries;
    constexpr int kEntryBytes = 1 + 4 + 8;
    capture::charge(event, std::min(entries, 4096) * kEntryBytes);
    event.noteText(std::min(entries, 1 << 24) * kEntryBytes);
    return queue(env, made);
}

bool appendException(JNIEnv* env, jstring exception, jstring className, jstring methodName,
                     jstring stackTrace) {
    VEL_TRACE("appendException(JNIEnv*, jstring, jstring, jstring, jstring)");
    auto made = make<ExceptionEvent>(env, NOSTYPE);
    if (made.event == nullptr) return false;
    ExceptionEvent& event = *made.event;
    event.exception = capture::attach(event, env, exception);
    event.class_name = capture::attach(event, env, className);
    event.method_name = capture::attach(event, env, methodName);
    event.stacktrace = capture::attach(event, env, stackTrace, MemoryMonitor::getSQLLimit());
    return queue(env, made);
}

bool appendPSStatus(JNIEnv* env, jstring status) {
    VEL_TRACE("appendPSStatus(JNIEnv*, jstring)");
    auto made = make<PSStatusEvent>(env, NOSTYPE);
    if (made.event == nullptr) return false;
    made.event->status_ = capture::attach(*made.event, env, status);
    return queue(env, made);
}

}  // namespace resource
