// Which member of an event is which field of its record: one short function for each event class.
// The order of the fields, the frame around them and the numbers of the types are the record
// format's (dc2ps/RecordRows.h and the layouts); docs/WIRE.md draws the records.
//
// Each function fills a record and hands it on, to be written (Writing) or measured (Measuring), so
// that the two cannot come to differ. None carries a trace line: they run once per event in the
// agents' innermost loop, and the event agent traces each packet.
#include <atomic>
#include <cstring>

#include "dc2ps/RecordWriter.h"
#include "event/GPSTokenUtils.h"
#include "event/ProtocolVisitor.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/ProbeState.h"
#include "instrument/class.h"

namespace {

using namespace dc2ps;
using Type = dc2ps::RecordType;

// An event whose phase or action has no record type. A record of type 0 would be taken for a packet
// header and put the reader out of step for good, so such an event is not written; its agent counts
// it as lost. Told once for each kind, by its low byte: numbers stay far below 256, and an event of
// a damaged kind is told too.
[[gnu::cold, gnu::noinline]] void tellNoRecord(const Event& event, int action) {
    static std::atomic<bool> told[256];
    if (!told[event.type_ & 255].exchange(true, std::memory_order_relaxed))
        logMessage(msg::kNoRecordForPhase, event.type_, event.subType_, action);
}

class Writing {
public:
    static constexpr bool kWrites = true;
    explicit Writing(char** position) : position_(position) {}

    // The caller's position moves only at the end: a record is there completely or not at all.
    template <class Layout, class... Elements>
    bool operator()(const Layout& record, const Elements&... elements) {
        FieldWriter out(*position_);
        putRecord(out, record, elements...);
        *position_ = out.at();
        return true;
    }
    static bool refuse(const Event& event, int action = 0) {
        tellNoRecord(event, action);
        return false;
    }

private:
    char** position_;
};

class Measuring {
public:
    static constexpr bool kWrites = false;
    std::size_t bytes() const { return size_.bytes(); }

    template <class Layout, class... Elements>
    bool operator()(const Layout& record, const Elements&... elements) {
        putRecord(size_, record, elements...);
        return true;
    }
    static bool refuse(const Event&, int = 0) { return false; }

private:
    FieldSize size_;
};

std::uint32_t low32(const void* id) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(id));
}

bool isStart(const Event& event) {
    return event.subType_ == START;
}

constexpr Type endOf(Type start) {
    return static_cast<Type>(static_cast<int>(start) + 1);
}

// Every phase but START ends.
Type startOrEnd(const Event& event, Type start) {
    return isStart(event) ? start : endOf(start);
}

// "No record" is told by the header's type, which is no event's.
constexpr Type kNoRecord = Type::header;

// For the kinds that know no other phases.
Type strictStartOrEnd(const Event& event, Type start) {
    if (isStart(event)) return start;
    return event.subType_ == END ? endOf(start) : kNoRecord;
}

template <class Layout>
Layout plain(Type type) {
    Layout r;
    r.type = type;
    if constexpr (requires { r.phase; }) r.phase = rowOf(type).phase;
    return r;
}

struct FillNothing {
    void operator()(auto&) const {}
};

// Hands on a unit of work. fillStart(r) sets the fields that only a START has: the ends, half of
// all events, do not even look at their texts. fillEach(r) sets what any phase has.
//
// Phase by phase, so that the compiler makes of an end the few moves that it is; and the frame
// last, so that its numbers need not be kept while texts are measured.
template <class Layout, class Put, class FillStart, class FillEach = FillNothing>
bool timed(Put& to, const Event& event, Type type, int depth, const FillStart& fillStart,
           const FillEach& fillEach = {}) {
    auto r = plain<Layout>(type);
    const auto putFramed = [&] {
        r.threadId = event.threadId_;
        r.depth = static_cast<std::uint8_t>(depth);
        r.time = {event.timeSec_, event.timeUSec_};
        r.cpuTime = event.cpuTime_;
        r.probeLevel = static_cast<std::uint8_t>(ProbeState::level());
        return to(r);
    };
    fillEach(r);
    if (r.phase != Phase::start) return putFramed();
    fillStart(r);
    return putFramed();
}

// --- requests ------------------------------------------------------------------------------------

// A text without data is the same as another such, but not as an empty one.
bool sameText(std::string_view one, std::string_view other) {
    return (one.data() == nullptr) == (other.data() == nullptr) && one == other;
}

