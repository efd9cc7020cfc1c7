// From an event to its record: the dispatch by kind.
#include "event/Event.h"

#include "event/Events.h"
#include "event/ProtocolVisitor.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"

eventtext::Empty eventtext::empty{};

// No trace line: called once per event in the agents' innermost loop, and each caller traces.
bool Event::addToBuffer(char** buff) {
    if (buff == nullptr) return false;
    switch (type_) {
#define VELORA_ENCODE(kind, Class) \
    case kind:                     \
        return ProtocolVisitor::addToBuffer(static_cast<Class*>(this), buff);
        VELORA_EVENT_CLASSES(VELORA_ENCODE)
        VELORA_SISTER_KINDS(VELORA_ENCODE)
#undef VELORA_ENCODE
        // The kinds 45 and 46 override this operation; SERVERNAME and REQUEST have no record.
        case SERVERNAME:
        case REQUEST:
        case IIOP_CLIENT:
        case IIOP_SERVER:
            break;
    }
    logMessage(msg::kUnknownEventType, static_cast<int>(type_));
    return false;
}

std::size_t Event::encodedSize() const {
    switch (type_) {
#define VELORA_MEASURE(kind, Class) \
    case kind:                      \
        return ProtocolVisitor::recordBytes(static_cast<const Class*>(this));
        VELORA_EVENT_CLASSES(VELORA_MEASURE)
        VELORA_SISTER_KINDS(VELORA_MEASURE)
        VELORA_MEASURE(IIOP_CLIENT, CommonEvent)
        VELORA_MEASURE(IIOP_SERVER, CommonEvent)
#undef VELORA_MEASURE
        case SERVERNAME:
        case REQUEST:
            break;
    }
    return 0;
}
