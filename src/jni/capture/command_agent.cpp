#include "capture/command_agent.h"

#include <memory>

#include "capture/CallingThread.h"
#include "capture/CaptureEdge.h"
#include "capture/EventUtils.h"
#include "capture/JavaText.h"
#include "capture/NestedRequest.h"
#include "event/GPSTokenUtils.h"
#include "event/RequestEvents.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/ProbeLog.h"
#include "foundation/Utils.h"
#include "transport/MemoryMonitor.h"

namespace {

constexpr char kCancelRequest[] = "JSP_CANCEL_REQUEST";  // ends the whole nest of requests
constexpr jsize kCancelRequestLength = sizeof kCancelRequest - 1;

jint startHttp(JNIEnv* env, jstring requestName, jstring applicationName, jstring url,
               jstring userName) {
    const bool limitReached = MemoryMonitor::reachedULimit(env);
    ThreadData* const thread = callingThread(env);
    if (!limitReached && thread != nullptr)
        capture::beginRequest<ServletEvent>(env, *thread,
                                            {requestName, applicationName, url, userName});
    return idOf(thread);
}

// The depth after a request's end, or error. False when the end makes no event.
bool leaveHttp(JNIEnv* env, ThreadData& thread, EventSubType phase, jstring requestName) {
    const bool cancels = javatext::equals(env, requestName, kCancelRequest, kCancelRequestLength);
    const int depth = thread.servletDepth_;
    // Intended: an error is never swallowed, it ends the nest's outer request.
    if (phase == END && !leaveRequest(thread)) return false;
    if (phase == ERRORS) leaveLevel(thread);
    if (cancels && depth >= 1) thread.servletDepth_ = 0;
    return true;
}

jint endHttp(JNIEnv* env, EventSubType phase, jstring requestName, jstring applicationName,
             jstring url) {
    const bool limitReached = MemoryMonitor::reachedULimit(env);
    ThreadData* const thread = callingThread(env);
    if (limitReached) return idOf(thread);
    if (thread != nullptr && !leaveHttp(env, *thread, phase, requestName)) return idOf(thread);
    auto event = std::make_unique<ServletEvent>(phase);
    // The depth that the request had. Without a record sendRequest tells the trace and drops it.
    event->servletDepth = (thread == nullptr ? 0 : thread->servletDepth_) + 1;
    // An end carries no names: the server matches it to its start by thread and depth.
    if (phase == END) requestName = applicationName = url = nullptr;
    EventUtils::sendRequest(env, thread, event.release(), requestName, applicationName, url);
    return idOf(thread);
}

jint iiopRequest(JNIEnv* env, EventType type, EventSubType phase, jstring className,
                 jstring methodName) {
    if (!MemoryMonitor::reachedULimit(env))
        EventUtils::appendCommonEvent(env, type, phase, className, methodName, nullptr);
    return idOf(callingThread(env));
}

// The thread's id as the thread manager casts it: even a thread without a record has one.
jint castThreadId(JNIEnv* env) {
    if (const ThreadData* const thread = callingThread(env); thread != nullptr)
        return idOf(thread);  // what the manager's walk over all threads would find
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    return threads == nullptr ? 0 : static_cast<jint>(threads->CastThreadId(env));
}

// The record of a thread that may make a GPS event now, else null.
ThreadData* threadForGps(JNIEnv* env) {
    return MemoryMonitor::reachedULimit(env) ? nullptr : callingThread(env);
}

void startGpsInvoke(JNIEnv* env) {
    ThreadData* const thread = threadForGps(env);
    if (thread == nullptr) return;
    ++thread->servletDepth_;
    auto event = std::make_unique<GPSEvent>(START);
    event->servletDepth = thread->servletDepth_;
    EventUtils::sendRequest(env, thread, event.release(), nullptr, nullptr, nullptr);
}

void endGpsInvoke(JNIEnv* env) {
    ThreadData* const thread = threadForGps(env);
    if (thread == nullptr) return;
    auto event = std::make_unique<GPSEvent>(END);
    event->servletDepth = thread->servletDepth_;
    leaveLevel(*thread);
    EventUtils::sendRequest(env, thread, event.release(), nullptr, nullptr, nullptr);
}

void startGpsReceive(JNIEnv* env, jint token) {
    ThreadData* const thread = threadForGps(env);
    if (thread == nullptr) return;
    ++thread->servletDepth_;
    auto event = std::make_unique<GPSEvent>(CONNECT);
    event->servletDepth = thread->servletDepth_;
    event->token = static_cast<std::uint32_t>(token);
    EventUtils::appendGPSReceiveEvent(env, thread, event.release());
}

void completeGpsReceive(JNIEnv* env) {
    ThreadData* const thread = threadForGps(env);
    if (thread == nullptr) return;
    auto event = std::make_unique<GPSEvent>(COMPLETE);
    event->servletDepth = thread->servletDepth_;
    leaveLevel(*thread);
    EventUtils::appendGPSReceiveEvent(env, thread, event.release());
}

void issueTrace(JNIEnv* env) {
    if (MemoryMonitor::reachedULimit(env)) return;
    jstring texts[3] = {};
    const char* const contents[3] = {"system_trace", "trace_app", ""};
    for (int i = 0; i < 3; ++i) {
        texts[i] = env->NewStringUTF(contents[i]);
        if (handleJavaException(env)) break;  // no memory: sent with what there is
    }
    createTraceRequest(env, texts[0], texts[1], texts[2]);
    for (const jstring text : texts)
        if (text != nullptr) env->DeleteLocalRef(text);
}

jint threadIdByName(JNIEnv* env, jstring threadName, jstring groupName) {
    const std::unique_ptr<char[]> thread(Utils::java2c_string(env, threadName));
    const std::unique_ptr<char[]> group(Utils::java2c_string(env, groupName));
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    return threads == nullptr ? 0 : idOf(threads->getThreadData(group.get(), thread.get()));
}

jint callingThreadId(JNIEnv* env) {
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    unsigned id = 0;
    if (threads != nullptr && threads->findThreadId(env, &id)) return static_cast<jint>(id);
    ProbeLog::_log("Java_com_velora_probe_ThreadManager_getEnv, thread id not found!");
    return idOf(callingThread(env));
}

}  // namespace

