#include "capture/PortalBuilders.h"

#include <cstring>
#include <memory>

#include "capture/CallingThread.h"
#include "capture/EventStamp.h"
#include "capture/EventUtils.h"
#include "capture/PortalMethodMgr.h"
#include "event/WebServiceEvents.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"

namespace {

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
