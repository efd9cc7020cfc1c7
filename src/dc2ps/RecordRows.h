// The list of all records: everything that tells one kind of record from another is made from it.
//
// A record's first byte says its type. A row gives its number, its name for people, the struct that
// lays its fields out (Records.h), the phase that it tells and the kind of work that it starts or
// ends. Whatever goes by kinds (names, decoder, encoder, span kinds) is a table made from the rows,
// so that a row with a part forgotten does not compile. docs/ARCHITECTURE.md tells how to add one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace dc2ps {

// What the record of a unit of work tells of it. single: the record stands for itself.
enum class Phase : std::uint8_t { start, end, error, single };

// Kinds of work that have a start and an end record, and what may be open at the same time.
enum class SpanGroup : std::uint8_t {
    request,       // raises the thread's nesting depth: one can be open at each depth
    looseRequest,  // a request that may share its depth with the one around it
    call,          // made by a request, carries the depth of that request
    lock,          // a call too
    heap,          // a call too
    method         // has no depth; nests like brackets
};

// X(name in code and name shown, group)
#define DC2PS_SPAN_KINDS(X)        \
    X(servlet, request)            \
    X(ejb, request)                \
    X(gpsInvoke, request)          \
    X(gpsReceive, request)         \
    X(iiopClient, request)         \
    X(iiopServer, request)         \
    X(portalPage, looseRequest)    \
    X(portlet, looseRequest)       \
    X(doVerbFor, looseRequest)     \
    X(pollForEvents, looseRequest) \
    X(wsClient, looseRequest)      \
    X(wsProvider, looseRequest)    \
    X(wsFault, call)               \
    X(sql, call)                   \
    X(jndi, call)                  \
    X(mail, call)                  \
    X(jca, call)                   \
    X(jmsReceive, call)            \
    X(jmsBrowse, call)             \
    X(jmsSend, call)               \
    X(jmsPublish, call)            \
    X(jdo, call)                   \
    X(mq, call)                    \
    X(gpsPut, call)                \
    X(gpsGet, call)                \
    X(portalAuthentication, call)  \
    X(portalAuthorization, call)   \
    X(portalModelBuilding, call)   \
    X(portalPageLoading, call)     \
    X(portalAction, call)          \
    X(portalGatewayServlet, call)  \
    X(portalPageRendering, call)   \
    X(heapAllocation, heap)        \
    X(lockAcquisition, lock)       \
    X(lockContention, lock)        \
    X(lockRelease, lock)           \
    X(method, method)

// none: the record neither starts nor ends work; also how many kinds there are.
enum class SpanKind : std::uint8_t {
#define DC2PS_SPAN_ENUMERATOR(name, group) name,
    DC2PS_SPAN_KINDS(DC2PS_SPAN_ENUMERATOR)
#undef DC2PS_SPAN_ENUMERATOR
        none
};