void createTraceRequest(JNIEnv* env, jstring requestName, jstring applicationName, jstring url) {
    VEL_TRACE("createTraceRequest(JNIEnv*, jstring, jstring, jstring)");
    EventUtils::sendRequest(env, callingThread(env), new TraceEvent(NOSTYPE), requestName,
                            applicationName, url);
}

jbyteArray getGpsToken(JNIEnv* env) {
    VEL_TRACE("getGpsToken(JNIEnv*)");
    constexpr jsize kTokenBytes = 4;
    const jbyteArray token = env->NewByteArray(kTokenBytes);
    if (handleJavaException(env) || token == nullptr) return nullptr;
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr || !thread->isAlive() || thread->gpsToken_ == nullptr) {
        VEL_DEBUG_MIN("getGpsToken", "null tmp in get passport visa");
        return token;
    }
    env->SetByteArrayRegion(token, 0, kTokenBytes, thread->gpsToken_);
    delete[] thread->gpsToken_;
    thread->gpsToken_ = nullptr;
    return token;
}

jint Java_com_velora_probe_ThreadManager_startNativeHttpRequest(JNIEnv* env, jobject, jobject,
                                                                jstring requestName,
                                                                jstring applicationName,
                                                                jstring url, jstring userName) {
    VEL_TRACE(
        "Java_com_velora_probe_ThreadManager_startNativeHttpRequest(JNIEnv*, jobject, jobject, "
        "jstring, jstring, jstring, jstring)");
    return capture::atCaptureEdge("startNativeHttpRequest", jint{0}, [&] {
        return startHttp(env, requestName, applicationName, url, userName);
    });
}

