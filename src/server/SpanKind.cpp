#include "server/SpanKind.h"

namespace server {

SpanGroup groupOf(SpanKind kind) {
    static constexpr SpanGroup groups[] = {
#define VELORA_SPAN_GROUP(name, group, shown) SpanGroup::group,
        VELORA_SPAN_KINDS(VELORA_SPAN_GROUP)
#undef VELORA_SPAN_GROUP
    };
    return groups[static_cast<std::size_t>(kind)];
}

const char* spanKindName(SpanKind kind) {
    static constexpr const char* names[] = {
#define VELORA_SPAN_NAME(name, group, shown) shown,
        VELORA_SPAN_KINDS(VELORA_SPAN_NAME)
#undef VELORA_SPAN_NAME
    };
    return names[static_cast<std::size_t>(kind)];
}

SpanKind spanKindOf(dc2ps::RecordType type) {
    using dc2ps::RecordType;
    switch (type) {
        case RecordType::ejbStart:
        case RecordType::ejbEnd:
            return SpanKind::ejb;
        case RecordType::gpsInvokeStart:
        case RecordType::gpsInvokeEnd:
            return SpanKind::gpsInvoke;
        case RecordType::gpsReceiveStart:
        case RecordType::gpsReceiveEnd:
            return SpanKind::gpsReceive;
        case RecordType::iiopClientStart:
        case RecordType::iiopClientEnd:
            return SpanKind::iiopClient;
        case RecordType::iiopServerStart:
        case RecordType::iiopServerEnd:
            return SpanKind::iiopServer;
        case RecordType::portalPageStart:
        case RecordType::portalPageEnd:
            return SpanKind::portalPage;
        case RecordType::portletStart:
        case RecordType::portletEnd:
            return SpanKind::portlet;
        case RecordType::doVerbForStart:
        case RecordType::doVerbForEnd:
            return SpanKind::doVerbFor;
        case RecordType::pollForEventsStart:
        case RecordType::pollForEventsEnd:
            return SpanKind::pollForEvents;
        case RecordType::wsClientStart:
        case RecordType::wsClientEnd:
            return SpanKind::wsClient;
        case RecordType::wsProviderStart:
        case RecordType::wsProviderEnd:
            return SpanKind::wsProvider;
        case RecordType::wsFaultStart:
        case RecordType::wsFaultEnd:
            return SpanKind::wsFault;
        case RecordType::sqlStart:
        case RecordType::sqlEnd:
            return SpanKind::sql;
        case RecordType::jndiStart:
        case RecordType::jndiEnd:
            return SpanKind::jndi;
        case RecordType::mailStart:
        case RecordType::mailEnd:
            return SpanKind::mail;
        case RecordType::jcaStart:
        case RecordType::jcaEnd:
            return SpanKind::jca;
        case RecordType::jmsReceiveStart:
        case RecordType::jmsReceiveEnd:
            return SpanKind::jmsReceive;
        case RecordType::jmsBrowseStart:
        case RecordType::jmsBrowseEnd:
            return SpanKind::jmsBrowse;
        case RecordType::jmsSendStart:
        case RecordType::jmsSendEnd:
            return SpanKind::jmsSend;
        case RecordType::jmsPublishStart:
        case RecordType::jmsPublishEnd:
            return SpanKind::jmsPublish;
        case RecordType::jdoStart:
        case RecordType::jdoEnd:
            return SpanKind::jdo;
        case RecordType::mqStart:
        case RecordType::mqEnd:
            return SpanKind::mq;
        case RecordType::gpsPutStart:
        case RecordType::gpsPutEnd:
            return SpanKind::gpsPut;
        case RecordType::gpsGetStart:
        case RecordType::gpsGetEnd:
            return SpanKind::gpsGet;
        case RecordType::portalAuthenticationStart:
        case RecordType::portalAuthenticationEnd:
            return SpanKind::portalAuthentication;
        case RecordType::portalAuthorizationStart:
        case RecordType::portalAuthorizationEnd:
            return SpanKind::portalAuthorization;
        case RecordType::portalModelStart:
        case RecordType::portalModelEnd:
            return SpanKind::portalModelBuilding;
        case RecordType::portalPageLoadStart:
        case RecordType::portalPageLoadEnd:
            return SpanKind::portalPageLoading;
        case RecordType::portalActionStart:
        case RecordType::portalActionEnd:
            return SpanKind::portalAction;
        case RecordType::portalGatewayStart:
        case RecordType::portalGatewayEnd:
            return SpanKind::portalGatewayServlet;
        case RecordType::portalRenderStart:
        case RecordType::portalRenderEnd:
            return SpanKind::portalPageRendering;
        case RecordType::heapStart:
        case RecordType::heapEnd:
            return SpanKind::heapAllocation;
        case RecordType::lockAcquireStart:
        case RecordType::lockAcquireEnd:
            return SpanKind::lockAcquisition;
        case RecordType::lockContendStart:
        case RecordType::lockContendEnd:
            return SpanKind::lockContention;
        case RecordType::lockReleaseStart:
        case RecordType::lockReleaseEnd:
            return SpanKind::lockRelease;
        case RecordType::methodEntry:
        case RecordType::methodExit:
            return SpanKind::method;
        default:
            return SpanKind::servlet;
    }
}

}  // namespace server