// A flag and two names; names that only repeat the url are not sent.
template <class Layout>
void fillNames(Layout& r, const RequestEvent& e) {
    r.name = text(e.request_name);
    r.application = text(e.application_name);
    r.url = text(e.url);
    r.named = !sameText(r.name, r.url) || !sameText(r.application, r.url);
    if (!r.named) r.name = r.application = "";
}

template <class Put>
bool put(const ServletEvent& e, Put& to) {
    const Type type = e.subType_ == ERRORS ? Type::servletError : startOrEnd(e, Type::servletStart);
    return timed<ServletRequest>(to, e, type, e.servletDepth, [&](auto& r) {
        fillNames(r, e);
        r.user = text(e.userName);
    });
}

template <class Put>
bool putNamed(const RequestEvent& e, Type start, Put& to) {
    const Type type = strictStartOrEnd(e, start);
    if (type == kNoRecord) [[unlikely]]
        return to.refuse(e);
    return timed<NamedRequest>(to, e, type, e.servletDepth, [&](auto& r) { fillNames(r, e); });
}

template <class Put>
bool put(const EJBEvent& e, Put& to) {
    return putNamed(e, Type::ejbStart, to);
}

template <class Put>
bool put(const DoVerbForEvent& e, Put& to) {
    return putNamed(e, Type::doVerbForStart, to);
}

template <class Put>
bool put(const PollForEvent& e, Put& to) {
    return putNamed(e, Type::pollForEventsStart, to);
}

template <class Put>
bool putPortal(const RequestEvent& e, Type start, Put& to) {
    const Type type = strictStartOrEnd(e, start);
    if (type == kNoRecord) [[unlikely]]
        return to.refuse(e);
    return timed<PortalRequest>(to, e, type, e.servletDepth, [&](auto& r) {
        r.name = text(e.request_name);
        r.application = text(e.application_name);
        r.url = text(e.url);
        r.user = text(e.userName);
    });
}

template <class Put>
bool put(const PortalPageEvent& e, Put& to) {
    return putPortal(e, Type::portalPageStart, to);
}

template <class Put>
bool put(const PortalPortletEvent& e, Put& to) {
    return putPortal(e, Type::portletStart, to);
}

template <class Put>
bool putWebService(const RequestEvent& e, Type start, Put& to) {
    return timed<WebServiceRequest>(to, e, startOrEnd(e, start), e.servletDepth, [&](auto& r) {
        r.application = text(e.application_name);
        r.name = text(e.request_name);
        r.url = text(e.url);
    });
}

template <class Put>
bool put(const WSClientEvent& e, Put& to) {
    return putWebService(e, Type::wsClientStart, to);
}

template <class Put>
bool put(const WSProviderEvent& e, Put& to) {
    return putWebService(e, Type::wsProviderStart, to);
}

template <class Put>
bool put(const WSFaultEvent& e, Put& to) {
    const Type type = startOrEnd(e, Type::wsFaultStart);
    return timed<WsFault>(to, e, type, e.servletDepth, [&](auto& r) {
        r.application = text(e.appName);
        r.faultCode = text(e.faultCode);
        r.faultText = text(e.faultString);
    });
}

template <class Put>
bool put(const TraceEvent& e, Put& to) {
    auto r = plain<Trace>(Type::trace);
    r.time = {e.timeSec_, e.timeUSec_};
    r.name = text(e.request_name);
    r.probeLevel = static_cast<std::uint8_t>(ProbeState::level());
    return to(r);
}

Type typeOf(const GPSEvent& e) {
    switch (e.subType_) {
        case START:
            return Type::gpsInvokeStart;
        case END:
            return Type::gpsInvokeEnd;
        case CONNECT:
            return Type::gpsReceiveStart;
        case COMPLETE:
            return Type::gpsReceiveEnd;
        default:
            return kNoRecord;
    }
}

// The token is the four bytes that stand in request_name, else the number.
template <class Put>
bool put(const GPSEvent& e, Put& to) {
    const Type type = typeOf(e);
    if (type == kNoRecord) [[unlikely]]
        return to.refuse(e);
    char token[4];
    FieldWriter number(token);
    number("token", e.token);
    if (e.request_name != nullptr) std::memcpy(token, e.request_name, sizeof token);
    // From now on the server may know this token: it must not be issued again, even after a
    // restart.
    if constexpr (Put::kWrites)
        if (isStart(e)) GPSTokenUtils::noteToken(e.token);
    return timed<GpsRequest>(to, e, type, e.servletDepth, [&](auto& r) {
        r.token.bytes = {token, sizeof token};
    });
}

