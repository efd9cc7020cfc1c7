#include "capture/PortalBuilders.h"

#include <cstring>
#include <memory>

#include "capture/CallingThread.h"
#include "capture/EventStamp.h"
#include "capture/EventUtils.h"
#include "capture/NestedRequest.h"
#include "capture/PortalMethodMgr.h"
#include "event/WebServiceEvents.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"

namespace {

template <typename Kind>
void begin(JNIEnv* env, jstring requestName, jstring applicationName, jstring url,
           jstring userName = nullptr) {
    if (ThreadData* const thread = callingThread(env); thread != nullptr)
        capture::beginRequest<Kind>(env, *thread, requestName, applicationName, url, userName);
}

template <typename Kind>
void end(JNIEnv* env) {
    if (ThreadData* const thread = callingThread(env); thread != nullptr)
        capture::endRequest<Kind>(env, *thread);
}

// Stamps and queues an event of the calling thread.
template <typename Kind>
bool queue(JNIEnv* env, ThreadData* thread, std::unique_ptr<Kind> event) {
    capture::stamp(*event, thread);
    return EventUtils::appendRequestEvent(env, thread, event.release());
}

template <typename Kind>
bool appendStep(JNIEnv* env, ThreadData* thread, EventSubType phase, jbyte methodId) {
    auto event = std::make_unique<Kind>(phase);
    event->depth = thread->servletDepth_;
    event->methodId = methodId;
    return queue(env, thread, std::move(event));
}

template <typename Kind>
bool appendSummary(JNIEnv* env, EventType type, jint count, jlong avgTimeTaken) {
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr) return false;
    auto event = std::make_unique<Kind>(type, NOSTYPE);
    event->count = count;
    event->avgTimeTaken = avgTimeTaken;
    return queue(env, thread, std::move(event));
}

// A fault whose texts are its own and go with it.
class OwningFaultEvent final : public WSFaultEvent {
public:
    using WSFaultEvent::WSFaultEvent;
    ~OwningFaultEvent() override {
        freeText(faultCode);
        freeText(faultString);
        freeText(appName);
    }
};

}  // namespace

namespace portal {

void beginPage(JNIEnv* env, jstring pageName, jstring applicationName, jstring url,
               jstring userName) {
    VEL_TRACE("beginPage(JNIEnv*, jstring, jstring, jstring, jstring)");
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr) return;
    const javatext::Text name =
        javatext::copy(env, pageName, MemoryMonitor::getURLLimit(), 1);  // an array of its own
    thread->setPortalPageName(name.chars);
    capture::beginRequest<PortalPageEvent>(env, *thread, pageName, applicationName, url, userName);
}

void endPage(JNIEnv* env) {
    VEL_TRACE("endPage(JNIEnv*)");
    end<PortalPageEvent>(env);
}

void beginPortlet(JNIEnv* env, jstring portletName, jstring applicationName, jstring url,
                  jstring userName) {
    VEL_TRACE("beginPortlet(JNIEnv*, jstring, jstring, jstring, jstring)");
    begin<PortalPortletEvent>(env, portletName, applicationName, url, userName);
}

void endPortlet(JNIEnv* env) {
    VEL_TRACE("endPortlet(JNIEnv*)");
    end<PortalPortletEvent>(env);
}

void beginDoVerbFor(JNIEnv* env, jstring requestName, jstring applicationName, jstring url) {
    VEL_TRACE("beginDoVerbFor(JNIEnv*, jstring, jstring, jstring)");
    begin<DoVerbForEvent>(env, requestName, applicationName, url);
}

void endDoVerbFor(JNIEnv* env) {
    VEL_TRACE("endDoVerbFor(JNIEnv*)");
    end<DoVerbForEvent>(env);
}

void beginPollForEvents(JNIEnv* env, jstring requestName, jstring applicationName, jstring url) {
    VEL_TRACE("beginPollForEvents(JNIEnv*, jstring, jstring, jstring)");
    begin<PollForEvent>(env, requestName, applicationName, url);
}

void endPollForEvents(JNIEnv* env) {
    VEL_TRACE("endPollForEvents(JNIEnv*)");
    end<PollForEvent>(env);
}

bool appendGatewayServlet(JNIEnv* env, EventSubType phase) {
    VEL_TRACE("appendGatewayServlet(JNIEnv*, EventSubType)");
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr) return false;
    auto event = std::make_unique<PortalGatewayServletEvent>(phase);
    event->depth = thread->servletDepth_;
    if (const char* const page = thread->getPortalPageName(); phase == END && page != nullptr) {
        event->pageName = Utils::cstrdup(page);
        capture::charge(*event, static_cast<int>(std::strlen(page)));
        thread->setPortalPageName(nullptr);
    }
    return queue(env, thread, std::move(event));
}

