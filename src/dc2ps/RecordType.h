// The first byte of every record: what kind of fact it carries.
#pragma once

#include <cstdint>

namespace dc2ps {

// X(name in code, value on the wire, name shown to people)
#define DC2PS_RECORD_TYPES(X)                                        \
    X(header, 0, "HEADER")                                           \
    X(classLoad, 1, "CLASS_LOAD")                                    \
    X(methodEntry, 2, "METHOD_ENTRY")                                \
    X(methodExit, 3, "METHOD_EXIT")                                  \
    X(servletStart, 4, "SERVLET_REQUEST_START")                      \
    X(servletEnd, 5, "SERVLET_REQUEST_END")                          \
    X(ejbStart, 6, "EJB_REQUEST_START")                              \
    X(ejbEnd, 7, "EJB_REQUEST_END")                                  \
    X(trace, 8, "TRACE_REQUEST")                                     \
    X(sqlStart, 9, "SQL_START")                                      \
    X(sqlEnd, 10, "SQL_END")                                         \
    X(dropped, 11, "DROPPED")                                        \
    X(classUnload, 12, "CLASS_UNLOAD")                               \
    X(gcStart, 13, "GC_START")                                       \
    X(gcEnd, 14, "GC_END")                                           \
    X(gpsStart, 15, "GPS_REQUEST_START")                             \
    X(gpsEnd, 16, "GPS_REQUEST_END")                                 \
    X(gpsConnect, 17, "GPS_REQUEST_CONNECT")                         \
    X(gpsComplete, 18, "GPS_REQUEST_COMPLETE")                       \
    X(jmsReceiveStart, 25, "JMS_RECEIVE_START")                      \
    X(jmsReceiveEnd, 26, "JMS_RECEIVE_END")                          \
    X(jmsBrowseStart, 27, "JMS_BROWSE_START")                        \
    X(jmsBrowseEnd, 28, "JMS_BROWSE_END")                            \
    X(jmsSendStart, 29, "JMS_SEND_START")                            \
    X(jmsSendEnd, 30, "JMS_SEND_END")                                \
    X(jmsPublishStart, 31, "JMS_PUBLISH_START")                      \
    X(jmsPublishEnd, 32, "JMS_PUBLISH_END")                          \
    X(jndiStart, 33, "JNDI_START")                                   \
    X(jndiEnd, 34, "JNDI_END")                                       \
    X(mailStart, 35, "JAVA_MAIL_START")                              \
    X(mailEnd, 36, "JAVA_MAIL_END")                                  \
    X(jcaStart, 37, "JCA_START")                                     \
    X(jcaEnd, 38, "JCA_END")                                         \
    X(sampling, 39, "SAMPLING_RATE")                                 \
    X(ctg, 40, "CTG_REQUEST")                                        \
    X(mqi, 41, "MQI_REQUEST")                                        \
    X(psStatus, 44, "PSSTATUS")                                      \
    X(exception, 45, "EXCEPTION")                                    \
    X(portalGatewayAverage, 46, "PORTAL_GATEWAY_SERVLET")            \
    X(portalModelAverage, 47, "PORTAL_MODEL_BUILDING")               \
    X(portalPageAverage, 48, "PORTAL_PAGE_LOADING")                  \
    X(servletError, 50, "SERVLET_REQUEST_ERROR")                     \
    X(gpsInvokeStart, 51, "GPS_REQUEST_INVOKE_START")                \
    X(gpsInvokeEnd, 52, "GPS_REQUEST_INVOKE_END")                    \
    X(gpsReceiveStart, 53, "GPS_REQUEST_RECEIVE_START")              \
    X(gpsReceiveEnd, 54, "GPS_REQUEST_RECEIVE_END")                  \
    X(gpsPutStart, 55, "GPS_PUT_START")                              \
    X(gpsPutEnd, 56, "GPS_PUT_END")                                  \
    X(gpsGetStart, 57, "GPS_GET_START")                              \
    X(gpsGetEnd, 58, "GPS_GET_END")                                  \
    X(portalAuthAverage, 61, "PORTAL_AUTH")                          \
    X(portalAccessAverage, 62, "PORTAL_AC")                          \
    X(portalCredentialVault, 63, "PORTAL_CREDENTIALVAULT")           \
    X(portalContentAccess, 64, "PORTAL_CONTENTACCESS")               \
    X(portalPageStart, 65, "PORTAL_PAGE_START")                      \
    X(portalPageEnd, 66, "PORTAL_PAGE_END")                          \
    X(portletStart, 67, "PORTAL_PORTLET_START")                      \
    X(portletEnd, 68, "PORTAL_PORTLET_END")                          \
    X(agentInit, 100, "INIT")                                        \
    X(serverInit, 101, "APPSERVER_INIT")                             \
    X(standaloneInit, 107, "STANDALONE_INIT")                        \
    X(mqStart, 110, "MQ_START")                                      \
    X(mqEnd, 111, "MQ_END")                                          \
    X(doVerbForStart, 112, "DOVERBFOR_REQUEST_START")                \
    X(doVerbForEnd, 113, "DOVERBFOR_REQUEST_END")                    \
    X(pollForEventsStart, 114, "POLLFOREVENTS_REQUEST_START")        \
    X(pollForEventsEnd, 115, "POLLFOREVENTS_REQUEST_END")            \
    X(lockAcquireStart, 118, "LOCK_ACQUIRE_START")                   \
    X(lockAcquireEnd, 119, "LOCK_ACQUIRE_END")                       \
    X(lockContendStart, 120, "LOCK_CONTEND_START")                   \
    X(lockContendEnd, 121, "LOCK_CONTEND_END")                       \
    X(lockReleaseStart, 122, "LOCK_RELEASE_START")                   \
    X(lockReleaseEnd, 123, "LOCK_RELEASE_END")                       \
    X(heapStart, 124, "HEAP_ALLOCATION_START")                       \
    X(heapEnd, 125, "HEAP_ALLOCATION_END")                           \
    X(portalAuthenticationStart, 130, "PORTAL_AUTHENTICATION_START") \
    X(portalAuthenticationEnd, 131, "PORTAL_AUTHENTICATION_END")     \
    X(portalAuthorizationStart, 132, "PORTAL_AUTHORIZATION_START")   \
    X(portalAuthorizationEnd, 133, "PORTAL_AUTHORIZATION_END")       \
    X(portalModelStart, 134, "PORTAL_MODEL_BUILDING_START")          \
    X(portalModelEnd, 135, "PORTAL_MODEL_BUILDING_END")              \
    X(portalPageLoadStart, 136, "PORTAL_PAGE_LOADING_START")         \
    X(portalPageLoadEnd, 137, "PORTAL_PAGE_LOADING_END")             \
    X(portalActionStart, 138, "PORTAL_ACTION_START")                 \
    X(portalActionEnd, 139, "PORTAL_ACTION_END")                     \
    X(portalGatewayStart, 140, "PORTAL_GATEWAY_SERVLET_START")       \
    X(portalGatewayEnd, 141, "PORTAL_GATEWAY_SERVLET_END")           \
    X(portalRenderStart, 142, "PORTAL_PAGE_RENDERING_START")         \
    X(portalRenderEnd, 143, "PORTAL_PAGE_RENDERING_END")             \
    X(portalTopologyStart, 144, "PORTAL_BUILDING_TOPOLOGY_START")    \
    X(portalTopologyEnd, 145, "PORTAL_BUILDING_TOPOLOGY_END")        \
    X(portalMethodName, 146, "PORTAL_METHOD_CONSTANT")               \
    X(jdoStart, 147, "JDO_START")                                    \
    X(jdoEnd, 148, "JDO_END")                                        \
    X(iiopClientStart, 150, "IIOP_CLIENT_START")                     \
    X(iiopClientEnd, 151, "IIOP_CLIENT_END")                         \
    X(iiopServerStart, 152, "IIOP_SERVER_START")                     \
    X(iiopServerEnd, 153, "IIOP_SERVER_END")                         \
    X(wsClientStart, 199, "WS_CLIENT_START")                         \
    X(wsClientEnd, 200, "WS_CLIENT_END")                             \
    X(wsProviderStart, 201, "WS_PROVIDER_START")                     \
    X(wsProviderEnd, 202, "WS_PROVIDER_END")                         \
    X(wsFaultStart, 203, "WS_FAULT_START")                           \
    X(wsFaultEnd, 204, "WS_FAULT_END")

// 15 to 18, 144 and 145 are taken numbers that no agent sends; they have no layout.
enum class RecordType : std::uint8_t {
// NOLINTNEXTLINE(bugprone-macro-parentheses): the name of an enumerator
#define DC2PS_ENUMERATOR(name, value, shown) name = value,
    DC2PS_RECORD_TYPES(DC2PS_ENUMERATOR)
#undef DC2PS_ENUMERATOR
};

// The name shown to people; null for a value that is no record type.
const char* recordTypeName(RecordType type);

}  // namespace dc2ps