// What a subclass adds to its START has no field of its own.
struct CommonCall : IiopRequest {
    Verbatim custom;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        IiopRequest::fields(r, f);
        f("custom", r.custom);
    }
};

template <class Put>
bool put(CommonEvent& e, Put& to) {
    const int type = ProtocolVisitor::getRecordType(e.type_, e.subType_);
    if (type < 0) [[unlikely]]
        return to.refuse(e);
    const bool mapped = isStart(e) && e.isMethodMapEnabled();
    const int key = mapped ? ProtocolVisitor::getMethodID(e.type_) : 0;
    // Measured with its name: the map may be reset before the record is written.
    const bool known = Put::kWrites && mapped && CommonEvent::hasMaped(key);
    char custom[CommonEvent::kMaxCustomData];
    char* end = custom;
    if (isStart(e) && !e.addCustomDataToBuffer(&end)) return false;
    timed<CommonCall>(to, e, static_cast<Type>(type), e.depth, [&](auto& r) {
        r.className = text(e.className);
        r.methodMapKey = key;
        r.methodName = known ? "" : text(e.methodName);
        r.custom.bytes = {custom, static_cast<std::size_t>(end - custom)};
    });
    // Two agents that name a kind at the same moment both send the name: harmless.
    if (Put::kWrites && mapped && !known) CommonEvent::setMaped(key);
    return true;
}

// --- resources -----------------------------------------------------------------------------------

template <class Put>
bool put(const SQLEvent& e, Put& to) {
    return timed<SqlCall>(to, e, startOrEnd(e, Type::sqlStart), e.servletDepth, [&](auto& r) {
        r.dataSource = text(e.data_source_name);
        r.sql = text(e.sql);
    });
}

template <class Put>
bool put(const JNDIEvent& e, Put& to) {
    return timed<JndiCall>(to, e, startOrEnd(e, Type::jndiStart), e.depth, [&](auto& r) {
        r.providerUrl = text(e.providerURL);
        r.lookupName = text(e.lookupName);
    });
}

template <class Put>
bool put(const MailEvent& e, Put& to) {
    return timed<MailCall>(to, e, startOrEnd(e, Type::mailStart), e.depth, [&](auto& r) {
        r.serverUrl = text(e.serverURL);
        r.subject = text(e.subject);
    });
}

template <class Put>
bool put(const JCAEvent& e, Put& to) {
    return timed<JcaCall>(to, e, startOrEnd(e, Type::jcaStart), e.depth,
                          [&](auto& r) { r.eisName = text(e.eisName); });
}

Type startOf(const JMSEvent& e) {
    switch (e.action) {
        case JMS_RECEIVE:
            return Type::jmsReceiveStart;
        case JMS_BROWSE:
            return Type::jmsBrowseStart;
        case JMS_SEND:
            return Type::jmsSendStart;
        case JMS_PUBLISH:
            return Type::jmsPublishStart;
        default:
            return kNoRecord;
    }
}

template <class Put>
bool put(const JMSEvent& e, Put& to) {
    const Type start = startOf(e);
    if (start == kNoRecord) [[unlikely]]
        return to.refuse(e, e.action);
    return timed<JmsCall>(to, e, startOrEnd(e, start), e.depth, [&](auto& r) {
        r.server = text(e.serverName);
        r.destination = text(e.queueOrTopicName);
        r.selector = text(e.selector);
    });
}

template <class Put>
bool put(const JDOEvent& e, Put& to) {
    return timed<JdoCall>(to, e, startOrEnd(e, Type::jdoStart), e.depth, [&](auto& r) {
        r.className = text(e.className);
        r.methodName = text(e.methodName);
        r.arguments = text(e.argumentString);
    });
}

template <class Put>
bool put(const MQEvent& e, Put& to) {
    const auto fillStart = [&](auto& r) {
        r.queue = text(e.queueName);
        r.queueManager = text(e.queueMgrName);
    };
    return timed<MqCall>(to, e, startOrEnd(e, Type::mqStart), e.depth, fillStart,
                         [&](auto& r) { r.action = static_cast<std::uint8_t>(e.action); });
}

Type startOf(const GPSMQEvent& e) {
    switch (e.action) {
        case GPSMQ_PUT:
            return Type::gpsPutStart;
        case GPSMQ_GET:
            return Type::gpsGetStart;
        default:
            return kNoRecord;
    }
}

