// Lock acquisition, contention and release, and heap allocation: what the instrumented methods
// report.
#pragma once

#include "event/Event.h"

class LockEvent : public Event {
public:
    LockEvent(EventType type, EventSubType subType, int cost) : Event(type, subType, cost) {}
    ~LockEvent() override;

    jmethodID method_id = nullptr;
    char* className = nullptr;  // owned
    std::int32_t depth = 0;
};

class LockAcquisitionEvent final : public LockEvent {
public:
    explicit LockAcquisitionEvent(EventSubType subType)
        : LockEvent(LOCK_ACQUISITION, subType, EventCosts::LOCK_ACQUISITION) {}
};

class LockReleaseEvent final : public LockEvent {
public:
    explicit LockReleaseEvent(EventSubType subType)
        : LockEvent(LOCK_RELEASE, subType, EventCosts::LOCK_RELEASE) {}
};

// owning...: the request that holds the lock which this thread waits for.
class LockContentionEvent final : public LockEvent {
public:
    explicit LockContentionEvent(EventSubType subType)
        : LockEvent(LOCK_CONTENTION, subType, EventCosts::LOCK_CONTENTION) {}
    ~LockContentionEvent() override;

    jbyte owningRequestType = 0;
    char* owningRequestName = nullptr;      // owned
    char* owningApplicationName = nullptr;  // owned
    jmethodID owning_method_id = nullptr;
};

class HeapEvent final : public Event {
public:
    explicit HeapEvent(EventSubType subType) : Event(HEAP, subType, EventCosts::HEAP) {}
    ~HeapEvent() override;

    jmethodID method_id = nullptr;            // the allocating method
    char* instantiated_class_name = nullptr;  // owned
    std::int32_t line_number = 0;
    std::int32_t depth = 0;
};