bool appendMethod(JNIEnv* env, EventType type, EventSubType phase, jstring methodName) {
    VEL_TRACE("appendMethod(JNIEnv*, EventType, EventSubType, jstring)");
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr) return false;
    const std::unique_ptr<char[]> name(Utils::java2c_string(env, methodName));
    const jbyte id = PortalMethodMgr::getInstance().getMethodId(env, name.get());
    switch (type) {
        case PORTAL_AUTHENTICATION:
            return appendStep<PortalAuthenticationEvent>(env, thread, phase, id);
        case PORTAL_AUTHORIZATION:
            return appendStep<PortalAuthorizationEvent>(env, thread, phase, id);
        case PORTAL_MODEL_BUILDING_REQUEST:
            return appendStep<PortalModelBuildingEvent>(env, thread, phase, id);
        case PORTAL_PAGE_LOADING_REQUEST:
            return appendStep<PortalPageLoadingEvent>(env, thread, phase, id);
        case PORTAL_PAGE_RENDERING_REQUEST:
            return appendStep<PortalPageRenderingEvent>(env, thread, phase, id);
        case PORTAL_ACTION_REQUEST:
            return appendStep<PortalActionEvent>(env, thread, phase, id);
        default:
            return false;
    }
}

bool appendAccessChecks(JNIEnv* env, EventType type, jint count, jlong avgTimeTaken) {
    VEL_TRACE("appendAccessChecks(JNIEnv*, EventType, jint, jlong)");
    if (type != PORTAL_AUTH && type != PORTAL_AC) return false;
    return appendSummary<PortalAuthAcEvent>(env, type, count, avgTimeTaken);
}

bool appendAggregate(JNIEnv* env, EventType type, jint count, jlong avgTimeTaken) {
    VEL_TRACE("appendAggregate(JNIEnv*, EventType, jint, jlong)");
    if (type < PORTAL_GATEWAY_SERVLET || type > PORTAL_PAGE_LOADING) return false;
    return appendSummary<PortalAggregateDataEvent>(env, type, count, avgTimeTaken);
}

bool appendCredentialVault(JNIEnv* env, const CredentialVault& summary) {
    VEL_TRACE("appendCredentialVault(JNIEnv*, const CredentialVault&)");
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr) return false;
    auto event = std::make_unique<PortalCredentialVaultEvent>(NOSTYPE);
    event->getCredentialCount = summary.getCredential.count;
    event->getCredentialAvgTime = summary.getCredential.avgTime;
    event->setCredentialBinaryCount = summary.setCredentialBinary.count;
    event->setCredentialBinaryAvgTime = summary.setCredentialBinary.avgTime;
    event->setCredentialUserPasswordCount = summary.setCredentialUserPassword.count;
    event->setCredentialUserPasswordAvgTime = summary.setCredentialUserPassword.avgTime;
    event->createSlotCount = summary.createSlot.count;
    event->createSlotAvgTime = summary.createSlot.avgTime;
    event->deleteSlotCount = summary.deleteSlot.count;
    event->deleteSlotAvgTime = summary.deleteSlot.avgTime;
    return queue(env, thread, std::move(event));
}

bool appendContentAccess(JNIEnv* env, const ContentAccess& summary) {
    VEL_TRACE("appendContentAccess(JNIEnv*, const ContentAccess&)");
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr) return false;
    auto event = std::make_unique<PortalContentAccessEvent>(NOSTYPE);
    event->getInputStreamCount = summary.getInputStream.count;
    event->getInputStreamAvgTime = summary.getInputStream.avgTime;
    event->getMarkupCount = summary.getMarkup.count;
    event->getMarkupAvgTime = summary.getMarkup.avgTime;
    event->getURLCount = summary.getURL.count;
    event->getURLAvgTime = summary.getURL.avgTime;
    event->includeCount = summary.include.count;
    event->includeAvgTime = summary.include.avgTime;
    return queue(env, thread, std::move(event));
}

}  // namespace portal

namespace webservice {

void beginClient(JNIEnv* env, jstring applicationName, jstring operation, jstring url) {
    VEL_TRACE("beginClient(JNIEnv*, jstring, jstring, jstring)");
    begin<WSClientEvent>(env, operation, applicationName, url);
}

void endClient(JNIEnv* env) {
    VEL_TRACE("endClient(JNIEnv*)");
    end<WSClientEvent>(env);
}

void beginProvider(JNIEnv* env, jstring applicationName, jstring operation, jstring url) {
    VEL_TRACE("beginProvider(JNIEnv*, jstring, jstring, jstring)");
    begin<WSProviderEvent>(env, operation, applicationName, url);
}

void endProvider(JNIEnv* env) {
    VEL_TRACE("endProvider(JNIEnv*)");
    end<WSProviderEvent>(env);
}

bool appendFault(JNIEnv* env, EventSubType phase, jstring applicationName, jstring faultCode,
                 jstring faultString) {
    VEL_TRACE("appendFault(JNIEnv*, EventSubType, jstring, jstring, jstring)");
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr) return false;
    auto event = std::make_unique<OwningFaultEvent>(phase);
    event->servletDepth = thread->servletDepth_;
    event->appName = capture::attach(*event, env, applicationName);
    event->faultCode = capture::attach(*event, env, faultCode);
    event->faultString = capture::attach(*event, env, faultString);
    return queue(env, thread, std::move(event));
}

}  // namespace webservice
