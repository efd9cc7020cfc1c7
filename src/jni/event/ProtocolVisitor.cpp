// The encoder: one function per kind of record, one line per field. docs/WIRE.md draws the same
// records.
//
// The functions that write records carry no trace line: they run once per event in the agents'
// innermost loop, and the event agent traces each packet.
#include "event/ProtocolVisitor.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "agent/ProbeMgr.h"
#include "agent/ProbeSystem.h"
#include "capture/GPSTokenUtils.h"
#include "event/WireWriter.h"
#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Platform.h"
#include "instrument/class.h"

namespace {

std::mutex instanceLock;  // guards making and deleting the singleton

// An event whose phase or action has no record type. A record of type 0 would be taken for a packet
// header and put the reader out of step for good, so such an event is not written; its agent counts
// it as lost.
[[gnu::cold]] bool refuseNoRecord(const Event& event, int action = 0) {
    static std::atomic<bool> told[WS_FAULT + 1];
    if (event.type_ < 0 || event.type_ > WS_FAULT) return false;
    if (!told[event.type_].exchange(true, std::memory_order_relaxed))
        logMessage(msg::kNoRecordForPhase, event.type_, event.subType_, action);
    return false;
}

std::uint32_t low32(const void* id) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(id));
}

// The common prefix of timed records: 22 bytes.
void putFrame(WireWriter& out, int type, const Event& event, int depth) {
    out.putByte(type);
    out.putInt(event.threadId_);
    out.putByte(depth);
    out.putInt(event.timeSec_);
    out.putInt(event.timeUSec_);
    out.putLong(event.cpuTime_);
}

void putLevel(WireWriter& out) {
    out.putByte(ProbeMgr::getProbeLevel());
}

bool finish(WireWriter& out) {
    out.putTrailer();
    return out.done();
}

bool finishWithLevel(WireWriter& out) {
    putLevel(out);
    return finish(out);
}

bool isStart(const Event& event) {
    return event.subType_ == START;
}

int startOrEnd(const Event& event, int startType) {
    return isStart(event) ? startType : startType + 1;
}

// For the kinds that know no other phases; 0 for those.
int strictStartOrEnd(const Event& event, int startType) {
    if (event.subType_ == START) return startType;
    return event.subType_ == END ? startType + 1 : DC2PS_HEADER_RECORD;
}

bool sameText(const char* one, const char* other) {
    if (one == other) return true;
    return one != nullptr && other != nullptr && std::strcmp(one, other) == 0;
}

// A flag and two names; names that only repeat the url are not sent.
void putNames(WireWriter& out, const RequestEvent& event) {
    const bool named =
        !sameText(event.request_name, event.url) || !sameText(event.application_name, event.url);
    out.putByte(named ? 1 : 0);
    out.writeString(named ? event.request_name : "");
    out.writeString(named ? event.application_name : "");
    out.writeString(event.url);
}

// EJB, doVerbFor and pollForEvents.
bool addNamedRequest(const RequestEvent& event, int startType, char** buf) {
    const int type = strictStartOrEnd(event, startType);
    if (type == DC2PS_HEADER_RECORD) [[unlikely]]
        return refuseNoRecord(event);
    WireWriter out(buf);
    putFrame(out, type, event, event.servletDepth);
    if (isStart(event)) putNames(out, event);
    return finishWithLevel(out);
}

// Portal page and portlet.
bool addPortalRequest(const RequestEvent& event, int startType, char** buf) {
    const int type = strictStartOrEnd(event, startType);
    if (type == DC2PS_HEADER_RECORD) [[unlikely]]
        return refuseNoRecord(event);
    WireWriter out(buf);
    putFrame(out, type, event, event.servletDepth);
    if (isStart(event)) {
        out.writeString(event.request_name);
        out.writeString(event.application_name);
        out.writeString(event.url);
        out.writeString(event.userName);
    }
    return finishWithLevel(out);
}

