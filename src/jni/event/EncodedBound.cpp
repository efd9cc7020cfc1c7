// How long the record of an event can be, without encoding it.
//
// Each kind adds its texts to one fixed allowance instead of summing its own numbers: the bound
// needs to be safe and cheap, not tight. Phases are ignored, an END is bounded as if it were a
// START.
#include <algorithm>
#include <cstring>

#include "event/Events.h"
#include "event/WireWriter.h"
#include "instrument/class.h"

namespace {

// More than the numbers of any record: the longest, a credential vault summary, takes 63 bytes.
constexpr std::size_t kNumbers = 96;

// A text as it is written: with its length, cut where the length ends.
std::size_t text(const char* value) {
    return value == nullptr ? 0 : 2 + std::min(std::strlen(value), WireWriter::kMaxText);
}

template <typename... Texts>
std::size_t texts(Texts... values) {
    return kNumbers + (text(values) + ... + 0);
}

std::size_t bound(const RequestEvent& event) {
    return texts(event.request_name, event.application_name, event.url, event.userName);
}

std::size_t bound(const jclass_t& clazz) {
    std::size_t bytes = texts(clazz.class_name);
    for (int i = 0; i < clazz.num_methods; ++i)
        bytes += 4 + text(clazz.methods[i].method_name) + text(clazz.methods[i].method_signature);
    return bytes;
}

std::size_t entries(std::int32_t count, std::size_t bytesEach) {
    return count > 0 ? static_cast<std::size_t>(count) * bytesEach : 0;
}

template <typename EventClass>
const EventClass& as(const Event& event) {
    return static_cast<const EventClass&>(event);
}

}  // namespace

std::size_t Event::encodedBound() const {
    switch (type_) {
        case CLASS: {
            const jclass_t* const clazz = as<ClassEvent>(*this).classData;
            return clazz == nullptr ? kNumbers : bound(*clazz);
        }
        case SERVLET:
        case EJB:
        case TRACE:
        case GPS:
        case DOVERBFOR:
        case POLLFOREVENTS:
        case PORTAL_PAGE:
        case PORTAL_PORTLET:
        case WS_CLIENT:
        case WS_PROVIDER:
            return bound(as<RequestEvent>(*this));
        case MQ: {
            const auto& event = as<MQEvent>(*this);
            return texts(event.queueName, event.queueMgrName);
        }
        case GPSMQ: {
            const auto& event = as<GPSMQEvent>(*this);
            return texts(event.queueName) + entries(event.arrLength, 1);
        }
        case SQL: {
            const auto& event = as<SQLEvent>(*this);
            return texts(event.data_source_name, event.sql);
        }
        case JMS: {
            const auto& event = as<JMSEvent>(*this);
            return texts(event.serverName, event.queueOrTopicName, event.selector);
        }
        case JCA:
            return texts(as<JCAEvent>(*this).eisName);
        case JNDI: {
            const auto& event = as<JNDIEvent>(*this);
            return texts(event.providerURL, event.lookupName);
        }
        case MAIL: {
            const auto& event = as<MailEvent>(*this);
            return texts(event.serverURL, event.subject);
        }
        case JDO: {
            const auto& event = as<JDOEvent>(*this);
            return texts(event.className, event.methodName, event.argumentString);
        }
        case CTG: {
            const auto& event = as<CTGEvent>(*this);
            return texts(event.gatewayName, event.serverName, event.progName);
        }
        case MQI: {
            const auto& event = as<MQIEvent>(*this);
            return texts(event.mgrName, event.queueName) + entries(event.arrLength, 1 + 4 + 8);
        }
        case EXCEPTION: {
            const auto& event = as<ExceptionEvent>(*this);
            return texts(event.exception, event.class_name, event.method_name, event.stacktrace);
        }
        case PSSTATUS:
            return texts(as<PSStatusEvent>(*this).status_);
        case HEAP:
            return texts(as<HeapEvent>(*this).instantiated_class_name);
        case LOCK_ACQUISITION:
        case LOCK_RELEASE:
            return texts(as<LockEvent>(*this).className);
        case LOCK_CONTENTION: {
            const auto& event = as<LockContentionEvent>(*this);
            return texts(event.className, event.owningRequestName, event.owningApplicationName);
        }
        case PORTAL_GATEWAY_SERVLET_REQUEST:
            return texts(as<PortalGatewayServletEvent>(*this).pageName);
        case PORTAL_METHOD_CONSTANT:
            return texts(as<PortalMethodConstantEvent>(*this).methodName);
        case WS_FAULT: {
            const auto& event = as<WSFaultEvent>(*this);
            return texts(event.appName, event.faultCode, event.faultString);
        }
        case IIOP_CLIENT:
        case IIOP_SERVER: {
            const auto& event = as<CommonEvent>(*this);
            return texts(event.className, event.methodName) + CommonEvent::kMaxCustomData;
        }
        default:
            return kNumbers;  // numbers only, or no record
    }
}