jint Java_com_velora_probe_ThreadManager_finishNativeHttpRequest(JNIEnv* env, jobject,
                                                                 jstring requestName,
                                                                 jstring applicationName,
                                                                 jstring url) {
    VEL_TRACE(
        "Java_com_velora_probe_ThreadManager_finishNativeHttpRequest(JNIEnv*, jobject, jstring, "
        "jstring, jstring)");
    return capture::atCaptureEdge("finishNativeHttpRequest", jint{0}, [&] {
        return endHttp(env, END, requestName, applicationName, url);
    });
}

jint Java_com_velora_probe_ThreadManager_errorNativeHttpRequest(JNIEnv* env, jobject,
                                                                jstring requestName,
                                                                jstring applicationName,
                                                                jstring err) {
    VEL_TRACE(
        "Java_com_velora_probe_ThreadManager_errorNativeHttpRequest(JNIEnv*, jobject, jstring, "
        "jstring, jstring)");
    return capture::atCaptureEdge("errorNativeHttpRequest", jint{0}, [&] {
        return endHttp(env, ERRORS, requestName, applicationName, err);
    });
}

jint Java_com_velora_probe_ThreadManager_startIIOPServerRequest(JNIEnv* env, jobject,
                                                                jstring className,
                                                                jstring methodName) {
    VEL_TRACE(
        "Java_com_velora_probe_ThreadManager_startIIOPServerRequest(JNIEnv*, jobject, jstring, "
        "jstring)");
    return capture::atCaptureEdge("startIIOPServerRequest", jint{0}, [&] {
        return iiopRequest(env, IIOP_SERVER, START, className, methodName);
    });
}

jint Java_com_velora_probe_ThreadManager_finishIIOPServerRequest(JNIEnv* env, jobject) {
    VEL_TRACE("Java_com_velora_probe_ThreadManager_finishIIOPServerRequest(JNIEnv*, jobject)");
    return capture::atCaptureEdge("finishIIOPServerRequest", jint{0}, [&] {
        return iiopRequest(env, IIOP_SERVER, END, nullptr, nullptr);
    });
}

jint Java_com_velora_probe_ThreadManager_startIIOPClientRequest(JNIEnv* env, jobject,
                                                                jstring className,
                                                                jstring methodName) {
    VEL_TRACE(
        "Java_com_velora_probe_ThreadManager_startIIOPClientRequest(JNIEnv*, jobject, jstring, "
        "jstring)");
    return capture::atCaptureEdge("startIIOPClientRequest", jint{0}, [&] {
        return iiopRequest(env, IIOP_CLIENT, START, className, methodName);
    });
}

jint Java_com_velora_probe_ThreadManager_finishIIOPClientRequest(JNIEnv* env, jobject) {
    VEL_TRACE("Java_com_velora_probe_ThreadManager_finishIIOPClientRequest(JNIEnv*, jobject)");
    return capture::atCaptureEdge("finishIIOPClientRequest", jint{0}, [&] {
        return iiopRequest(env, IIOP_CLIENT, END, nullptr, nullptr);
    });
}

jint Java_com_velora_probe_ThreadManager_beginNativeEJBRequest(JNIEnv* env, jobject,
                                                               jstring className,
                                                               jstring methodName,
                                                               jstring descriptor) {
    VEL_TRACE(
        "Java_com_velora_probe_ThreadManager_beginNativeEJBRequest(JNIEnv*, jobject, jstring, "
        "jstring, jstring)");
    return capture::atCaptureEdge("beginNativeEJBRequest", jint{0}, [&] {
        if (!MemoryMonitor::reachedULimit(env))
            EventUtils::beginBeanRequest(env, className, methodName, descriptor);
        return castThreadId(env);
    });
}

