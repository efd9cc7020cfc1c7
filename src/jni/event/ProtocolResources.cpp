// The records of what a request uses: databases, queues, connectors, memory, locks.
#include "event/RecordParts.h"

using namespace recordparts;

namespace {

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

}  // namespace

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