bool addWebService(const RequestEvent& event, int startType, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(event, startType), event, event.servletDepth);
    if (isStart(event)) {
        out.writeString(event.application_name);
        out.writeString(event.request_name);
        out.writeString(event.url);
    }
    return finishWithLevel(out);
}

// SQL, JNDI and mail. Intended: here the level stands before the texts.
bool addLevelFirst(const Event& event, int startType, int depth, const char* first,
                   const char* second, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(event, startType), event, depth);
    putLevel(out);
    if (isStart(event)) {
        out.writeString(first);
        out.writeString(second);
    }
    return finish(out);
}

// Lock acquisition and release.
bool addLock(const LockEvent& event, int startType, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(event, startType), event, event.depth);
    if (isStart(event)) {
        out.putInt(low32(event.method_id));
        out.writeString(event.className);
    }
    return finishWithLevel(out);
}

template <typename PortalStep>
bool addPortalStep(const PortalStep& event, int startType, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(event, startType), event, event.depth);
    if (isStart(event)) out.putByte(event.methodId);
    return finishWithLevel(out);
}

void putCountAndTime(WireWriter& out, std::int32_t count, std::int64_t avgTime) {
    out.putInt(static_cast<std::uint32_t>(count));
    out.putLong(avgTime);
}

bool addSummary(int type, std::int32_t count, std::int64_t avgTime, char** buf) {
    WireWriter out(buf);
    out.putByte(type);
    putCountAndTime(out, count, avgTime);
    return finish(out);
}

// The four bytes that stand in request_name, as a string of length 4.
void putToken(WireWriter& out, const GPSEvent& event) {
    out.putShort(4);
    if (event.request_name == nullptr) {
        out.putInt(event.token);
        return;
    }
    for (int i = 0; i < 4; ++i) out.putByte(event.request_name[i]);
}

int gpsType(EventSubType phase) {
    switch (phase) {
        case START:
            return DC2PS_GPS_REQUEST_INVOKE_START_RECORD;
        case END:
            return DC2PS_GPS_REQUEST_INVOKE_END_RECORD;
        case CONNECT:
            return DC2PS_GPS_REQUEST_RECEIVE_START_RECORD;
        case COMPLETE:
            return DC2PS_GPS_REQUEST_RECEIVE_END_RECORD;
        default:
            return DC2PS_HEADER_RECORD;
    }
}

int jmsType(const JMSEvent& event) {
    switch (event.action) {
        case JMS_RECEIVE:
            return startOrEnd(event, DC2PS_JMS_RECEIVE_START_RECORD);
        case JMS_BROWSE:
            return startOrEnd(event, DC2PS_JMS_BROWSE_START_RECORD);
        case JMS_SEND:
            return startOrEnd(event, DC2PS_JMS_SEND_START_RECORD);
        case JMS_PUBLISH:
            return startOrEnd(event, DC2PS_JMS_PUBLISH_START_RECORD);
        default:
            return DC2PS_HEADER_RECORD;
    }
}

int gpsMqType(const GPSMQEvent& event) {
    switch (event.action) {
        case GPSMQ_PUT:
            return startOrEnd(event, DC2PS_GPS_PUT_START_RECORD);
        case GPSMQ_GET:
            return startOrEnd(event, DC2PS_GPS_GET_START_RECORD);
        default:
            return DC2PS_HEADER_RECORD;
    }
}

bool addClassLoad(const jclass_t& clazz, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_CLASS_LOAD_RECORD);
    out.putInt(clazz.sequenceID);
    out.writeString(clazz.class_name);
    out.putInt(static_cast<std::uint32_t>(clazz.num_methods));
    for (int i = 0; i < clazz.num_methods; ++i) {
        out.putInt(low32(clazz.methods[i].method_id.load(std::memory_order_relaxed)));
        out.writeString(clazz.methods[i].method_name);
        out.writeString(clazz.methods[i].method_signature);
    }
    return finish(out);
}

