// What the VM itself does: classes loaded and unloaded, methods entered and left, exceptions,
// garbage collections.
#pragma once

#include "event/Event.h"

class jclass_t;

class ClassEvent final : public Event {
public:
    explicit ClassEvent(EventSubType subType) : Event(CLASS, subType, EventCosts::CLASS) {}
    ~ClassEvent() override;

    jclass_t* classData = nullptr;  // owned: for an unload the clone of the class's record
};

class MethodEvent final : public Event {
public:
    explicit MethodEvent(EventSubType subType) : Event(METHOD, subType, EventCosts::METHOD) {}
    ~MethodEvent() override;

    jmethodID method_id = nullptr;
    std::int32_t datalength = 0;  // bytes in data
    char* data = nullptr;         // owned; not sent
};

class ExceptionEvent final : public Event {
public:
    explicit ExceptionEvent(EventSubType subType)
        : Event(EXCEPTION, subType, EventCosts::EXCEPTION) {}
    ~ExceptionEvent() override;

    char* exception = nullptr;    // owned
    char* class_name = nullptr;   // owned
    char* method_name = nullptr;  // owned
    char* stacktrace = nullptr;   // owned
};

class GCEvent final : public Event {
public:
    explicit GCEvent(EventSubType subType) : Event(GC, subType, EventCosts::GC) {}

    std::int64_t used_objects = 0;        // count; -1: the VM does not tell
    std::int64_t used_object_space = 0;   // bytes
    std::int64_t total_object_space = 0;  // bytes
};
