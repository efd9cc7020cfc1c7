// Events about the collector itself: its server's names, sampling rates, dropped events, server
// status.
#pragma once

#include "event/Event.h"
#include "event/LostCounts.h"

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
class DroppedEvent final : public Event, public LostCounts {
public:
    explicit DroppedEvent(EventSubType subType) : Event(DROPPED, subType, EventCosts::DROP) {}
};

class PSStatusEvent final : public Event {
public:
    explicit PSStatusEvent(EventSubType subType) : Event(PSSTATUS, subType, EventCosts::PSSTATUS) {}
    ~PSStatusEvent() override;

    char* status_ = nullptr;  // owned
};
