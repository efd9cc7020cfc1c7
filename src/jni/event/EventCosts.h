// What a queued event of each kind is charged with before its texts are known, in bytes: the
// starting value of Event::size_. The memory monitor offers the same names as its own members by
// deriving from this.
#pragma once

#include <cstdint>

struct EventCosts {
    static constexpr std::int16_t THREAD_DATA = 232;  // one ThreadData
    static constexpr std::int16_t METHOD = 72;
    static constexpr std::int16_t CLASS = 96;
    static constexpr std::int16_t GC = 72;
    static constexpr std::int16_t REQUEST = 88;
    static constexpr std::int16_t SQL = 72;
    static constexpr std::int16_t JMS = 80;
    static constexpr std::int16_t JCA = 56;
    static constexpr std::int16_t JNDI = 64;
    static constexpr std::int16_t MAIL = 64;
    static constexpr std::int16_t SAMPLE = 64;
    static constexpr std::int16_t CTG = 96;
    static constexpr std::int16_t MQI = 104;
    static constexpr std::int16_t DROP = 72;
    static constexpr std::int16_t TRACE = 88;
    static constexpr std::int16_t GPS = 88;
    static constexpr std::int16_t PORTAL_AUTH_AC = 56;
    static constexpr std::int16_t PORTAL_CREDENTIALVAULT = 120;
    static constexpr std::int16_t PORTAL_CONTENTACCESS = 104;
    static constexpr std::int16_t PORTAL_AGGREGATE_DATA = 56;
    static constexpr std::int16_t PORTAL_AUTHENTICATION = 56;
    static constexpr std::int16_t PORTAL_AUTHORIZATION = 56;
    static constexpr std::int16_t PORTAL_MODEL_BUILDING_REQUEST = 56;
    static constexpr std::int16_t PORTAL_PAGE_LOADING_REQUEST = 56;
    static constexpr std::int16_t PORTAL_PAGE_RENDERING_REQUEST = 56;
    static constexpr std::int16_t PORTAL_ACTION_REQUEST = 56;
    static constexpr std::int16_t PORTAL_GATEWAY_SERVLET_REQUEST = 56;
    static constexpr std::int16_t PORTAL_METHOD_CONSTANT = 56;
    static constexpr std::int16_t WS_CLIENT = 88;
    static constexpr std::int16_t WS_PROVIDER = 88;
    static constexpr std::int16_t WS_FAULT = 80;
    static constexpr std::int16_t PSSTATUS = 56;
    static constexpr std::int16_t EXCEPTION = 80;
    static constexpr std::int16_t MQ = 112;  // set by the builder; the constructor charges REQUEST
    static constexpr std::int16_t GPSMQ = 112;  // likewise
    static constexpr std::int16_t HEAP = 72;
    static constexpr std::int16_t JDO = 72;
    static constexpr std::int16_t LOCK_ACQUISITION = 72;
    static constexpr std::int16_t LOCK_CONTENTION = 96;
    static constexpr std::int16_t LOCK_RELEASE = 72;
    static constexpr std::int16_t COMMON_EVENT = 328;  // the class and method calls of CommonEvent
};
