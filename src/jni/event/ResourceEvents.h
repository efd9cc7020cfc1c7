// Calls to resources outside the server: SQL, JMS, JCA, JNDI, JDO, mail, and the periodic CTG and
// MQI summaries.
#pragma once

#include "event/Event.h"

class SQLEvent final : public Event {
public:
    explicit SQLEvent(EventSubType subType) : Event(SQL, subType, EventCosts::SQL) {}
    ~SQLEvent() override;

    char* data_source_name = nullptr;  // owned
    char* sql = nullptr;               // owned
    int servletDepth = 0;
};

enum JMS_ACTION : std::int32_t {
    JMS_RECEIVE = 1,
    JMS_BROWSE = 2,
    JMS_SEND = 3,
    JMS_PUBLISH = 4,
};

class JMSEvent final : public Event {
public:
    explicit JMSEvent(EventSubType subType) : Event(JMS, subType, EventCosts::JMS) {}
    ~JMSEvent() override;

    std::int32_t depth = 0;
    JMS_ACTION action = static_cast<JMS_ACTION>(0);  // 0 and unknown values have no record
    char* serverName = nullptr;                      // owned
    char* queueOrTopicName = nullptr;                // owned
    char* selector = nullptr;                        // owned; sent for receive and browse only
};

class JCAEvent final : public Event {
public:
    explicit JCAEvent(EventSubType subType) : Event(JCA, subType, EventCosts::JCA) {}
    ~JCAEvent() override;

    std::int32_t depth = 0;
    char* eisName = nullptr;  // owned
};

class JNDIEvent final : public Event {
public:
    explicit JNDIEvent(EventSubType subType) : Event(JNDI, subType, EventCosts::JNDI) {}
    ~JNDIEvent() override;

    std::int32_t depth = 0;
    char* providerURL = nullptr;  // owned
    char* lookupName = nullptr;   // owned
};

class JDOEvent final : public Event {
public:
    explicit JDOEvent(EventSubType subType) : Event(JDO, subType, EventCosts::JDO) {}
    ~JDOEvent() override;

    std::int32_t depth = 0;
    char* className = nullptr;       // owned
    char* methodName = nullptr;      // owned
    char* argumentString = nullptr;  // owned
};

class MailEvent final : public Event {
public:
    explicit MailEvent(EventSubType subType) : Event(MAIL, subType, EventCosts::MAIL) {}
    ~MailEvent() override;

    std::int32_t depth = 0;
    char* serverURL = nullptr;  // owned
    char* subject = nullptr;    // owned
};

class CTGEvent final : public Event {
public:
    explicit CTGEvent(EventSubType subType) : Event(CTG, subType, EventCosts::CTG) {}
    ~CTGEvent() override;

    char* gatewayName = nullptr;    // owned
    char* serverName = nullptr;     // owned
    char* progName = nullptr;       // owned
    std::int64_t snapShotTime = 0;  // as the Java side gives it
    std::int32_t count = 0;         // calls in the period
    std::int64_t avgTimeTaken = 0;
};

class MQIEvent final : public Event {
public:
    explicit MQIEvent(EventSubType subType) : Event(MQI, subType, EventCosts::MQI) {}
    ~MQIEvent() override;

    char* mgrName = nullptr;    // owned
    char* queueName = nullptr;  // owned
    std::int64_t snapShotTime = 0;
    jbyte* ctype = nullptr;                // owned array: call type of each entry
    std::int32_t* count = nullptr;         // owned array: calls of each entry
    std::int64_t* avgTimeTaken = nullptr;  // owned array: average time of each entry
    std::int32_t arrLength = 0;            // entries in each of the three arrays
};
