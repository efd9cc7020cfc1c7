// Writes records in the collector's wire format, DC2PS: one function per kind of record.
// docs/WIRE.md draws every record.
//
// Every writer takes the position in the caller's buffer and moves it past what it wrote; none
// checks room (the event agent does, with Event::fits). Nothing is allocated and no state is kept,
// so any number of event agents may encode at once; the object itself only marks that the system is
// up.
#pragma once

#include <jni.h>

#include <cstdint>

#include "event/Events.h"
#include "foundation/VeloraBase.h"

// First byte of a record. The meaning of a request's phase is part of the type.
enum DC2PS_DataRecordTypes : int {
    DC2PS_HEADER_RECORD = 0,
    DC2PS_CLASS_LOAD_RECORD = 1,
    DC2PS_METHOD_ENTRY_RECORD = 2,
    DC2PS_METHOD_EXIT_RECORD = 3,
    DC2PS_SERVLET_REQUEST_START_RECORD = 4,
    DC2PS_SERVLET_REQUEST_END_RECORD = 5,
    DC2PS_EJB_REQUEST_START_RECORD = 6,
    DC2PS_EJB_REQUEST_END_RECORD = 7,
    DC2PS_TRACE_REQUEST_RECORD = 8,
    DC2PS_SQL_START_RECORD = 9,
    DC2PS_SQL_END_RECORD = 10,
    DC2PS_DROPPED_RECORD = 11,
    DC2PS_CLASS_UNLOAD_RECORD = 12,
    DC2PS_GC_START_RECORD = 13,
    DC2PS_GC_END_RECORD = 14,
    DC2PS_GPS_REQUEST_START_RECORD = 15,
    DC2PS_GPS_REQUEST_END_RECORD = 16,
    DC2PS_GPS_REQUEST_CONNECT_RECORD = 17,
    DC2PS_GPS_REQUEST_COMPLETE_RECORD = 18,
    DC2PS_JMS_RECEIVE_START_RECORD = 25,
    DC2PS_JMS_RECEIVE_END_RECORD = 26,
    DC2PS_JMS_BROWSE_START_RECORD = 27,
    DC2PS_JMS_BROWSE_END_RECORD = 28,
    DC2PS_JMS_SEND_START_RECORD = 29,
    DC2PS_JMS_SEND_END_RECORD = 30,
    DC2PS_JMS_PUBLISH_START_RECORD = 31,
    DC2PS_JMS_PUBLISH_END_RECORD = 32,
    DC2PS_JNDI_START_RECORD = 33,
    DC2PS_JNDI_END_RECORD = 34,
    DC2PS_JAVA_MAIL_START_RECORD = 35,
    DC2PS_JAVA_MAIL_END_RECORD = 36,
    DC2PS_JCA_START_RECORD = 37,
    DC2PS_JCA_END_RECORD = 38,
    DC2PS_SAMPLING_RATE_RECORD = 39,
    DC2PS_CTG_REQUEST_RECORD = 40,
    DC2PS_MQI_REQUEST_RECORD = 41,
    DC2PS_PSSTATUS_RECORD = 44,
    DC2PS_EXCEPTION_RECORD = 45,
    DC2PS_PORTAL_GATEWAY_SERVLET_RECORD = 46,
    DC2PS_PORTAL_MODEL_BUILDING_RECORD = 47,
    DC2PS_PORTAL_PAGE_LOADING_RECORD = 48,
    DC2PS_SERVLET_REQUEST_ERROR_RECORD = 50,
    DC2PS_GPS_REQUEST_INVOKE_START_RECORD = 51,
    DC2PS_GPS_REQUEST_INVOKE_END_RECORD = 52,
    DC2PS_GPS_REQUEST_RECEIVE_START_RECORD = 53,
    DC2PS_GPS_REQUEST_RECEIVE_END_RECORD = 54,
    DC2PS_GPS_PUT_START_RECORD = 55,
    DC2PS_GPS_PUT_END_RECORD = 56,
    DC2PS_GPS_GET_START_RECORD = 57,
    DC2PS_GPS_GET_END_RECORD = 58,
    DC2PS_PORTAL_AUTH_RECORD = 61,
    DC2PS_PORTAL_AC_RECORD = 62,
    DC2PS_PORTAL_CREDENTIALVAULT_RECORD = 63,
    DC2PS_PORTAL_CONTENTACCESS_RECORD = 64,
    DC2PS_PORTAL_PAGE_START_RECORD = 65,
    DC2PS_PORTAL_PAGE_END_RECORD = 66,
    DC2PS_PORTAL_PORTLET_START_RECORD = 67,
    DC2PS_PORTAL_PORTLET_END_RECORD = 68,
    DC2PS_MQ_START_RECORD = 110,
    DC2PS_MQ_END_RECORD = 111,
    DC2PS_DOVERBFOR_REQUEST_START_RECORD = 112,
    DC2PS_DOVERBFOR_REQUEST_END_RECORD = 113,
    DC2PS_POLLFOREVENTS_REQUEST_START_RECORD = 114,
    DC2PS_POLLFOREVENTS_REQUEST_END_RECORD = 115,
    DC2PS_LOCK_ACQUIRE_START_RECORD = 118,
    DC2PS_LOCK_ACQUIRE_END_RECORD = 119,
    DC2PS_LOCK_CONTEND_START_RECORD = 120,
    DC2PS_LOCK_CONTEND_END_RECORD = 121,
    DC2PS_LOCK_RELEASE_START_RECORD = 122,
    DC2PS_LOCK_RELEASE_END_RECORD = 123,
    DC2PS_HEAP_ALLOCATION_START_RECORD = 124,
    DC2PS_HEAP_ALLOCATION_END_RECORD = 125,
    DC2PS_PORTAL_AUTHENTICATION_START_RECORD = 130,
    DC2PS_PORTAL_AUTHENTICATION_END_RECORD = 131,
    DC2PS_PORTAL_AUTHORIZATION_START_RECORD = 132,
    DC2PS_PORTAL_AUTHORIZATION_END_RECORD = 133,
    DC2PS_PORTAL_MODEL_BUILDING_START_RECORD = 134,
    DC2PS_PORTAL_MODEL_BUILDING_END_RECORD = 135,
    DC2PS_PORTAL_PAGE_LOADING_START_RECORD = 136,
    DC2PS_PORTAL_PAGE_LOADING_END_RECORD = 137,
    DC2PS_PORTAL_ACTION_START_RECORD = 138,
    DC2PS_PORTAL_ACTION_END_RECORD = 139,
    DC2PS_PORTAL_GATEWAY_SERVLET_START_RECORD = 140,
    DC2PS_PORTAL_GATEWAY_SERVLET_END_RECORD = 141,
    DC2PS_PORTAL_PAGE_RENDERING_START_RECORD = 142,
    DC2PS_PORTAL_PAGE_RENDERING_END_RECORD = 143,
    DC2PS_PORTAL_BUILDING_TOPOLOGY_START_RECORD = 144,
    DC2PS_PORTAL_BUILDING_TOPOLOGY_END_RECORD = 145,
    DC2PS_PORTAL_METHOD_CONSTANT_RECORD = 146,
    DC2PS_JDO_START_RECORD = 147,
    DC2PS_JDO_END_RECORD = 148,
    DC2PS_IIOP_CLIENT_START_RECORD = 150,
    DC2PS_IIOP_CLIENT_END_RECORD = 151,
    DC2PS_IIOP_SERVER_START_RECORD = 152,
    DC2PS_IIOP_SERVER_END_RECORD = 153,
    DC2PS_WS_CLIENT_START_RECORD = 199,
    DC2PS_WS_CLIENT_END_RECORD = 200,
    DC2PS_WS_PROVIDER_START_RECORD = 201,
    DC2PS_WS_PROVIDER_END_RECORD = 202,
    DC2PS_WS_FAULT_START_RECORD = 203,
    DC2PS_WS_FAULT_END_RECORD = 204,
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

