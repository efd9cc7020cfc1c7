// The records of requests: what a server does for somebody, and what identifies it elsewhere.
#include <algorithm>
#include <cstring>

#include "event/GPSTokenUtils.h"
#include "event/RecordParts.h"

using namespace recordparts;

namespace {

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

}  // namespace

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
    if (evt->subType_ == START) GPSTokenUtils::noteToken(evt->token);
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