template <class Put>
bool put(const GPSMQEvent& e, Put& to) {
    const Type start = startOf(e);
    if (start == kNoRecord) [[unlikely]]
        return to.refuse(e, e.action);
    const auto fillStart = [&](auto& r) {
        r.queue = text(e.queueName);
        r.token.bytes = "";
        if (e.gpsToken != nullptr && e.arrLength > 0)
            r.token.bytes = {reinterpret_cast<const char*>(e.gpsToken),
                             static_cast<std::size_t>(e.arrLength)};
    };
    return timed<GpsMqCall>(to, e, startOrEnd(e, start), e.depth, fillStart,
                            [&](auto& r) { r.action = static_cast<std::uint8_t>(e.action); });
}

template <class Put>
bool put(const CTGEvent& e, Put& to) {
    auto r = plain<Ctg>(Type::ctg);
    r.gateway = text(e.gatewayName);
    r.server = text(e.serverName);
    r.program = text(e.progName);
    r.snapshotTime = e.snapShotTime;
    r.count = e.count;
    r.averageTime = e.avgTimeTaken;
    return to(r);
}

template <class Put>
bool put(const MQIEvent& e, Put& to) {
    const bool complete = e.ctype != nullptr && e.count != nullptr && e.avgTimeTaken != nullptr;
    auto r = plain<Mqi>(Type::mqi);
    r.queueManager = text(e.mgrName);
    r.queue = text(e.queueName);
    r.snapshotTime = e.snapShotTime;
    r.elementCount = complete && e.arrLength > 0 ? e.arrLength : 0;
    return to(r, [&](auto& f) {
        for (std::int32_t i = 0; i < r.elementCount; ++i) {
            const Mqi::Element element{e.ctype[i], e.count[i], e.avgTimeTaken[i]};
            Mqi::Element::fields(element, f);
        }
    });
}

// --- locks and allocations -----------------------------------------------------------------------

template <class Put>
bool putLock(const LockEvent& e, Type start, Put& to) {
    return timed<LockStep>(to, e, startOrEnd(e, start), e.depth, [&](auto& r) {
        r.methodId = low32(e.method_id);
        r.className = text(e.className);
    });
}

template <class Put>
bool put(const LockAcquisitionEvent& e, Put& to) {
    return putLock(e, Type::lockAcquireStart, to);
}

template <class Put>
bool put(const LockReleaseEvent& e, Put& to) {
    return putLock(e, Type::lockReleaseStart, to);
}

template <class Put>
bool put(const LockContentionEvent& e, Put& to) {
    const Type type = startOrEnd(e, Type::lockContendStart);
    return timed<LockContention>(to, e, type, e.depth, [&](auto& r) {
        r.methodId = low32(e.method_id);
        r.className = text(e.className);
        r.ownerType = e.owningRequestType;
        r.ownerName = text(e.owningRequestName);
        r.ownerApplication = text(e.owningApplicationName);
        r.ownerMethodId = low32(e.owning_method_id);
    });
}

template <class Put>
bool put(const HeapEvent& e, Put& to) {
    return timed<HeapAllocation>(to, e, startOrEnd(e, Type::heapStart), e.depth, [&](auto& r) {
        r.methodId = low32(e.method_id);
        r.className = text(e.instantiated_class_name);
        r.line = e.line_number;
    });
}

// --- a portal's steps and summaries --------------------------------------------------------------

template <class Step, class Put>
bool putStep(const Step& e, Type start, Put& to) {
    return timed<PortalStep>(to, e, startOrEnd(e, start), e.depth,
                             [&](auto& r) { r.methodId = e.methodId; });
}

template <class Put>
bool put(const PortalAuthenticationEvent& e, Put& to) {
    return putStep(e, Type::portalAuthenticationStart, to);
}

template <class Put>
bool put(const PortalAuthorizationEvent& e, Put& to) {
    return putStep(e, Type::portalAuthorizationStart, to);
}

template <class Put>
bool put(const PortalModelBuildingEvent& e, Put& to) {
    return putStep(e, Type::portalModelStart, to);
}

template <class Put>
bool put(const PortalPageLoadingEvent& e, Put& to) {
    return putStep(e, Type::portalPageLoadStart, to);
}

template <class Put>
bool put(const PortalPageRenderingEvent& e, Put& to) {
    return putStep(e, Type::portalRenderStart, to);
}