bool addClassUnload(const jclass_t& clazz, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_CLASS_UNLOAD_RECORD);
    out.putInt(clazz.sequenceID);
    out.putInt(low32(clazz.class_id.load(std::memory_order_relaxed)));
    out.putInt(static_cast<std::uint32_t>(clazz.num_methods));
    for (int i = 0; i < clazz.num_methods; ++i)
        out.putInt(low32(clazz.methods[i].method_id.load(std::memory_order_relaxed)));
    return finish(out);
}

// "[<1><2>]", the bytes of a dump, behind a number of at least three digits.
std::string dumpLine(int number, const char* bytes, int length) {
    char part[16];
    std::snprintf(part, sizeof part, "%03d [", number);
    std::string line = part;
    for (int i = 0; i < length; ++i) {
        std::snprintf(part, sizeof part, "<%d>", static_cast<unsigned char>(bytes[i]));
        line += part;
    }
    return line + "]\n";
}

}  // namespace

ProtocolVisitor::ProtocolVisitor() : VeloraBase("ProtocolVisitor") {
}

ProtocolVisitor::~ProtocolVisitor() = default;

ProtocolVisitor* ProtocolVisitor::getInstance() {
    VEL_TRACE("ProtocolVisitor::getInstance()");
    const std::lock_guard hold(instanceLock);
    if (visitor_.load(std::memory_order_acquire) == nullptr)
        visitor_.store(new ProtocolVisitor, std::memory_order_release);
    return visitor_.load(std::memory_order_acquire);
}

void ProtocolVisitor::destroy() {
    VEL_TRACE("ProtocolVisitor::destroy()");
    const std::lock_guard hold(instanceLock);
    delete visitor_.exchange(nullptr, std::memory_order_acq_rel);
}

void ProtocolVisitor::start() {
    VEL_TRACE("ProtocolVisitor::start()");
}

void ProtocolVisitor::stop() {
    VEL_TRACE("ProtocolVisitor::stop()");
}

void ProtocolVisitor::addPacketHeaderRecord(int packet_record_count, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_HEADER_RECORD);
    out.putInt(static_cast<std::uint32_t>(packet_record_count));
    finish(out);
}

void ProtocolVisitor::addInitRecord(char** buf) {
    VEL_TRACE("addInitRecord(char**)");
    std::uint32_t sec = 0;
    std::uint32_t usec = 0;
    getCurrentTime(&sec, &usec);
    WireWriter out(buf);
    out.putInt(2000);
    out.putByte(100);
    out.putByte(getPlatformId());
    out.putByte(1);
    out.putLong(std::int64_t{sec} * 1000 + usec / 1000);  // ms
    finish(out);
}

void ProtocolVisitor::addJ2EEInitRecord(char** buf, JNIEnv* env) {
    VEL_TRACE("addJ2EEInitRecord(char**, JNIEnv*)");
    const ProbeMgr* const probe = ProbeMgr::getInstance();
    int major = 0;
    int minor = 0;
    int micro = 0;
    std::sscanf(probe->getAppServerVersion(), "%d.%d.%d", &major, &minor, &micro);
    char fullName[256];
    const bool named = getFullAppServerName(env, fullName, sizeof fullName);

    WireWriter out(buf);
    out.putByte(101);
    out.putByte(200);
    out.putByte(major);
    out.putByte(minor);
    out.putByte(micro);
    out.writeString(probe->getComponentId());
    out.writeString("<NO CLUSTER NAME>");
    out.writeString(ProbeMgr::getNodeName());
    // Intended: the plain server name also where a profile is set; the server knows it under this
    // one.
    out.writeString(named ? fullName : ProbeMgr::getAppServerName());
    out.putInt(static_cast<std::uint32_t>(probe->getAdminServerPort()));
    finish(out);
}

