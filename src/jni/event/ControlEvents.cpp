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

namespace {

constexpr std::int32_t LostCounts::*kCounts[LostCounts::kLostClasses] = {
    &LostCounts::dropRecStartCnt, &LostCounts::dropRecEndCnt,   &LostCounts::dropMethStartCnt,
    &LostCounts::dropMethEndCnt,  &LostCounts::dropSQLStartCnt, &LostCounts::dropSQLEndCnt,
};

}  // namespace

void LostCounts::add(Lost lost, std::int32_t events) {
    this->*kCounts[lost] += events;
}

void LostCounts::add(const LostCounts& more) {
    for (const auto count : kCounts) this->*count += more.*count;
}

long LostCounts::sum() const {
    long events = 0;
    for (const auto count : kCounts) events += this->*count;
    return events;
}
