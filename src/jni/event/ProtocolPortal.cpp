// The records of a portal: its steps, its summaries, its names. Page and portlet are requests.
#include "event/RecordParts.h"

using namespace recordparts;

namespace {

template <typename PortalStep>
bool addPortalStep(const PortalStep& event, int startType, char** buf) {
    WireWriter out(buf);
    putFrame(out, startOrEnd(event, startType), event, event.depth);
    if (isStart(event)) out.putByte(event.methodId);
    return finishWithLevel(out);
}

bool addSummary(int type, std::int32_t count, std::int64_t avgTime, char** buf) {
    WireWriter out(buf);
    out.putByte(type);
    putCountAndTime(out, count, avgTime);
    return finish(out);
}

}  // namespace

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
