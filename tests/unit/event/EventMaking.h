// Events for tests: filled as the builders of the capture floor do, with values that are easy to
// find again.
#pragma once

#include <cstring>
#include <memory>
#include <string>

#include "event/Events.h"
#include "instrument/class.h"

namespace make {

// A text as builders attach it: an array of its own.
inline char* text(const std::string& value) {
    auto* const copy = new char[value.size() + 1];
    std::memcpy(copy, value.c_str(), value.size() + 1);
    return copy;
}

inline jmethodID method(std::uintptr_t id) {
    return reinterpret_cast<jmethodID>(id);
}

// Thread 01020304, 5 s 6 us, CPU 9 ns: the times of the frame in every expected record.
template <typename EventClass>
std::unique_ptr<EventClass> stamped(std::unique_ptr<EventClass> event) {
    event->threadId_ = 0x01020304;
    event->timeSec_ = 5;
    event->timeUSec_ = 6;
    event->cpuTime_ = 9;
    return event;
}

template <typename EventClass>
std::unique_ptr<EventClass> event(EventSubType phase) {
    return stamped(std::make_unique<EventClass>(phase));
}

template <typename EventClass>
std::unique_ptr<EventClass> event(EventType type, EventSubType phase) {
    return stamped(std::make_unique<EventClass>(type, phase));
}

// A request at depth 2 with names r, a, url u and user n.
template <typename EventClass>
std::unique_ptr<EventClass> request(EventSubType phase) {
    auto made = event<EventClass>(phase);
    made->servletDepth = 2;
    made->request_name = text("r");
    made->application_name = text("a");
    made->url = text("u");
    made->userName = text("n");
    return made;
}

}  // namespace make
