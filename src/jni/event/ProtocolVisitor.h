// Writes events as records of the wire format, DC2PS: one overload per class of event, made from
// the list of classes. Which member is which field stands in EventRecords.cpp; docs/WIRE.md draws
// every record.
//
// Every writer takes the position in the caller's buffer and moves it past what it wrote; none
// checks room (the event agent does, with Event::fits). Nothing is allocated and no state is kept,
// so any number of event agents may encode at once; the object itself only marks that the system is
// up.
#pragma once

#include <jni.h>

#include <cstdint>

#include "dc2ps/RecordRows.h"
#include "event/Events.h"
#include "foundation/VeloraBase.h"

// First byte of a record. The meaning of a request's phase is part of the type.
enum DC2PS_DataRecordTypes : int {
#define VELORA_RECORD_NUMBER(name, number, shown, layout, phase, span) \
    DC2PS_##shown##_RECORD = number,
    DC2PS_RECORD_ROWS(VELORA_RECORD_NUMBER)
#undef VELORA_RECORD_NUMBER
};

class ProtocolVisitor : public virtual VeloraBase {
public:
    static constexpr int kPacketHeaderBytes = 7;  // 1 + 4 + 2
    static constexpr int kMaxInitRecord = 17;     // 4 + 1 + 1 + 1 + 8 + 2
    static constexpr int kMaxServerInitRecord =
        1300;  // 5 + four texts of at most 2 + 255 + 4 + 2, rounded up

    static ProtocolVisitor* getInstance();  // made on first call
    static void destroy();
    ~ProtocolVisitor() override;

    void start();
    void stop();

    // The record at the start of a packet: how many records follow it.
    static void addPacketHeaderRecord(int packet_record_count, char** buf);

    // The first packet of a connection is the init record and one of the other two, without a
    // header.
    static void addInitRecord(char** buf);
    static void addJ2EEInitRecord(char** buf, JNIEnv* env);
    static void addStandaloneInitRecord(char** buf);

    // For each class of event: writes one record; false, with nothing written, when the event's
    // phase or action has no record type. And the bytes of that record; 0 when there is none.
#define VELORA_ENCODER(kind, Class)                  \
    static bool addToBuffer(Class* evt, char** buf); \
    static std::size_t recordBytes(const Class* evt);
    VELORA_EVENT_CLASSES(VELORA_ENCODER)
    VELORA_ENCODER(IIOP_CLIENT, CommonEvent)
#undef VELORA_ENCODER

    // Record type of an IIOP kind and phase; -1 for every other kind.
    static int getRecordType(EventType type, EventSubType subType);
    // The key under which a CommonEvent's method name is sent only once: its kind.
    static int getMethodID(EventType type) {
        return type;
    }

    // Debug aids, at the most detailed trace depth: one line "LLL [<b><b>...]" for a record of L
    // bytes, and for a buffer one such line per 16 bytes that begins with the offset.
    static void printRecord(const char* record, int length);
    static void dumpBuffer(const char* buffer, int length);

private:
    ProtocolVisitor();
};