    // One record. False, with nothing written, when the event's phase or action has no record type.
    static bool addToBuffer(ClassEvent* evt, char** buf);
    static bool addToBuffer(MethodEvent* evt, char** buf);
    static bool addToBuffer(ExceptionEvent* evt, char** buf);
    static bool addToBuffer(GCEvent* evt, char** buf);
    static bool addToBuffer(ServletEvent* evt, char** buf);
    static bool addToBuffer(EJBEvent* evt, char** buf);
    static bool addToBuffer(TraceEvent* evt, char** buf);
    static bool addToBuffer(GPSEvent* evt, char** buf);
    static bool addToBuffer(MQEvent* evt, char** buf);
    static bool addToBuffer(GPSMQEvent* evt, char** buf);
    static bool addToBuffer(DoVerbForEvent* evt, char** buf);
    static bool addToBuffer(PollForEvent* evt, char** buf);
    static bool addToBuffer(PortalPageEvent* evt, char** buf);
    static bool addToBuffer(PortalPortletEvent* evt, char** buf);
    static bool addToBuffer(SQLEvent* evt, char** buf);
    static bool addToBuffer(JMSEvent* evt, char** buf);
    static bool addToBuffer(JCAEvent* evt, char** buf);
    static bool addToBuffer(JNDIEvent* evt, char** buf);
    static bool addToBuffer(JDOEvent* evt, char** buf);
    static bool addToBuffer(MailEvent* evt, char** buf);
    static bool addToBuffer(CTGEvent* evt, char** buf);
    static bool addToBuffer(MQIEvent* evt, char** buf);
    static bool addToBuffer(SamplingEvent* evt, char** buf);
    static bool addToBuffer(DroppedEvent* evt, char** buf);
    static bool addToBuffer(PSStatusEvent* evt, char** buf);
    static bool addToBuffer(HeapEvent* evt, char** buf);
    static bool addToBuffer(LockAcquisitionEvent* evt, char** buf);
    static bool addToBuffer(LockContentionEvent* evt, char** buf);
    static bool addToBuffer(LockReleaseEvent* evt, char** buf);
    static bool addToBuffer(PortalAuthAcEvent* evt, char** buf);
    static bool addToBuffer(PortalAggregateDataEvent* evt, char** buf);
    static bool addToBuffer(PortalCredentialVaultEvent* evt, char** buf);
    static bool addToBuffer(PortalContentAccessEvent* evt, char** buf);
    static bool addToBuffer(PortalAuthenticationEvent* evt, char** buf);
    static bool addToBuffer(PortalAuthorizationEvent* evt, char** buf);
    static bool addToBuffer(PortalModelBuildingEvent* evt, char** buf);
    static bool addToBuffer(PortalPageLoadingEvent* evt, char** buf);
    static bool addToBuffer(PortalPageRenderingEvent* evt, char** buf);
    static bool addToBuffer(PortalActionEvent* evt, char** buf);
    static bool addToBuffer(PortalGatewayServletEvent* evt, char** buf);
    static bool addToBuffer(PortalMethodConstantEvent* evt, char** buf);
    static bool addToBuffer(WSClientEvent* evt, char** buf);
    static bool addToBuffer(WSProviderEvent* evt, char** buf);
    static bool addToBuffer(WSFaultEvent* evt, char** buf);
    static bool addToBuffer(CommonEvent* evt, char** buf);

    // Record type of an IIOP kind and phase; -1 for every other kind.
    static int getRecordType(EventType type, EventSubType subType);
    // The key under which a CommonEvent's method name is sent only once: its kind.
    static int getMethodID(EventType type) { return type; }

    // Debug aids, at the most detailed trace depth: one line "LLL [<b><b>...]" for a record of L
    // bytes, and for a buffer one such line per 16 bytes that begins with the offset.
    static void printRecord(const char* record, int length);
    static void dumpBuffer(const char* buffer, int length);

private:
    ProtocolVisitor();
};
