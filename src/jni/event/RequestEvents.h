// Units of work of the monitored server: servlet, EJB, trace, portal page and portlet, correlated
// (GPS) and message-queue requests.
#pragma once

#include "event/Event.h"

class RequestEvent : public Event {
public:
    RequestEvent(EventType type, EventSubType subType)
        : Event(type, subType, EventCosts::REQUEST) {}
    ~RequestEvent() override;

    char* request_name = nullptr;      // owned
    char* application_name = nullptr;  // owned
    char* url = nullptr;               // owned
    char* userName = nullptr;          // owned
    int servletDepth = 0;              // nesting depth of the request in its thread
};

class ServletEvent final : public RequestEvent {
public:
    explicit ServletEvent(EventSubType subType) : RequestEvent(SERVLET, subType) {}
};

class EJBEvent final : public RequestEvent {
public:
    explicit EJBEvent(EventSubType subType) : RequestEvent(EJB, subType) {}
};

class TraceEvent final : public RequestEvent {
public:
    explicit TraceEvent(EventSubType subType) : RequestEvent(TRACE, subType) {}
};

class PortalPageEvent final : public RequestEvent {
public:
    explicit PortalPageEvent(EventSubType subType) : RequestEvent(PORTAL_PAGE, subType) {}
};

class PortalPortletEvent final : public RequestEvent {
public:
    explicit PortalPortletEvent(EventSubType subType) : RequestEvent(PORTAL_PORTLET, subType) {}
};

class DoVerbForEvent final : public RequestEvent {
public:
    explicit DoVerbForEvent(EventSubType subType) : RequestEvent(DOVERBFOR, subType) {}
};

class PollForEvent final : public RequestEvent {
public:
    explicit PollForEvent(EventSubType subType) : RequestEvent(POLLFOREVENTS, subType) {}
};

// A correlated call: START and END on the caller's side, CONNECT and COMPLETE on the called side.
// For START and CONNECT request_name holds the 4 token bytes, most significant first, and a zero
// byte.
class GPSEvent final : public RequestEvent {
public:
    explicit GPSEvent(EventSubType subType) : RequestEvent(GPS, subType) {}

    std::uint32_t token = 0;  // the correlation token as a number
};

class MQEvent final : public RequestEvent {
public:
    explicit MQEvent(EventSubType subType) : RequestEvent(MQ, subType) {}
    ~MQEvent() override;

    std::int32_t depth = 0;
    std::int32_t action = 0;
    char* queueName = nullptr;     // owned
    char* queueMgrName = nullptr;  // owned
};

// What a GPSMQEvent did with its queue; any other value has no record.
enum GPSMQ_ACTION : std::int32_t { GPSMQ_PUT = 1, GPSMQ_GET = 2 };

class GPSMQEvent final : public RequestEvent {
public:
    explicit GPSMQEvent(EventSubType subType) : RequestEvent(GPSMQ, subType) {}
    ~GPSMQEvent() override;

    std::int32_t depth = 0;
    char* queueName = nullptr;   // owned
    jbyte* gpsToken = nullptr;   // owned array of arrLength bytes
    std::int32_t action = 0;     // GPSMQ_ACTION
    std::int32_t arrLength = 0;  // bytes in gpsToken
};
