// Events about the collector itself: its server's names, sampling rates, dropped events, server
// status.
#pragma once

#include "event/Event.h"

// Has no record: encoding one is refused like an unknown kind.
class ServerNameEvent final : public Event {
public:
    explicit ServerNameEvent(EventSubType subType)
        : Event(SERVERNAME, subType, EventCosts::REQUEST) {}
    ~ServerNameEvent() override;

    char* request_name = nullptr;      // owned
    char* application_name = nullptr;  // owned
    char* url = nullptr;               // owned
    char* userName = nullptr;          // owned
    int servletDepth = 0;
};

class SamplingEvent final : public Event {
public:
    explicit SamplingEvent(EventSubType subType) : Event(SAMPLING, subType, EventCosts::SAMPLE) {}

    std::int32_t probeLevels[4] = {};  // sampling rate of each level
    std::int32_t useDefault = 0;       // 1: the defaults are in use
};

// How many events of a thread were lost, START and other phases apart.
class DroppedEvent final : public Event {
public:
    explicit DroppedEvent(EventSubType subType) : Event(DROPPED, subType, EventCosts::DROP) {}

    // The six classes of lost events, in the order of the counts below.
    enum Lost { kRecStart, kRecEnd, kMethStart, kMethEnd, kSqlStart, kSqlEnd, kLostClasses };
    // Phase START counts as start, every other phase as end.
    static Lost lostClass(const Event& lost) {
        const int kind = lost.type_ == METHOD ? kMethStart
                         : lost.type_ == SQL  ? kSqlStart
                                              : kRecStart;
        return static_cast<Lost>(kind + (lost.subType_ == START ? 0 : 1));
    }
    void add(Lost lost, std::int32_t events);

    std::int32_t dropRecStartCnt = 0;  // everything that is neither METHOD nor SQL
    std::int32_t dropRecEndCnt = 0;
    std::int32_t dropMethStartCnt = 0;  // METHOD
    std::int32_t dropMethEndCnt = 0;
    std::int32_t dropSQLStartCnt = 0;  // SQL
    std::int32_t dropSQLEndCnt = 0;
};

class PSStatusEvent final : public Event {
public:
    explicit PSStatusEvent(EventSubType subType) : Event(PSSTATUS, subType, EventCosts::PSSTATUS) {}
    ~PSStatusEvent() override;

    char* status_ = nullptr;  // owned
};
