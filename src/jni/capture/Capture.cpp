#include "capture/Capture.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>

#include "capture/CallingThread.h"
#include "capture/EventStamp.h"
#include "capture/EventUtils.h"
#include "capture/NestedRequest.h"
#include "capture/PortalBuilders.h"
#include "event/Events.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"
#include "transport/MemoryMonitor.h"

namespace capture {
namespace {

// Begin and end of one kind; null for a kind that is not captured this way.
struct TimedCall {
    bool (*begin)(JNIEnv* env, ThreadData& thread, const CallTexts& texts, jint number) = nullptr;
    bool (*end)(JNIEnv* env, ThreadData& thread, jint number, bool failed) = nullptr;
};

// --- requests that nest --------------------------------------------------------------------------

template <typename Kind>
struct Request {
    static bool begin(JNIEnv* env, ThreadData& thread, const CallTexts& texts, jint) {
        return beginRequest<Kind>(env, thread, texts);
    }
    static bool end(JNIEnv* env, ThreadData& thread, jint, bool failed) {
        return endRequest<Kind>(env, thread, failed && std::is_same_v<Kind, ServletEvent>);
    }
};

// A portal page also becomes the thread's current page, until its gateway servlet ends.
struct PortalPage : Request<PortalPageEvent> {
    static bool begin(JNIEnv* env, ThreadData& thread, const CallTexts& texts, jint number) {
        char* page = texts[0].copy(env, MemoryMonitor::getURLLimit()).chars;
        thread.setPortalPageName(Utils::cstrdup(page));
        freeText(page);
        return Request::begin(env, thread, texts, number);
    }
};

template <EventType kind>
struct ClassAndMethod {
    static bool begin(JNIEnv* env, ThreadData&, const CallTexts& texts, jint) {
        return EventUtils::appendCommonEvent(env, kind, START, texts[0], texts[1], nullptr);
    }
    static bool end(JNIEnv* env, ThreadData&, jint, bool) {
        return EventUtils::appendCommonEvent(env, kind, END, nullptr, nullptr, nullptr);
    }
};

// --- calls at the depth of the request -----------------------------------------------------------

// Which member takes the depth, and which the texts, in their order.
template <auto depth, auto... texts>
struct Fields {};

template <typename Kind>
struct FieldsOf;
template <>
struct FieldsOf<SQLEvent> {
    Fields<&SQLEvent::servletDepth, &SQLEvent::data_source_name, &SQLEvent::sql> list;
};
template <>
struct FieldsOf<JMSEvent> {
    Fields<&JMSEvent::depth, &JMSEvent::serverName, &JMSEvent::queueOrTopicName,
           &JMSEvent::selector>
        list;
};
template <>
struct FieldsOf<MQEvent> {
    Fields<&MQEvent::depth, &MQEvent::queueName, &MQEvent::queueMgrName> list;
};
template <>
struct FieldsOf<JCAEvent> {
    Fields<&JCAEvent::depth, &JCAEvent::eisName> list;
};
template <>
struct FieldsOf<JNDIEvent> {
    Fields<&JNDIEvent::depth, &JNDIEvent::providerURL, &JNDIEvent::lookupName> list;
};
template <>
struct FieldsOf<JDOEvent> {
    Fields<&JDOEvent::depth, &JDOEvent::className, &JDOEvent::methodName, &JDOEvent::argumentString>
        list;
};
template <>
struct FieldsOf<MailEvent> {
    Fields<&MailEvent::depth, &MailEvent::serverURL, &MailEvent::subject> list;
};

template <typename Kind, auto depth, auto... members>
void fill(Fields<depth, members...>, Kind& event, JNIEnv* env, int level, const CallTexts& texts,
          int limit) {
    std::size_t next = 0;
    event.*depth = level;
    ((event.*members = attach(event, env, texts[next++], limit)), ...);
}

// The names that a request event has but a queue's record does not carry.
void fillNames(RequestEvent& event, int level) {
    event.request_name = emptyText();
    event.application_name = emptyText();
    event.url = emptyText();
    event.userName = emptyText();
    event.servletDepth = level;
}

template <typename Kind>
bool append(JNIEnv* env, ThreadData& thread, EventSubType phase, const CallTexts& texts,
            [[maybe_unused]] jint number) {
    auto event = std::make_unique<Kind>(phase);
    stamp(*event, &thread);
    if constexpr (std::is_base_of_v<RequestEvent, Kind>) {
        event->size_ = EventCosts::MQ;
        fillNames(*event, thread.servletDepth_);
    }
    if constexpr (requires { event->action; })
        event->action = static_cast<decltype(event->action)>(number);
    fill(FieldsOf<Kind>{}.list, *event, env, thread.servletDepth_, texts, 0);
    return EventUtils::appendRequestEvent(env, &thread, event.release());
}

template <typename Kind>
struct Call {
    static bool begin(JNIEnv* env, ThreadData& thread, const CallTexts& texts, jint number) {
        return append<Kind>(env, thread, START, texts, number);
    }
    static bool end(JNIEnv* env, ThreadData& thread, jint number, bool) {
        return append<Kind>(env, thread, END, {}, number);
    }
};

// --- statements ----------------------------------------------------------------------------------

char* duplicate(char* text) {
    if (text == emptyText() || eventtext::isKept(text)) return text;
    const std::size_t bytes = std::strlen(text) + 1;
    char* const made = eventtext::allocate(bytes);
    std::memcpy(made, text, bytes);
    return made;
}

// The outermost statement is the one in flight; those beneath it are the driver's own business.
struct Statement {
    static bool begin(JNIEnv* env, ThreadData& thread, const CallTexts& texts, jint) {
        auto event = std::make_unique<SQLEvent>(START);
        stamp(*event, &thread);
        event->servletDepth = thread.servletDepth_;
        event->data_source_name = attach(*event, env, texts[0]);
        const javatext::Text sql = texts[1].copy(env, MemoryMonitor::getSQLLimit());
        event->sql = sql.chars;
        event->noteText(sql.length);
        if (texts[1].text != nullptr && !MemoryMonitor::avgSQLCalculated())
            MemoryMonitor::sqlRequest(sql.length);
        event->size_ = MemoryMonitor::getSQLSize();
        if (thread.dataSrcSQLDepth_++ == 0) {
            thread.setSQL(duplicate(event->sql));
            thread.setDSName(duplicate(event->data_source_name));
        }
        return EventUtils::appendRequestEvent(env, &thread, event.release());
    }
    static bool end(JNIEnv* env, ThreadData& thread, jint, bool) {
        if (thread.dataSrcSQLDepth_ > 0 && --thread.dataSrcSQLDepth_ == 0) {
            thread.setSQL(nullptr);
            thread.setDSName(nullptr);
        }
        auto event = std::make_unique<SQLEvent>(END);
        stamp(*event, &thread);
        fill(FieldsOf<SQLEvent>{}.list, *event, env, thread.servletDepth_, {}, 0);
        event->size_ = MemoryMonitor::getSQLSize();
        return EventUtils::appendRequestEvent(env, &thread, event.release());
    }
};

// --- steps of a portal ---------------------------------------------------------------------------

// An end carries the method's id, too: the number that its begin was given.
template <EventType kind>
struct PortalStep {
    static bool begin(JNIEnv* env, ThreadData&, const CallTexts& texts, jint) {
        return portal::appendMethod(env, kind, START, texts[0].text);
    }
    static bool end(JNIEnv* env, ThreadData&, jint, bool) {
        return portal::appendMethod(env, kind, END, nullptr);
    }
};

struct PortalGateway {
    static bool begin(JNIEnv* env, ThreadData&, const CallTexts&, jint) {
        return portal::appendGatewayServlet(env, START);
    }
    static bool end(JNIEnv* env, ThreadData&, jint, bool) {
        return portal::appendGatewayServlet(env, END);
    }
};

template <typename Row>
constexpr TimedCall row() {
    return {&Row::begin, &Row::end};
}

constexpr auto kCalls = [] {
    std::array<TimedCall, WS_FAULT + 1> calls{};
    calls[SERVLET] = row<Request<ServletEvent>>();
    calls[EJB] = row<Request<EJBEvent>>();
    calls[PORTAL_PAGE] = row<PortalPage>();
    calls[PORTAL_PORTLET] = row<Request<PortalPortletEvent>>();
    calls[DOVERBFOR] = row<Request<DoVerbForEvent>>();
    calls[POLLFOREVENTS] = row<Request<PollForEvent>>();
    calls[WS_CLIENT] = row<Request<WSClientEvent>>();
    calls[WS_PROVIDER] = row<Request<WSProviderEvent>>();
    calls[IIOP_CLIENT] = row<ClassAndMethod<IIOP_CLIENT>>();
    calls[IIOP_SERVER] = row<ClassAndMethod<IIOP_SERVER>>();
    calls[SQL] = row<Statement>();
    calls[JMS] = row<Call<JMSEvent>>();
    calls[MQ] = row<Call<MQEvent>>();
    calls[JCA] = row<Call<JCAEvent>>();
    calls[JNDI] = row<Call<JNDIEvent>>();
    calls[JDO] = row<Call<JDOEvent>>();
    calls[MAIL] = row<Call<MailEvent>>();
    calls[PORTAL_AUTHENTICATION] = row<PortalStep<PORTAL_AUTHENTICATION>>();
    calls[PORTAL_AUTHORIZATION] = row<PortalStep<PORTAL_AUTHORIZATION>>();
    calls[PORTAL_MODEL_BUILDING_REQUEST] = row<PortalStep<PORTAL_MODEL_BUILDING_REQUEST>>();
    calls[PORTAL_PAGE_LOADING_REQUEST] = row<PortalStep<PORTAL_PAGE_LOADING_REQUEST>>();
    calls[PORTAL_PAGE_RENDERING_REQUEST] = row<PortalStep<PORTAL_PAGE_RENDERING_REQUEST>>();
    calls[PORTAL_ACTION_REQUEST] = row<PortalStep<PORTAL_ACTION_REQUEST>>();
    calls[PORTAL_GATEWAY_SERVLET_REQUEST] = row<PortalGateway>();
    return calls;
}();

// A kind without a row has null functions; so has every number that is no kind.
TimedCall callOf(jint kind) {
    return kind < 0 || kind >= static_cast<jint>(kCalls.size())
               ? TimedCall{}
               : kCalls[static_cast<std::size_t>(kind)];
}

}  // namespace

bool begin(JNIEnv* env, jint kind, const CallTexts& texts, jint number) {
    VEL_TRACE("begin(JNIEnv*, jint, const CallTexts&, jint)");
    const TimedCall call = callOf(kind);
    if (call.begin == nullptr || MemoryMonitor::reachedULimit(env)) return false;
    ThreadData* const thread = callingThread(env);
    return thread != nullptr && call.begin(env, *thread, texts, number);
}

void end(JNIEnv* env, jint kind, jint number, bool failed) {
    VEL_TRACE("end(JNIEnv*, jint, jint, bool)");
    const TimedCall call = callOf(kind);
    if (call.end == nullptr || MemoryMonitor::reachedULimit(env)) return;
    if (ThreadData* const thread = callingThread(env); thread != nullptr)
        call.end(env, *thread, number, failed);
}

}  // namespace capture
