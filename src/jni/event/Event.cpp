// From an event to its record: the dispatch by kind, and the bound of a record's length.
#include "event/Event.h"

#include "event/Events.h"
#include "event/ProtocolVisitor.h"
#include "foundation/Log.h"
#include "instrument/class.h"

eventtext::Empty eventtext::empty{};

namespace {

template <typename EventClass>
bool encode(Event* event, char** buff) {
    return ProtocolVisitor::addToBuffer(static_cast<EventClass*>(event), buff);
}

bool refuseUnknown(const Event& event) {
    logMessage(msg::kUnknownEventType, static_cast<int>(event.type_));
    return false;
}

}  // namespace

// No trace line: called once per event in the agents' innermost loop, and each caller traces.
bool Event::addToBuffer(char** buff) {
    if (buff == nullptr) return false;
    switch (type_) {
        case CLASS:
            return encode<ClassEvent>(this, buff);
        case METHOD:
            return encode<MethodEvent>(this, buff);
        case SERVLET:
            return encode<ServletEvent>(this, buff);
        case EJB:
            return encode<EJBEvent>(this, buff);
        case TRACE:
            return encode<TraceEvent>(this, buff);
        case SQL:
            return encode<SQLEvent>(this, buff);
        case GC:
            return encode<GCEvent>(this, buff);
        case JMS:
            return encode<JMSEvent>(this, buff);
        case JCA:
            return encode<JCAEvent>(this, buff);
        case JNDI:
            return encode<JNDIEvent>(this, buff);
        case MAIL:
            return encode<MailEvent>(this, buff);
        case SAMPLING:
            return encode<SamplingEvent>(this, buff);
        case GPS:
            return encode<GPSEvent>(this, buff);
        case DROPPED:
            return encode<DroppedEvent>(this, buff);
        case CTG:
            return encode<CTGEvent>(this, buff);
        case MQI:
            return encode<MQIEvent>(this, buff);
        case PORTAL_AUTH:
        case PORTAL_AC:
            return encode<PortalAuthAcEvent>(this, buff);
        case PORTAL_CREDENTIALVAULT:
            return encode<PortalCredentialVaultEvent>(this, buff);
        case PORTAL_CONTENTACCESS:
            return encode<PortalContentAccessEvent>(this, buff);
        case PORTAL_PAGE:
            return encode<PortalPageEvent>(this, buff);
        case PORTAL_PORTLET:
            return encode<PortalPortletEvent>(this, buff);
        case PSSTATUS:
            return encode<PSStatusEvent>(this, buff);
        case EXCEPTION:
            return encode<ExceptionEvent>(this, buff);
        case MQ:
            return encode<MQEvent>(this, buff);
        case GPSMQ:
            return encode<GPSMQEvent>(this, buff);
        case DOVERBFOR:
            return encode<DoVerbForEvent>(this, buff);
        case POLLFOREVENTS:
            return encode<PollForEvent>(this, buff);
        case HEAP:
            return encode<HeapEvent>(this, buff);
        case LOCK_ACQUISITION:
            return encode<LockAcquisitionEvent>(this, buff);
        case LOCK_CONTENTION:
            return encode<LockContentionEvent>(this, buff);
        case LOCK_RELEASE:
            return encode<LockReleaseEvent>(this, buff);
        case PORTAL_GATEWAY_SERVLET:
        case PORTAL_MODEL_BUILDING:
        case PORTAL_PAGE_LOADING:
            return encode<PortalAggregateDataEvent>(this, buff);
        case PORTAL_AUTHENTICATION:
            return encode<PortalAuthenticationEvent>(this, buff);
        case PORTAL_AUTHORIZATION:
            return encode<PortalAuthorizationEvent>(this, buff);
        case PORTAL_MODEL_BUILDING_REQUEST:
            return encode<PortalModelBuildingEvent>(this, buff);
        case PORTAL_PAGE_LOADING_REQUEST:
            return encode<PortalPageLoadingEvent>(this, buff);
        case PORTAL_PAGE_RENDERING_REQUEST:
            return encode<PortalPageRenderingEvent>(this, buff);
        case PORTAL_ACTION_REQUEST:
            return encode<PortalActionEvent>(this, buff);
        case PORTAL_GATEWAY_SERVLET_REQUEST:
            return encode<PortalGatewayServletEvent>(this, buff);
        case PORTAL_METHOD_CONSTANT:
            return encode<PortalMethodConstantEvent>(this, buff);
        case JDO:
            return encode<JDOEvent>(this, buff);
        case WS_CLIENT:
            return encode<WSClientEvent>(this, buff);
        case WS_PROVIDER:
            return encode<WSProviderEvent>(this, buff);
        case WS_FAULT:
            return encode<WSFaultEvent>(this, buff);
        // The kinds 45 and 46 override this operation; SERVERNAME and REQUEST have no record.
        case SERVERNAME:
        case REQUEST:
        case IIOP_CLIENT:
        case IIOP_SERVER:
            break;
    }
    return refuseUnknown(*this);
}
