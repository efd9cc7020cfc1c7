// The kinds of work that have a start and an end record, and what may be open at the same time.
#pragma once

#include <cstdint>

#include "dc2ps/Records.h"

namespace server {

enum class SpanGroup : std::uint8_t {
    request,       // raises the thread's nesting depth: one can be open at each depth
    looseRequest,  // a request that may share its depth with the one around it
    call,          // made by a request, carries the depth of that request
    lock,          // a call too
    heap,          // a call too
    method         // has no depth; nests like brackets
};

// X(name in code, group, name shown)
#define VELORA_SPAN_KINDS(X)                              \
    X(servlet, request, "servlet")                        \
    X(ejb, request, "ejb")                                \
    X(gpsInvoke, request, "gpsInvoke")                    \
    X(gpsReceive, request, "gpsReceive")                  \
    X(iiopClient, request, "iiopClient")                  \
    X(iiopServer, request, "iiopServer")                  \
    X(portalPage, looseRequest, "portalPage")             \
    X(portlet, looseRequest, "portlet")                   \
    X(doVerbFor, looseRequest, "doVerbFor")               \
    X(pollForEvents, looseRequest, "pollForEvents")       \
    X(wsClient, looseRequest, "wsClient")                 \
    X(wsProvider, looseRequest, "wsProvider")             \
    X(wsFault, call, "wsFault")                           \
    X(sql, call, "sql")                                   \
    X(jndi, call, "jndi")                                 \
    X(mail, call, "mail")                                 \
    X(jca, call, "jca")                                   \
    X(jmsReceive, call, "jmsReceive")                     \
    X(jmsBrowse, call, "jmsBrowse")                       \
    X(jmsSend, call, "jmsSend")                           \
    X(jmsPublish, call, "jmsPublish")                     \
    X(jdo, call, "jdo")                                   \
    X(mq, call, "mq")                                     \
    X(gpsPut, call, "gpsPut")                             \
    X(gpsGet, call, "gpsGet")                             \
    X(portalAuthentication, call, "portalAuthentication") \
    X(portalAuthorization, call, "portalAuthorization")   \
    X(portalModelBuilding, call, "portalModelBuilding")   \
    X(portalPageLoading, call, "portalPageLoading")       \
    X(portalAction, call, "portalAction")                 \
    X(portalGatewayServlet, call, "portalGatewayServlet") \
    X(portalPageRendering, call, "portalPageRendering")   \
    X(heapAllocation, heap, "heapAllocation")             \
    X(lockAcquisition, lock, "lockAcquisition")           \
    X(lockContention, lock, "lockContention")             \
    X(lockRelease, lock, "lockRelease")                   \
    X(method, method, "method")

enum class SpanKind : std::uint8_t {
#define VELORA_SPAN_ENUMERATOR(name, group, shown) name,
    VELORA_SPAN_KINDS(VELORA_SPAN_ENUMERATOR)
#undef VELORA_SPAN_ENUMERATOR
};

SpanGroup groupOf(SpanKind kind);
const char* spanKindName(SpanKind kind);

inline bool isRequest(SpanKind kind) {
    return groupOf(kind) <= SpanGroup::looseRequest;
}

// What a record type starts or ends; only for types of Timed records and MethodStep.
SpanKind spanKindOf(dc2ps::RecordType type);

}  // namespace server
