// Web-service calls, made (client) and served (provider), and their faults.
#pragma once

#include "event/RequestEvents.h"

class WSClientEvent final : public RequestEvent {
public:
    explicit WSClientEvent(EventSubType subType) : RequestEvent(WS_CLIENT, subType) {}
};

class WSProviderEvent final : public RequestEvent {
public:
    explicit WSProviderEvent(EventSubType subType) : RequestEvent(WS_PROVIDER, subType) {}
};

// Intended: does not free its three texts; a builder that makes texts of its own derives from it.
class WSFaultEvent : public Event {
public:
    explicit WSFaultEvent(EventSubType subType) : Event(WS_FAULT, subType, EventCosts::WS_FAULT) {}

    char* faultCode = nullptr;    // not owned
    char* faultString = nullptr;  // not owned
    char* appName = nullptr;      // not owned
    int servletDepth = 0;
};