// X(name in code, number, name shown to people, layout, phase, span kind)
// 15 to 18, 144 and 145 are taken numbers that no agent sends; they have no layout. An end stands
// behind its start and has the next number.
#define DC2PS_RECORD_ROWS(X)                                                                       \
    X(header, 0, HEADER, PacketHeader, single, none)                                               \
    X(classLoad, 1, CLASS_LOAD, ClassLoad, single, none)                                           \
    X(methodEntry, 2, METHOD_ENTRY, MethodStep, start, method)                                     \
    X(methodExit, 3, METHOD_EXIT, MethodStep, end, method)                                         \
    X(servletStart, 4, SERVLET_REQUEST_START, ServletRequest, start, servlet)                      \
    X(servletEnd, 5, SERVLET_REQUEST_END, ServletRequest, end, servlet)                            \
    X(ejbStart, 6, EJB_REQUEST_START, NamedRequest, start, ejb)                                    \
    X(ejbEnd, 7, EJB_REQUEST_END, NamedRequest, end, ejb)                                          \
    X(trace, 8, TRACE_REQUEST, Trace, single, none)                                                \
    X(sqlStart, 9, SQL_START, SqlCall, start, sql)                                                 \
    X(sqlEnd, 10, SQL_END, SqlCall, end, sql)                                                      \
    X(dropped, 11, DROPPED, Dropped, single, none)                                                 \
    X(classUnload, 12, CLASS_UNLOAD, ClassUnload, single, none)                                    \
    X(gcStart, 13, GC_START, Gc, start, none)                                                      \
    X(gcEnd, 14, GC_END, Gc, end, none)                                                            \
    X(gpsStart, 15, GPS_REQUEST_START, NoLayout, single, none)                                     \
    X(gpsEnd, 16, GPS_REQUEST_END, NoLayout, single, none)                                         \
    X(gpsConnect, 17, GPS_REQUEST_CONNECT, NoLayout, single, none)                                 \
    X(gpsComplete, 18, GPS_REQUEST_COMPLETE, NoLayout, single, none)                               \
    X(jmsReceiveStart, 25, JMS_RECEIVE_START, JmsCall, start, jmsReceive)                          \
    X(jmsReceiveEnd, 26, JMS_RECEIVE_END, JmsCall, end, jmsReceive)                                \
    X(jmsBrowseStart, 27, JMS_BROWSE_START, JmsCall, start, jmsBrowse)                             \
    X(jmsBrowseEnd, 28, JMS_BROWSE_END, JmsCall, end, jmsBrowse)                                   \
    X(jmsSendStart, 29, JMS_SEND_START, JmsCall, start, jmsSend)                                   \
    X(jmsSendEnd, 30, JMS_SEND_END, JmsCall, end, jmsSend)                                         \
    X(jmsPublishStart, 31, JMS_PUBLISH_START, JmsCall, start, jmsPublish)                          \
    X(jmsPublishEnd, 32, JMS_PUBLISH_END, JmsCall, end, jmsPublish)                                \
    X(jndiStart, 33, JNDI_START, JndiCall, start, jndi)                                            \
    X(jndiEnd, 34, JNDI_END, JndiCall, end, jndi)                                                  \
    X(mailStart, 35, JAVA_MAIL_START, MailCall, start, mail)                                       \
    X(mailEnd, 36, JAVA_MAIL_END, MailCall, end, mail)                                             \
    X(jcaStart, 37, JCA_START, JcaCall, start, jca)                                                \
    X(jcaEnd, 38, JCA_END, JcaCall, end, jca)                                                      \
    X(sampling, 39, SAMPLING_RATE, Sampling, single, none)                                         \
    X(ctg, 40, CTG_REQUEST, Ctg, single, none)                                                     \
    X(mqi, 41, MQI_REQUEST, Mqi, single, none)                                                     \
    X(psStatus, 44, PSSTATUS, PsStatus, single, none)                                              \
    X(exception, 45, EXCEPTION, Exception, single, none)                                           \
    X(portalGatewayAverage, 46, PORTAL_GATEWAY_SERVLET, PortalAverage, single, none)               \
    X(portalModelAverage, 47, PORTAL_MODEL_BUILDING, PortalAverage, single, none)                  \
    X(portalPageAverage, 48, PORTAL_PAGE_LOADING, PortalAverage, single, none)                     \
    X(servletError, 50, SERVLET_REQUEST_ERROR, ServletRequest, error, servlet)                     \
    X(gpsInvokeStart, 51, GPS_REQUEST_INVOKE_START, GpsRequest, start, gpsInvoke)                  \
    X(gpsInvokeEnd, 52, GPS_REQUEST_INVOKE_END, GpsRequest, end, gpsInvoke)                        \
    X(gpsReceiveStart, 53, GPS_REQUEST_RECEIVE_START, GpsRequest, start, gpsReceive)               \
    X(gpsReceiveEnd, 54, GPS_REQUEST_RECEIVE_END, GpsRequest, end, gpsReceive)                     \
    X(gpsPutStart, 55, GPS_PUT_START, GpsMqCall, start, gpsPut)                                    \
    X(gpsPutEnd, 56, GPS_PUT_END, GpsMqCall, end, gpsPut)                                          \
    X(gpsGetStart, 57, GPS_GET_START, GpsMqCall, start, gpsGet)                                    \
    X(gpsGetEnd, 58, GPS_GET_END, GpsMqCall, end, gpsGet)                                          \
    X(portalAuthAverage, 61, PORTAL_AUTH, PortalAverage, single, none)                             \
    X(portalAccessAverage, 62, PORTAL_AC, PortalAverage, single, none)                             \
    X(portalCredentialVault, 63, PORTAL_CREDENTIALVAULT, PortalCredentialVault, single, none)      \
    X(portalContentAccess, 64, PORTAL_CONTENTACCESS, PortalContentAccess, single, none)            \
    X(portalPageStart, 65, PORTAL_PAGE_START, PortalRequest, start, portalPage)                    \
    X(portalPageEnd, 66, PORTAL_PAGE_END, PortalRequest, end, portalPage)                          \
    X(portletStart, 67, PORTAL_PORTLET_START, PortalRequest, start, portlet)                       \
    X(portletEnd, 68, PORTAL_PORTLET_END, PortalRequest, end, portlet)                             \
    X(agentInit, 100, INIT, AgentInit, single, none)                                               \
    X(serverInit, 101, APPSERVER_INIT, ServerInit, single, none)                                   \
    X(standaloneInit, 107, STANDALONE_INIT, ServerInit, single, none)                              \
    X(mqStart, 110, MQ_START, MqCall, start, mq)                                                   \
    X(mqEnd, 111, MQ_END, MqCall, end, mq)                                                         \
    X(doVerbForStart, 112, DOVERBFOR_REQUEST_START, NamedRequest, start, doVerbFor)                \
    X(doVerbForEnd, 113, DOVERBFOR_REQUEST_END, NamedRequest, end, doVerbFor)                      \
    X(pollForEventsStart, 114, POLLFOREVENTS_REQUEST_START, NamedRequest, start, pollForEvents)    \
    X(pollForEventsEnd, 115, POLLFOREVENTS_REQUEST_END, NamedRequest, end, pollForEvents)          \
    X(lockAcquireStart, 118, LOCK_ACQUIRE_START, LockStep, start, lockAcquisition)                 \
    X(lockAcquireEnd, 119, LOCK_ACQUIRE_END, LockStep, end, lockAcquisition)                       \
    X(lockContendStart, 120, LOCK_CONTEND_START, LockContention, start, lockContention)            \
    X(lockContendEnd, 121, LOCK_CONTEND_END, LockContention, end, lockContention)                  \
    X(lockReleaseStart, 122, LOCK_RELEASE_START, LockStep, start, lockRelease)                     \
    X(lockReleaseEnd, 123, LOCK_RELEASE_END, LockStep, end, lockRelease)                           \
    X(heapStart, 124, HEAP_ALLOCATION_START, HeapAllocation, start, heapAllocation)                \
    X(heapEnd, 125, HEAP_ALLOCATION_END, HeapAllocation, end, heapAllocation)                      \
    X(portalAuthenticationStart, 130, PORTAL_AUTHENTICATION_START, PortalStep, start,              \
      portalAuthentication)                                                                        \
    X(portalAuthenticationEnd, 131, PORTAL_AUTHENTICATION_END, PortalStep, end,                    \
      portalAuthentication)                                                                        \
    X(portalAuthorizationStart, 132, PORTAL_AUTHORIZATION_START, PortalStep, start,                \
      portalAuthorization)                                                                         \
    X(portalAuthorizationEnd, 133, PORTAL_AUTHORIZATION_END, PortalStep, end, portalAuthorization) \
    X(portalModelStart, 134, PORTAL_MODEL_BUILDING_START, PortalStep, start, portalModelBuilding)  \
    X(portalModelEnd, 135, PORTAL_MODEL_BUILDING_END, PortalStep, end, portalModelBuilding)        \
    X(portalPageLoadStart, 136, PORTAL_PAGE_LOADING_START, PortalStep, start, portalPageLoading)   \
    X(portalPageLoadEnd, 137, PORTAL_PAGE_LOADING_END, PortalStep, end, portalPageLoading)         \
    X(portalActionStart, 138, PORTAL_ACTION_START, PortalStep, start, portalAction)                \
    X(portalActionEnd, 139, PORTAL_ACTION_END, PortalStep, end, portalAction)                      \
    X(portalGatewayStart, 140, PORTAL_GATEWAY_SERVLET_START, PortalGateway, start,                 \
      portalGatewayServlet)                                                                        \
    X(portalGatewayEnd, 141, PORTAL_GATEWAY_SERVLET_END, PortalGateway, end, portalGatewayServlet) \
    X(portalRenderStart, 142, PORTAL_PAGE_RENDERING_START, PortalStep, start, portalPageRendering) \
    X(portalRenderEnd, 143, PORTAL_PAGE_RENDERING_END, PortalStep, end, portalPageRendering)       \
    X(portalTopologyStart, 144, PORTAL_BUILDING_TOPOLOGY_START, NoLayout, single, none)            \
    X(portalTopologyEnd, 145, PORTAL_BUILDING_TOPOLOGY_END, NoLayout, single, none)                \
    X(portalMethodName, 146, PORTAL_METHOD_CONSTANT, PortalMethodName, single, none)               \
    X(jdoStart, 147, JDO_START, JdoCall, start, jdo)                                               \
    X(jdoEnd, 148, JDO_END, JdoCall, end, jdo)                                                     \
    X(iiopClientStart, 150, IIOP_CLIENT_START, IiopRequest, start, iiopClient)                     \
    X(iiopClientEnd, 151, IIOP_CLIENT_END, IiopRequest, end, iiopClient)                           \
    X(iiopServerStart, 152, IIOP_SERVER_START, IiopRequest, start, iiopServer)                     \
    X(iiopServerEnd, 153, IIOP_SERVER_END, IiopRequest, end, iiopServer)                           \
    X(wsClientStart, 199, WS_CLIENT_START, WebServiceRequest, start, wsClient)                     \
    X(wsClientEnd, 200, WS_CLIENT_END, WebServiceRequest, end, wsClient)                           \
    X(wsProviderStart, 201, WS_PROVIDER_START, WebServiceRequest, start, wsProvider)               \
    X(wsProviderEnd, 202, WS_PROVIDER_END, WebServiceRequest, end, wsProvider)                     \
    X(wsFaultStart, 203, WS_FAULT_START, WsFault, start, wsFault)                                  \
    X(wsFaultEnd, 204, WS_FAULT_END, WsFault, end, wsFault)

