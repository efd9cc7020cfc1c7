// One captured fact: the root of all event classes, their kinds and their phases.
//
// The concrete classes stand in RequestEvents.h, ResourceEvents.h, PortalEvents.h,
// WebServiceEvents.h, LockEvents.h, VmEvents.h, ControlEvents.h and CommonEvent.h; Events.h
// includes them all.
//
// Ownership: made with new by its builder, then owned by its thread's queue, then by the event
// agent that popped it and deletes it, encoded or not. Never copied or shared. Its texts are arrays
// that the destructor frees (EventText.h), unless the class says otherwise. Threads: one at a time,
// so no lock: builder, queue (under the queue's lock), event agent.
#pragma once

#include <jni.h>

#include <cstddef>
#include <cstdint>

#include "event/EventCosts.h"
#include "event/EventText.h"
#include "foundation/BlockPool.h"

enum EventSubType : std::int16_t {
    START = 0,
    END = 1,
    ERRORS = 2,
    LOAD = 3,
    UNLOAD = 4,
    CONNECT = 5,
    COMPLETE = 6,
    NOSTYPE = 7,
};

enum EventType : std::int16_t {
    SERVERNAME = 0,
    CLASS = 1,
    REQUEST = 2,  // no class of its own: the base kind of RequestEvent
    METHOD = 3,
    SERVLET = 4,
    EJB = 5,
    TRACE = 6,
    SQL = 7,
    GC = 8,
    JMS = 9,
    JCA = 10,
    JNDI = 11,
    MAIL = 12,
    SAMPLING = 13,
    GPS = 14,
    DROPPED = 15,
    CTG = 16,
    MQI = 17,
    PORTAL_AUTH = 18,
    PORTAL_AC = 19,
    PORTAL_CREDENTIALVAULT = 20,
    PORTAL_CONTENTACCESS = 21,
    PORTAL_PAGE = 22,
    PORTAL_PORTLET = 23,
    PSSTATUS = 24,
    EXCEPTION = 25,
    MQ = 26,
    GPSMQ = 27,
    DOVERBFOR = 28,
    POLLFOREVENTS = 29,
    HEAP = 30,
    LOCK_ACQUISITION = 31,
    LOCK_CONTENTION = 32,
    LOCK_RELEASE = 33,
    PORTAL_GATEWAY_SERVLET = 34,
    PORTAL_MODEL_BUILDING = 35,
    PORTAL_PAGE_LOADING = 36,
    PORTAL_AUTHENTICATION = 37,
    PORTAL_AUTHORIZATION = 38,
    PORTAL_MODEL_BUILDING_REQUEST = 39,
    PORTAL_PAGE_LOADING_REQUEST = 40,
    PORTAL_PAGE_RENDERING_REQUEST = 41,
    PORTAL_ACTION_REQUEST = 42,
    PORTAL_GATEWAY_SERVLET_REQUEST = 43,
    PORTAL_METHOD_CONSTANT = 44,
    IIOP_CLIENT = 45,
    IIOP_SERVER = 46,
    JDO = 47,
    WS_CLIENT = 48,
    WS_PROVIDER = 49,
    WS_FAULT = 50,
};

// Which class carries a kind. Dispatch and encoder are made from this list, X(kind, class); a kind
// that is missing does not compile.
#define VELORA_EVENT_CLASSES(X)                                  \
    X(CLASS, ClassEvent)                                         \
    X(METHOD, MethodEvent)                                       \
    X(SERVLET, ServletEvent)                                     \
    X(EJB, EJBEvent)                                             \
    X(TRACE, TraceEvent)                                         \
    X(SQL, SQLEvent)                                             \
    X(GC, GCEvent)                                               \
    X(JMS, JMSEvent)                                             \
    X(JCA, JCAEvent)                                             \
    X(JNDI, JNDIEvent)                                           \
    X(MAIL, MailEvent)                                           \
    X(SAMPLING, SamplingEvent)                                   \
    X(GPS, GPSEvent)                                             \
    X(DROPPED, DroppedEvent)                                     \
    X(CTG, CTGEvent)                                             \
    X(MQI, MQIEvent)                                             \
    X(PORTAL_AUTH, PortalAuthAcEvent)                            \
    X(PORTAL_CREDENTIALVAULT, PortalCredentialVaultEvent)        \
    X(PORTAL_CONTENTACCESS, PortalContentAccessEvent)            \
    X(PORTAL_PAGE, PortalPageEvent)                              \
    X(PORTAL_PORTLET, PortalPortletEvent)                        \
    X(PSSTATUS, PSStatusEvent)                                   \
    X(EXCEPTION, ExceptionEvent)                                 \
    X(MQ, MQEvent)                                               \
    X(GPSMQ, GPSMQEvent)                                         \
    X(DOVERBFOR, DoVerbForEvent)                                 \
    X(POLLFOREVENTS, PollForEvent)                               \
    X(HEAP, HeapEvent)                                           \
    X(LOCK_ACQUISITION, LockAcquisitionEvent)                    \
    X(LOCK_CONTENTION, LockContentionEvent)                      \
    X(LOCK_RELEASE, LockReleaseEvent)                            \
    X(PORTAL_GATEWAY_SERVLET, PortalAggregateDataEvent)          \
    X(PORTAL_AUTHENTICATION, PortalAuthenticationEvent)          \
    X(PORTAL_AUTHORIZATION, PortalAuthorizationEvent)            \
    X(PORTAL_MODEL_BUILDING_REQUEST, PortalModelBuildingEvent)   \
    X(PORTAL_PAGE_LOADING_REQUEST, PortalPageLoadingEvent)       \
    X(PORTAL_PAGE_RENDERING_REQUEST, PortalPageRenderingEvent)   \
    X(PORTAL_ACTION_REQUEST, PortalActionEvent)                  \
    X(PORTAL_GATEWAY_SERVLET_REQUEST, PortalGatewayServletEvent) \
    X(PORTAL_METHOD_CONSTANT, PortalMethodConstantEvent)         \
    X(JDO, JDOEvent)                                             \
    X(WS_CLIENT, WSClientEvent)                                  \
    X(WS_PROVIDER, WSProviderEvent)                              \
    X(WS_FAULT, WSFaultEvent)