jint Java_com_velora_probe_ThreadManager_endNativeEJBRequest(JNIEnv* env, jobject,
                                                             jstring className, jstring methodName,
                                                             jstring descriptor) {
    VEL_TRACE(
        "Java_com_velora_probe_ThreadManager_endNativeEJBRequest(JNIEnv*, jobject, jstring, "
        "jstring, jstring)");
    return capture::atCaptureEdge("endNativeEJBRequest", jint{0}, [&] {
        if (!MemoryMonitor::reachedULimit(env))
            EventUtils::endBeanRequest(env, className, methodName, descriptor);
        return castThreadId(env);
    });
}

void Java_com_velora_command_CommandAgent_startNativeGpsInvokeRequest(JNIEnv* env, jobject) {
    VEL_TRACE("Java_com_velora_command_CommandAgent_startNativeGpsInvokeRequest(JNIEnv*, jobject)");
    capture::atCaptureEdge("startNativeGpsInvokeRequest", [&] { startGpsInvoke(env); });
}

void Java_com_velora_command_CommandAgent_endNativeGpsInvokeRequest(JNIEnv* env, jobject) {
    VEL_TRACE("Java_com_velora_command_CommandAgent_endNativeGpsInvokeRequest(JNIEnv*, jobject)");
    capture::atCaptureEdge("endNativeGpsInvokeRequest", [&] { endGpsInvoke(env); });
}

void Java_com_velora_command_CommandAgent_startNativeGpsReceiveRequest(JNIEnv* env, jobject,
                                                                       jint gpsToken) {
    VEL_TRACE(
        "Java_com_velora_command_CommandAgent_startNativeGpsReceiveRequest(JNIEnv*, jobject, "
        "jint)");
    capture::atCaptureEdge("startNativeGpsReceiveRequest", [&] { startGpsReceive(env, gpsToken); });
}

void Java_com_velora_command_CommandAgent_completeNativeGpsReceiveRequest(JNIEnv* env, jobject,
                                                                          jint) {
    VEL_TRACE(
        "Java_com_velora_command_CommandAgent_completeNativeGpsReceiveRequest(JNIEnv*, jobject, "
        "jint)");
    capture::atCaptureEdge("completeNativeGpsReceiveRequest", [&] { completeGpsReceive(env); });
}

jbyteArray Java_com_velora_command_CommandAgent_getNativeGpsToken(JNIEnv* env, jobject) {
    VEL_TRACE("Java_com_velora_command_CommandAgent_getNativeGpsToken(JNIEnv*, jobject)");
    return atJniEdge("getNativeGpsToken", jbyteArray{}, [&] { return getGpsToken(env); });
}

void Java_com_velora_probe_ProbeController_setupGps(JNIEnv* env, jobject, jstring regMask) {
    VEL_TRACE("Java_com_velora_probe_ProbeController_setupGps(JNIEnv*, jobject, jstring)");
    atJniEdge("setupGps", [&] { GPSTokenUtils::setUpGps(env, regMask); });
}

void Java_com_velora_probe_ThreadManager_issueTraceRequest(JNIEnv* env, jobject) {
    VEL_TRACE("Java_com_velora_probe_ThreadManager_issueTraceRequest(JNIEnv*, jobject)");
    capture::atCaptureEdge("issueTraceRequest", [&] { issueTrace(env); });
}

jint Java_com_velora_command_CommandAgent_getThreadId(JNIEnv* env, jobject, jstring threadName,
                                                      jstring groupName) {
    VEL_TRACE(
        "Java_com_velora_command_CommandAgent_getThreadId(JNIEnv*, jobject, jstring, jstring)");
    return atJniEdge("getThreadId", jint{0},
                     [&] { return threadIdByName(env, threadName, groupName); });
}

jint Java_com_velora_probe_ThreadManager_getEnv(JNIEnv* env, jobject) {
    VEL_TRACE("Java_com_velora_probe_ThreadManager_getEnv(JNIEnv*, jobject)");
    return atJniEdge("getEnv", jint{0}, [&] { return callingThreadId(env); });
}
