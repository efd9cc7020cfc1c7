// Events about the collector itself.
#include "event/ControlEvents.h"

ServerNameEvent::~ServerNameEvent() {
    freeText(request_name);
    freeText(application_name);
    freeText(url);
    freeText(userName);
}

PSStatusEvent::~PSStatusEvent() {
    freeText(status_);
}

void DroppedEvent::add(Lost lost, std::int32_t events) {
    static constexpr std::int32_t DroppedEvent::*kCounts[kLostClasses] = {
        &DroppedEvent::dropRecStartCnt,  &DroppedEvent::dropRecEndCnt,
        &DroppedEvent::dropMethStartCnt, &DroppedEvent::dropMethEndCnt,
        &DroppedEvent::dropSQLStartCnt,  &DroppedEvent::dropSQLEndCnt,
    };
    this->*kCounts[lost] += events;
}