// Further kinds of a class of the list above.
#define VELORA_SISTER_KINDS(X)                         \
    X(PORTAL_AC, PortalAuthAcEvent)                    \
    X(PORTAL_MODEL_BUILDING, PortalAggregateDataEvent) \
    X(PORTAL_PAGE_LOADING, PortalAggregateDataEvent)

class Event {
public:
    Event(EventType type, EventSubType subType, int cost)
        : size_(static_cast<std::int16_t>(cost)), type_(type), subType_(subType) {}
    virtual ~Event() = default;

    // Writes one record at *buff and moves *buff past it; true when a record was written. The
    // caller has reserved the room: see fits(). False, with nothing written, for a null buff, for a
    // kind that has no record (1039) and for a phase or action that has none (1141, once per kind).
    virtual bool addToBuffer(char** buff);

    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    // Events come from per-thread free lists of three block sizes, larger ones from the heap.
    // Inline, so that the size, known where an event is made and where it dies, chooses the list at
    // compile time.
    static void* operator new(std::size_t size) {
        if (size <= kSmallBlock) return BlockPool<kSmallBlock>::allocate();
        if (size <= kMediumBlock) return BlockPool<kMediumBlock>::allocate();
        if (size <= kLargeBlock) return BlockPool<kLargeBlock>::allocate();
        return ::operator new(size);
    }
    static void operator delete(void* memory, std::size_t size) noexcept {
        if (size <= kSmallBlock) return BlockPool<kSmallBlock>::release(memory);
        if (size <= kMediumBlock) return BlockPool<kMediumBlock>::release(memory);
        if (size <= kLargeBlock) return BlockPool<kLargeBlock>::release(memory);
        ::operator delete(memory);
    }
    static constexpr std::size_t kSmallBlock = 64;   // most resource, VM and lock events
    static constexpr std::size_t kMediumBlock = 80;  // requests
    static constexpr std::size_t kLargeBlock = 128;  // message queues, summaries

    EventType getType() const { return type_; }
    EventSubType getSubType() const { return subType_; }

    // False for the events that a full queue takes all the same: class, sampling, dropped and
    // portal method-constant events.
    bool isDroppable() const {
        return type_ != CLASS && type_ != SAMPLING && type_ != DROPPED &&
               type_ != PORTAL_METHOD_CONSTANT;
    }

    // The bytes that addToBuffer() writes; 0 where it refuses. Walks the texts (and a class's
    // methods). Exact, but for a CommonEvent that sends its method name only once: measured with
    // the name.
    std::size_t encodedSize() const;

    // No record except those of CLASS and MQI events is longer than this (the encoder checks it
    // when it is compiled): five texts of 65535 bytes and their lengths, and the numbers.
    static constexpr std::size_t kMaxTextRecord = 5 * (2 + 65535) + 128;

    // Whether the record surely fits into room bytes; looks at the texts only when room is scarce.
    bool fits(std::size_t room) const {
        if (room >= kMaxTextRecord && type_ != CLASS && type_ != MQI) return true;
        return encodedSize() <= room;
    }

    static constexpr std::uint32_t kHeldBesideTexts = 96;  // its block and the queue's node

    // A text of so many bytes, terminator included, has become the event's.
    void noteText(int bytes) {
        if (bytes <= 1) return;  // the shared empty text, or a registered one
        textBytes_ += static_cast<std::uint32_t>(bytes < 64    ? 64
                                                 : bytes < 126 ? 128
                                                               : (bytes + 8 + 15) & ~15);
    }
    // Bytes that the queued event really holds beyond size_, which takes its texts as average ones.
    std::uint32_t heldBeyondCharge() const {
        const std::uint32_t held = kHeldBesideTexts + textBytes_;
        const auto charged = static_cast<std::uint32_t>(size_);
        return held > charged ? held - charged : 0;
    }

    std::uint32_t threadId_ = 0;   // ThreadData::threadIntId_ of the producing thread
    std::uint32_t textBytes_ = 0;  // of memory that the event's texts take
    std::int64_t cpuTime_ = 0;     // ns of thread CPU time at capture, set by the builder
    std::uint32_t timeSec_ = 0;    // wall clock at capture
    std::uint32_t timeUSec_ = 0;
    std::int16_t size_;  // approximate bytes held: the kind's cost, then plus the texts' lengths
    EventType type_;
    EventSubType subType_;
};

class RequestEvent;
class LockEvent;
class CommonEvent;
class ServletEvent;
class EJBEvent;
class TraceEvent;
class GPSEvent;
class GPSMQEvent;
class MQEvent;
