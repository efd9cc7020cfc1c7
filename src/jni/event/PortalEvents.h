// Portal requests and the portal's periodic summaries.
#pragma once

#include "event/Event.h"

// Summary of authentications (PORTAL_AUTH) or access checks (PORTAL_AC).
class PortalAuthAcEvent final : public Event {
public:
    PortalAuthAcEvent(EventType type, EventSubType subType)
        : Event(type, subType, EventCosts::PORTAL_AUTH_AC) {}

    std::int32_t count = 0;
    std::int64_t avgTimeTaken = 0;
};

// Summary of PORTAL_GATEWAY_SERVLET, PORTAL_MODEL_BUILDING or PORTAL_PAGE_LOADING.
class PortalAggregateDataEvent final : public Event {
public:
    PortalAggregateDataEvent(EventType type, EventSubType subType)
        : Event(type, subType, EventCosts::PORTAL_AGGREGATE_DATA) {}

    std::int32_t count = 0;
    std::int64_t avgTimeTaken = 0;
};

class PortalCredentialVaultEvent final : public Event {
public:
    explicit PortalCredentialVaultEvent(EventSubType subType)
        : Event(PORTAL_CREDENTIALVAULT, subType, EventCosts::PORTAL_CREDENTIALVAULT) {}

    std::int32_t getCredentialCount = 0;
    std::int64_t getCredentialAvgTime = 0;
    std::int32_t setCredentialBinaryCount = 0;
    std::int64_t setCredentialBinaryAvgTime = 0;
    std::int32_t setCredentialUserPasswordCount = 0;
    std::int64_t setCredentialUserPasswordAvgTime = 0;
    std::int32_t createSlotCount = 0;
    std::int64_t createSlotAvgTime = 0;
    std::int32_t deleteSlotCount = 0;
    std::int64_t deleteSlotAvgTime = 0;
};

class PortalContentAccessEvent final : public Event {
public:
    explicit PortalContentAccessEvent(EventSubType subType)
        : Event(PORTAL_CONTENTACCESS, subType, EventCosts::PORTAL_CONTENTACCESS) {}

    std::int32_t getInputStreamCount = 0;
    std::int64_t getInputStreamAvgTime = 0;
    std::int32_t getMarkupCount = 0;
    std::int64_t getMarkupAvgTime = 0;
    std::int32_t getURLCount = 0;
    std::int64_t getURLAvgTime = 0;
    std::int32_t includeCount = 0;
    std::int64_t includeAvgTime = 0;
};

class PortalAuthenticationEvent final : public Event {
public:
    explicit PortalAuthenticationEvent(EventSubType subType)
        : Event(PORTAL_AUTHENTICATION, subType, EventCosts::PORTAL_AUTHENTICATION) {}

    std::int32_t depth = 0;
    jbyte methodId = 0;  // named by a PortalMethodConstantEvent
};

class PortalAuthorizationEvent final : public Event {
public:
    explicit PortalAuthorizationEvent(EventSubType subType)
        : Event(PORTAL_AUTHORIZATION, subType, EventCosts::PORTAL_AUTHORIZATION) {}

    std::int32_t depth = 0;
    jbyte methodId = 0;
};

class PortalModelBuildingEvent final : public Event {
public:
    explicit PortalModelBuildingEvent(EventSubType subType)
        : Event(PORTAL_MODEL_BUILDING_REQUEST, subType, EventCosts::PORTAL_MODEL_BUILDING_REQUEST) {
    }

    std::int32_t depth = 0;
    jbyte methodId = 0;
};

class PortalPageLoadingEvent final : public Event {
public:
    explicit PortalPageLoadingEvent(EventSubType subType)
        : Event(PORTAL_PAGE_LOADING_REQUEST, subType, EventCosts::PORTAL_PAGE_LOADING_REQUEST) {}

    std::int32_t depth = 0;
    jbyte methodId = 0;
};

class PortalPageRenderingEvent final : public Event {
public:
    explicit PortalPageRenderingEvent(EventSubType subType)
        : Event(PORTAL_PAGE_RENDERING_REQUEST, subType, EventCosts::PORTAL_PAGE_RENDERING_REQUEST) {
    }

    std::int32_t depth = 0;
    jbyte methodId = 0;
};

class PortalActionEvent final : public Event {
public:
    explicit PortalActionEvent(EventSubType subType)
        : Event(PORTAL_ACTION_REQUEST, subType, EventCosts::PORTAL_ACTION_REQUEST) {}

    std::int32_t depth = 0;
    jbyte methodId = 0;
};

// The page's name is known only at the end, so the END record carries it.
class PortalGatewayServletEvent final : public Event {
public:
    explicit PortalGatewayServletEvent(EventSubType subType)
        : Event(PORTAL_GATEWAY_SERVLET_REQUEST, subType,
                EventCosts::PORTAL_GATEWAY_SERVLET_REQUEST) {}
    ~PortalGatewayServletEvent() override;

    std::int32_t depth = 0;
    char* pageName = nullptr;  // owned; null is sent as "PageNameUnknown"
};

// Tells the server which method name a methodId byte stands for.
class PortalMethodConstantEvent final : public Event {
public:
    explicit PortalMethodConstantEvent(EventSubType subType)
        : Event(PORTAL_METHOD_CONSTANT, subType, EventCosts::PORTAL_METHOD_CONSTANT) {}

    jbyte methodId = 0;
    char* methodName = nullptr;  // not owned: belongs to the table of portal methods, for ever
};