template <class Put>
bool put(const PortalActionEvent& e, Put& to) {
    return putStep(e, Type::portalActionStart, to);
}

// Here the end carries the name.
template <class Put>
bool put(const PortalGatewayServletEvent& e, Put& to) {
    const Type type = startOrEnd(e, Type::portalGatewayStart);
    return timed<PortalGateway>(to, e, type, e.depth, FillNothing(), [&](auto& r) {
        r.pageName = e.pageName == nullptr ? "PageNameUnknown" : e.pageName;
    });
}

template <class Summary, class Put>
bool putSummary(const Summary& e, Type type, Put& to) {
    auto r = plain<PortalAverage>(type);
    r.count = e.count;
    r.averageTime = e.avgTimeTaken;
    return to(r);
}

template <class Put>
bool put(const PortalAuthAcEvent& e, Put& to) {
    return putSummary(
        e, e.type_ == PORTAL_AUTH ? Type::portalAuthAverage : Type::portalAccessAverage, to);
}

template <class Put>
bool put(const PortalAggregateDataEvent& e, Put& to) {
    switch (e.type_) {
        case PORTAL_GATEWAY_SERVLET:
            return putSummary(e, Type::portalGatewayAverage, to);
        case PORTAL_MODEL_BUILDING:
            return putSummary(e, Type::portalModelAverage, to);
        case PORTAL_PAGE_LOADING:
            return putSummary(e, Type::portalPageAverage, to);
        default:
            return to.refuse(e);
    }
}

template <class Put>
bool put(const PortalCredentialVaultEvent& e, Put& to) {
    auto r = plain<PortalCredentialVault>(Type::portalCredentialVault);
    r.getCredential = {e.getCredentialCount, e.getCredentialAvgTime};
    r.setBinary = {e.setCredentialBinaryCount, e.setCredentialBinaryAvgTime};
    r.setUserPassword = {e.setCredentialUserPasswordCount, e.setCredentialUserPasswordAvgTime};
    r.createSlot = {e.createSlotCount, e.createSlotAvgTime};
    r.deleteSlot = {e.deleteSlotCount, e.deleteSlotAvgTime};
    return to(r);
}

template <class Put>
bool put(const PortalContentAccessEvent& e, Put& to) {
    auto r = plain<PortalContentAccess>(Type::portalContentAccess);
    r.getInputStream = {e.getInputStreamCount, e.getInputStreamAvgTime};
    r.getMarkup = {e.getMarkupCount, e.getMarkupAvgTime};
    r.getUrl = {e.getURLCount, e.getURLAvgTime};
    r.include = {e.includeCount, e.includeAvgTime};
    return to(r);
}

template <class Put>
bool put(const PortalMethodConstantEvent& e, Put& to) {
    auto r = plain<PortalMethodName>(Type::portalMethodName);
    r.methodId = e.methodId;
    r.methodName = text(e.methodName);
    return to(r);
}

// --- the VM, and the collector itself ------------------------------------------------------------

template <class Put>
bool putClassLoad(const jclass_t& clazz, Put& to) {
    auto r = plain<ClassLoad>(Type::classLoad);
    r.sequence = clazz.sequenceID;
    r.className = text(clazz.class_name);
    r.methodCount = clazz.num_methods;
    return to(r, [&](auto& f) {
        for (int i = 0; i < clazz.num_methods; ++i) {
            const jmethod_t& method = clazz.methods[i];
            const ClassLoad::Method each{low32(method.method_id.load(std::memory_order_relaxed)),
                                         text(method.method_name), text(method.method_signature)};
            ClassLoad::Method::fields(each, f);
        }
    });
}

template <class Put>
bool putClassUnload(const jclass_t& clazz, Put& to) {
    auto r = plain<ClassUnload>(Type::classUnload);
    r.sequence = clazz.sequenceID;
    r.classId = low32(clazz.class_id.load(std::memory_order_relaxed));
    r.methodCount = clazz.num_methods;
    return to(r, [&](auto& f) {
        for (int i = 0; i < clazz.num_methods; ++i)
            f("methodId", low32(clazz.methods[i].method_id.load(std::memory_order_relaxed)));
    });
}

template <class Put>
bool put(const ClassEvent& e, Put& to) {
    if (e.classData == nullptr) [[unlikely]]
        return to.refuse(e);
    return e.subType_ == LOAD ? putClassLoad(*e.classData, to) : putClassUnload(*e.classData, to);
}

