// Calls that are told by class and method name: IIOP calls made (client) and served (server).
//
// A subclass may send its method name only once per kind (isMethodMapEnabled); the map of kinds
// that have been named is shared by all event agents and emptied when an agent (re)starts its loop
// and when a connection has been opened.
#pragma once

#include "event/Event.h"
#include "foundation/VelHashTable.h"

class CommonEvent : public Event {
public:
    CommonEvent(EventType type, EventSubType subType)
        : Event(type, subType, EventCosts::COMMON_EVENT) {}
    ~CommonEvent() override;

    bool addToBuffer(char** buff) override;
    // Writes what a subclass adds to its START record; at most kMaxCustomData bytes. Nothing by
    // default.
    virtual bool addCustomDataToBuffer(char** buff);
    // Completes the event on its own thread before it is queued; extra is the builder's, null for
    // none.
    virtual bool init(JNIEnv* env, jstring* extra);
    virtual bool isMethodMapEnabled();

    static bool hasMaped(int key);
    static void setMaped(int key);
    static void resetMethodIDMap();

    static constexpr std::size_t kMaxCustomData = 1024;

    // Made when the library loads and kept for the life of the process: agents may still encode
    // while the process exits.
    static VelHashTable<int, int>* const methodNamedMaped;

    char* className = nullptr;   // owned
    char* methodName = nullptr;  // owned
    int depth = 0;
};

class IIOP_ClientEvent final : public CommonEvent {
public:
    explicit IIOP_ClientEvent(EventSubType subType) : CommonEvent(IIOP_CLIENT, subType) {}
};

class IIOP_ServerEvent final : public CommonEvent {
public:
    explicit IIOP_ServerEvent(EventSubType subType) : CommonEvent(IIOP_SERVER, subType) {}
};