enum class RecordType : std::uint8_t {
// NOLINTNEXTLINE(bugprone-macro-parentheses): the name of an enumerator
#define DC2PS_ENUMERATOR(name, number, shown, layout, phase, span) name = number,
    DC2PS_RECORD_ROWS(DC2PS_ENUMERATOR)
#undef DC2PS_ENUMERATOR
};

struct RecordRow {
    const char* shown = nullptr;  // the name for people; null for a number that is no record type
    Phase phase = Phase::single;
    SpanKind span = SpanKind::none;
};

// By number.
inline constexpr std::array<RecordRow, 256> kRecordRows = [] {
    std::array<RecordRow, 256> rows{};
    const auto add = [&rows](std::size_t number, const RecordRow& row) {
        if (rows[number].shown != nullptr) throw "a number that has a row already";
        rows[number] = row;
    };
#define DC2PS_ROW(name, number, shown, layout, phase, span) \
    add(number, {#shown, Phase::phase, SpanKind::span});
    DC2PS_RECORD_ROWS(DC2PS_ROW)
#undef DC2PS_ROW
    return rows;
}();

constexpr const RecordRow& rowOf(RecordType type) {
    return kRecordRows[static_cast<std::size_t>(type)];
}

// The name shown to people; null for a value that is no record type.
constexpr const char* recordTypeName(RecordType type) {
    return rowOf(type).shown;
}

// What a record type starts or ends.
constexpr SpanKind spanKindOf(RecordType type) {
    return rowOf(type).span;
}

// Writers rely on it: the number of an end is that of its start and one.
static_assert([] {
    for (std::size_t i = 1; i < kRecordRows.size(); ++i) {
        const RecordRow& start = kRecordRows[i - 1];
        const RecordRow& end = kRecordRows[i];
        if (end.phase == Phase::end && (start.phase != Phase::start || start.span != end.span))
            return false;
    }
    return true;
}());

// Of every kind but none.
constexpr SpanGroup groupOf(SpanKind kind) {
    constexpr SpanGroup groups[] = {
#define DC2PS_SPAN_GROUP(name, group) SpanGroup::group,
        DC2PS_SPAN_KINDS(DC2PS_SPAN_GROUP)
#undef DC2PS_SPAN_GROUP
    };
    return groups[static_cast<std::size_t>(kind)];
}

constexpr const char* spanKindName(SpanKind kind) {
    constexpr const char* names[] = {
#define DC2PS_SPAN_NAME(name, group) #name,
        DC2PS_SPAN_KINDS(DC2PS_SPAN_NAME)
#undef DC2PS_SPAN_NAME
            "none"};
    return names[static_cast<std::size_t>(kind)];
}

}  // namespace dc2ps