template <class Put>
bool put(const MethodEvent& e, Put& to) {
    auto r = plain<MethodStep>(startOrEnd(e, Type::methodEntry));
    r.threadId = e.threadId_;
    r.methodId = low32(e.method_id);
    r.time = {e.timeSec_, e.timeUSec_};
    r.cpuTime = e.cpuTime_;
    return to(r);
}

template <class Put>
bool put(const GCEvent& e, Put& to) {
    auto r = plain<Gc>(startOrEnd(e, Type::gcStart));
    r.threadId = e.threadId_;
    r.time = {e.timeSec_, e.timeUSec_};
    r.usedObjects = e.used_objects;
    r.usedSpace = e.used_object_space;
    r.totalSpace = e.total_object_space;
    return to(r);
}

template <class Put>
bool put(const ExceptionEvent& e, Put& to) {
    auto r = plain<Exception>(Type::exception);
    r.exception = text(e.exception);
    r.className = text(e.class_name);
    r.methodName = text(e.method_name);
    r.stackTrace = text(e.stacktrace);
    return to(r);
}

template <class Put>
bool put(const SamplingEvent& e, Put& to) {
    auto r = plain<Sampling>(Type::sampling);
    std::copy(std::begin(e.probeLevels), std::end(e.probeLevels), r.rates.begin());
    r.useDefault = e.useDefault == 1;
    return to(r);
}

template <class Put>
bool put(const DroppedEvent& e, Put& to) {
    auto r = plain<Dropped>(Type::dropped);
    r.threadId = e.threadId_;
    r.requestStarts = e.dropRecStartCnt;
    r.requestEnds = e.dropRecEndCnt;
    r.methodStarts = e.dropMethStartCnt;
    r.methodEnds = e.dropMethEndCnt;
    r.sqlStarts = e.dropSQLStartCnt;
    r.sqlEnds = e.dropSQLEndCnt;
    return to(r);
}

template <class Put>
bool put(const PSStatusEvent& e, Put& to) {
    auto r = plain<PsStatus>(Type::psStatus);
    r.status = text(e.status_);
    return to(r);
}

// --- how long a record can be --------------------------------------------------------------------

// Every text and every run of bytes as long as its length can say.
class LongestSize : public FieldSize {
public:
    using FieldSize::operator();
    constexpr void operator()(const char*, std::string_view) { longest(); }
    constexpr void operator()(const char*, RawBytes) { longest(); }
    constexpr void operator()(const char*, Token) { longest(); }
    constexpr std::size_t bytes() const { return FieldSize::bytes() + texts_; }

private:
    constexpr void longest() { texts_ += 2 + kMaxText; }
    std::size_t texts_ = 0;
};

// Without the elements behind the fields of class and MQI records.
template <class Layout>
constexpr std::size_t longest(Type type) {
    if constexpr (!std::is_same_v<Layout, NoLayout>) {
        Layout r;
        r.type = type;
        if constexpr (requires { r.phase; }) r.phase = rowOf(type).phase;
        LongestSize size;
        putRecord(size, r);
        return size.bytes();
    }
    return 0;
}

#define VELORA_WITHIN_BOUND(name, number, shown, layout, phase, span) \
    static_assert(longest<layout>(Type::name) <= Event::kMaxTextRecord, #name);
DC2PS_RECORD_ROWS(VELORA_WITHIN_BOUND)
#undef VELORA_WITHIN_BOUND

}  // namespace

// Flattened, so that a record lives in registers on its way from the event to the buffer.
#define VELORA_ENCODER(kind, Class)                                               \
    [[gnu::flatten]] bool ProtocolVisitor::addToBuffer(Class* evt, char** buf) {  \
        Writing to(buf);                                                          \
        return put(*evt, to);                                                     \
    }                                                                             \
    [[gnu::flatten]] std::size_t ProtocolVisitor::recordBytes(const Class* evt) { \
        Measuring to;                                                             \
        return put(*evt, to) ? to.bytes() : 0;                                    \
    }
VELORA_EVENT_CLASSES(VELORA_ENCODER)
#undef VELORA_ENCODER

bool ProtocolVisitor::addToBuffer(CommonEvent* evt, char** buf) {
    Writing to(buf);
    return put(*evt, to);
}

std::size_t ProtocolVisitor::recordBytes(const CommonEvent* evt) {
    Measuring to;
    // What a subclass adds is written anew to be measured, by an operation that is not const.
    return put(const_cast<CommonEvent&>(*evt), to) ? to.bytes() : 0;
}