void ProtocolVisitor::addStandaloneInitRecord(char** buf) {
    VEL_TRACE("addStandaloneInitRecord(char**)");
    const ProbeMgr* const probe = ProbeMgr::getInstance();
    WireWriter out(buf);
    out.putByte(107);
    out.putByte(204);
    out.putByte(1);
    out.putByte(1);
    out.putByte(1);
    out.writeString(probe->getComponentId());
    // Intended: server before node, the other way round than for an application server.
    out.writeString(ProbeMgr::getAppServerName());
    out.writeString(ProbeMgr::getNodeName());
    out.putInt(static_cast<std::uint32_t>(probe->getAdminServerPort()));
    finish(out);
}

bool ProtocolVisitor::addToBuffer(ClassEvent* evt, char** buf) {
    if (evt->classData == nullptr) [[unlikely]]
        return refuseNoRecord(*evt);
    return evt->subType_ == LOAD ? addClassLoad(*evt->classData, buf)
                                 : addClassUnload(*evt->classData, buf);
}

bool ProtocolVisitor::addToBuffer(MethodEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(startOrEnd(*evt, DC2PS_METHOD_ENTRY_RECORD));
    out.putInt(evt->threadId_);
    out.putInt(low32(evt->method_id));
    out.putInt(evt->timeSec_);
    out.putInt(evt->timeUSec_);
    out.putLong(evt->cpuTime_);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(ExceptionEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_EXCEPTION_RECORD);
    out.writeString(evt->exception);
    out.writeString(evt->class_name);
    out.writeString(evt->method_name);
    out.writeString(evt->stacktrace);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(GCEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(startOrEnd(*evt, DC2PS_GC_START_RECORD));
    out.putInt(evt->threadId_);
    out.putInt(evt->timeSec_);
    out.putInt(evt->timeUSec_);
    if (!isStart(*evt)) {
        out.putLong(evt->used_objects);
        out.putLong(evt->used_object_space);
        out.putLong(evt->total_object_space);
    }
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(ServletEvent* evt, char** buf) {
    WireWriter out(buf);
    const int type = evt->subType_ == ERRORS ? DC2PS_SERVLET_REQUEST_ERROR_RECORD
                                             : startOrEnd(*evt, DC2PS_SERVLET_REQUEST_START_RECORD);
    putFrame(out, type, *evt, evt->servletDepth);
    if (isStart(*evt)) {
        putNames(out, *evt);
        out.writeString(evt->userName);
    }
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(EJBEvent* evt, char** buf) {
    return addNamedRequest(*evt, DC2PS_EJB_REQUEST_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(TraceEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_TRACE_REQUEST_RECORD);
    out.putInt(evt->timeSec_);
    out.putInt(evt->timeUSec_);
    out.writeString(evt->request_name);
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(GPSEvent* evt, char** buf) {
    const int type = gpsType(evt->subType_);
    if (type == DC2PS_HEADER_RECORD) [[unlikely]]
        return refuseNoRecord(*evt);
    WireWriter out(buf);
    putFrame(out, type, *evt, evt->servletDepth);
    if (evt->subType_ == START || evt->subType_ == CONNECT) putToken(out, *evt);
    // From now on the server may know this token: it must not be issued again, even after a
    // restart.
    if (evt->subType_ == START) GPSTokenUtils::saveGPSToken(evt->token);
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(MQEvent* evt, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(*evt, DC2PS_MQ_START_RECORD), *evt, evt->depth);
    if (isStart(*evt)) {
        out.writeString(evt->queueName);
        out.writeString(evt->queueMgrName);
    }
    out.putByte(evt->action);
    return finishWithLevel(out);
}

// The two bytes at the end are those of a message-queue record: action and level.
bool ProtocolVisitor::addToBuffer(GPSMQEvent* evt, char** buf) {
    const int type = gpsMqType(*evt);
    if (type == DC2PS_HEADER_RECORD) [[unlikely]]
        return refuseNoRecord(*evt, evt->action);
    WireWriter out(buf);
    putFrame(out, type, *evt, evt->depth);
    if (isStart(*evt)) {
        const bool hasToken = evt->gpsToken != nullptr && evt->arrLength > 0;
        const char* const token = hasToken ? reinterpret_cast<const char*>(evt->gpsToken) : "";
        const std::size_t length = hasToken ? static_cast<std::size_t>(evt->arrLength) : 0;
        out.writeString(evt->queueName);
        out.writeUTF(token, static_cast<std::uint16_t>(std::min(length, WireWriter::kMaxText)));
    }
    out.putByte(evt->action);
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(DoVerbForEvent* evt, char** buf) {
    return addNamedRequest(*evt, DC2PS_DOVERBFOR_REQUEST_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(PollForEvent* evt, char** buf) {
    return addNamedRequest(*evt, DC2PS_POLLFOREVENTS_REQUEST_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(PortalPageEvent* evt, char** buf) {
    return addPortalRequest(*evt, DC2PS_PORTAL_PAGE_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(PortalPortletEvent* evt, char** buf) {
    return addPortalRequest(*evt, DC2PS_PORTAL_PORTLET_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(SQLEvent* evt, char** buf) {
    return addLevelFirst(*evt, DC2PS_SQL_START_RECORD, evt->servletDepth, evt->data_source_name,
                         evt->sql, buf);
}

bool ProtocolVisitor::addToBuffer(JNDIEvent* evt, char** buf) {
    return addLevelFirst(*evt, DC2PS_JNDI_START_RECORD, evt->depth, evt->providerURL,
                         evt->lookupName, buf);
}

bool ProtocolVisitor::addToBuffer(MailEvent* evt, char** buf) {
    return addLevelFirst(*evt, DC2PS_JAVA_MAIL_START_RECORD, evt->depth, evt->serverURL,
                         evt->subject, buf);
}

bool ProtocolVisitor::addToBuffer(JMSEvent* evt, char** buf) {
    const int type = jmsType(*evt);
    if (type == DC2PS_HEADER_RECORD) [[unlikely]]
        return refuseNoRecord(*evt, evt->action);
    WireWriter out(buf);
    putFrame(out, type, *evt, evt->depth);
    if (isStart(*evt)) {
        out.writeString(evt->serverName);
        out.writeString(evt->queueOrTopicName);
        if (evt->action == JMS_RECEIVE || evt->action == JMS_BROWSE) out.writeString(evt->selector);
    }
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(JCAEvent* evt, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(*evt, DC2PS_JCA_START_RECORD), *evt, evt->depth);
    if (isStart(*evt)) out.writeString(evt->eisName);
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(JDOEvent* evt, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(*evt, DC2PS_JDO_START_RECORD), *evt, evt->depth);
    if (isStart(*evt)) {
        out.writeString(evt->className);
        out.writeString(evt->methodName);
        out.writeString(evt->argumentString);
    }
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(CTGEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_CTG_REQUEST_RECORD);
    out.writeString(evt->gatewayName);
    out.writeString(evt->serverName);
    out.writeString(evt->progName);
    out.putLong(evt->snapShotTime);
    putCountAndTime(out, evt->count, evt->avgTimeTaken);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(MQIEvent* evt, char** buf) {
    const bool complete =
        evt->ctype != nullptr && evt->count != nullptr && evt->avgTimeTaken != nullptr;
    const std::int32_t entries = complete && evt->arrLength > 0 ? evt->arrLength : 0;
    WireWriter out(buf);
    out.putByte(DC2PS_MQI_REQUEST_RECORD);
    out.writeString(evt->mgrName);
    out.writeString(evt->queueName);
    out.putLong(evt->snapShotTime);
    out.putInt(static_cast<std::uint32_t>(entries));
    for (std::int32_t i = 0; i < entries; ++i) {
        out.putByte(evt->ctype[i]);
        putCountAndTime(out, evt->count[i], evt->avgTimeTaken[i]);
    }
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(SamplingEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_SAMPLING_RATE_RECORD);
    for (const std::int32_t rate : evt->probeLevels) out.putInt(static_cast<std::uint32_t>(rate));
    out.putByte(evt->useDefault == 1 ? 1 : 0);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(DroppedEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_DROPPED_RECORD);
    out.putInt(evt->threadId_);
    out.putInt(static_cast<std::uint32_t>(evt->dropRecStartCnt));
    out.putInt(static_cast<std::uint32_t>(evt->dropRecEndCnt));
    out.putInt(static_cast<std::uint32_t>(evt->dropMethStartCnt));
    out.putInt(static_cast<std::uint32_t>(evt->dropMethEndCnt));
    out.putInt(static_cast<std::uint32_t>(evt->dropSQLStartCnt));
    out.putInt(static_cast<std::uint32_t>(evt->dropSQLEndCnt));
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(PSStatusEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_PSSTATUS_RECORD);
    out.writeString(evt->status_);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(HeapEvent* evt, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(*evt, DC2PS_HEAP_ALLOCATION_START_RECORD), *evt, evt->depth);
    if (isStart(*evt)) {
        out.putInt(low32(evt->method_id));
        out.writeString(evt->instantiated_class_name);
        out.putInt(static_cast<std::uint32_t>(evt->line_number));
    }
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(LockAcquisitionEvent* evt, char** buf) {
    return addLock(*evt, DC2PS_LOCK_ACQUIRE_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(LockContentionEvent* evt, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(*evt, DC2PS_LOCK_CONTEND_START_RECORD), *evt, evt->depth);
    if (isStart(*evt)) {
        out.putInt(low32(evt->method_id));
        out.writeString(evt->className);
        out.putByte(evt->owningRequestType);
        out.writeString(evt->owningRequestName);
        out.writeString(evt->owningApplicationName);
        out.putInt(low32(evt->owning_method_id));
    }
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(LockReleaseEvent* evt, char** buf) {
    return addLock(*evt, DC2PS_LOCK_RELEASE_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(PortalAuthAcEvent* evt, char** buf) {
    const int type = evt->type_ == PORTAL_AUTH ? DC2PS_PORTAL_AUTH_RECORD : DC2PS_PORTAL_AC_RECORD;
    return addSummary(type, evt->count, evt->avgTimeTaken, buf);
}

bool ProtocolVisitor::addToBuffer(PortalAggregateDataEvent* evt, char** buf) {
    const int type = DC2PS_PORTAL_GATEWAY_SERVLET_RECORD + (evt->type_ - PORTAL_GATEWAY_SERVLET);
    return addSummary(type, evt->count, evt->avgTimeTaken, buf);
}

bool ProtocolVisitor::addToBuffer(PortalCredentialVaultEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_PORTAL_CREDENTIALVAULT_RECORD);
    putCountAndTime(out, evt->getCredentialCount, evt->getCredentialAvgTime);
    putCountAndTime(out, evt->setCredentialBinaryCount, evt->setCredentialBinaryAvgTime);
    putCountAndTime(out, evt->setCredentialUserPasswordCount,
                    evt->setCredentialUserPasswordAvgTime);
    putCountAndTime(out, evt->createSlotCount, evt->createSlotAvgTime);
    putCountAndTime(out, evt->deleteSlotCount, evt->deleteSlotAvgTime);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(PortalContentAccessEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_PORTAL_CONTENTACCESS_RECORD);
    putCountAndTime(out, evt->getInputStreamCount, evt->getInputStreamAvgTime);
    putCountAndTime(out, evt->getMarkupCount, evt->getMarkupAvgTime);
    putCountAndTime(out, evt->getURLCount, evt->getURLAvgTime);
    putCountAndTime(out, evt->includeCount, evt->includeAvgTime);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(PortalAuthenticationEvent* evt, char** buf) {
    return addPortalStep(*evt, DC2PS_PORTAL_AUTHENTICATION_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(PortalAuthorizationEvent* evt, char** buf) {
    return addPortalStep(*evt, DC2PS_PORTAL_AUTHORIZATION_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(PortalModelBuildingEvent* evt, char** buf) {
    return addPortalStep(*evt, DC2PS_PORTAL_MODEL_BUILDING_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(PortalPageLoadingEvent* evt, char** buf) {
    return addPortalStep(*evt, DC2PS_PORTAL_PAGE_LOADING_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(PortalPageRenderingEvent* evt, char** buf) {
    return addPortalStep(*evt, DC2PS_PORTAL_PAGE_RENDERING_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(PortalActionEvent* evt, char** buf) {
    return addPortalStep(*evt, DC2PS_PORTAL_ACTION_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(PortalGatewayServletEvent* evt, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(*evt, DC2PS_PORTAL_GATEWAY_SERVLET_START_RECORD), *evt, evt->depth);
    if (!isStart(*evt))
        out.writeString(evt->pageName == nullptr ? "PageNameUnknown" : evt->pageName);
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(PortalMethodConstantEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_PORTAL_METHOD_CONSTANT_RECORD);
    out.putByte(evt->methodId);
    out.writeString(evt->methodName);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(WSClientEvent* evt, char** buf) {
    return addWebService(*evt, DC2PS_WS_CLIENT_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(WSProviderEvent* evt, char** buf) {
    return addWebService(*evt, DC2PS_WS_PROVIDER_START_RECORD, buf);
}

bool ProtocolVisitor::addToBuffer(WSFaultEvent* evt, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(*evt, DC2PS_WS_FAULT_START_RECORD), *evt, evt->servletDepth);
    if (isStart(*evt)) {
        out.writeString(evt->appName);
        out.writeString(evt->faultCode);
        out.writeString(evt->faultString);
    }
    return finishWithLevel(out);
}

bool ProtocolVisitor::addToBuffer(CommonEvent* evt, char** buf) {
    const int type = getRecordType(evt->type_, evt->subType_);
    if (type < 0) [[unlikely]]
        return refuseNoRecord(*evt);
    char* at = *buf;
    WireWriter out(&at);
    putFrame(out, type, *evt, evt->depth);
    if (!isStart(*evt)) {
        finishWithLevel(out);
        *buf = at;
        return true;
    }
    const bool mapped = evt->isMethodMapEnabled();
    const int key = mapped ? getMethodID(evt->type_) : 0;
    const bool known = mapped && CommonEvent::hasMaped(key);
    out.writeString(evt->className);
    out.putInt(static_cast<std::uint32_t>(key));
    out.writeString(known ? "" : evt->methodName);
    out.done();
    if (!evt->addCustomDataToBuffer(&at)) return false;
    WireWriter rest(&at);
    finishWithLevel(rest);
    // Two agents that name a kind at the same moment both send the name: harmless.
    if (mapped && !known) CommonEvent::setMaped(key);
    *buf = at;
    return true;
}

int ProtocolVisitor::getRecordType(EventType type, EventSubType subType) {
    const bool start = subType == START;
    if (type == IIOP_CLIENT)
        return start ? DC2PS_IIOP_CLIENT_START_RECORD : DC2PS_IIOP_CLIENT_END_RECORD;
    if (type == IIOP_SERVER)
        return start ? DC2PS_IIOP_SERVER_START_RECORD : DC2PS_IIOP_SERVER_END_RECORD;
    return -1;
}

void ProtocolVisitor::printRecord(const char* record, int length) {
    if (!traceOn(kDebugMax) || record == nullptr) return;
    VEL_DEBUG_MAX("printRecord", "%s", dumpLine(length, record, length).c_str());
}

void ProtocolVisitor::dumpBuffer(const char* buffer, int length) {
    if (!traceOn(kDebugMax) || buffer == nullptr) return;
    constexpr int kPerLine = 16;
    for (int offset = 0; offset < length; offset += kPerLine) {
        const int bytes = std::min(kPerLine, length - offset);
        VEL_DEBUG_MAX("dumpBuffer", "%s", dumpLine(offset, buffer + offset, bytes).c_str());
    }
}
