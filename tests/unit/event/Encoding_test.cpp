// The round trip of every kind of event: encoded, held to tests/golden/records.txt byte by byte,
// measured, and read back with the server's decoder.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>

#include "agent/ProbeMgr.h"
#include "event/ProtocolVisitor.h"
#include "support/GoldenRecords.h"
#include "support/ReadBack.h"
#include "support/VelFixture.h"
#include "support/WireBytes.h"
#include "unit/event/EventMaking.h"

using make::event;
using make::method;
using make::request;
using make::text;

#define FRAME " 01020304 02 00000005 00000006 0000000000000009 "
#define LEVEL_END " 02 7F7F"

namespace {

using Build = std::function<std::unique_ptr<Event>(EventSubType)>;

template <typename EventClass>
using Fill = std::function<void(EventClass&)>;

template <typename EventClass>
Build plain(const Fill<EventClass>& fill = [](EventClass&) {}) {
    return [=](EventSubType phase) {
        auto made = event<EventClass>(phase);
        fill(*made);
        return made;
    };
}

template <typename EventClass>
Build deep(const Fill<EventClass>& fill = [](EventClass&) {}) {
    return plain<EventClass>([=](EventClass& e) {
        e.depth = 2;
        fill(e);
    });
}

template <typename EventClass>
Build named() {
    return [](EventSubType phase) { return request<EventClass>(phase); };
}

template <typename EventClass>
Build summary(EventType type) {
    return [=](EventSubType) {
        auto made = event<EventClass>(type, NOSTYPE);
        made->count = 3;
        made->avgTimeTaken = 4;
        return made;
    };
}

Build servlet(const char* name, const char* application, const char* url) {
    return plain<ServletEvent>([=](ServletEvent& e) {
        e.servletDepth = 2;
        e.request_name = text(name);
        e.application_name = text(application);
        e.url = text(url);
        e.userName = emptyText();
    });
}

Build jms(int action) {
    return deep<JMSEvent>([=](JMSEvent& e) {
        e.action = static_cast<JMS_ACTION>(action);
        e.serverName = text("s");
        e.queueOrTopicName = text("q");
        e.selector = text("x");
    });
}

Build gpsMq(int action) {
    return deep<GPSMQEvent>([=](GPSMQEvent& e) {
        e.action = action;
        e.queueName = text("q");
        e.gpsToken = new jbyte[4]{1, 0, 0, -1};
        e.arrLength = 4;
    });
}

template <typename EventClass>
Build lock() {
    return deep<EventClass>([](EventClass& e) {
        e.method_id = method(0x7F0012345678);  // the low half travels
        e.className = text("C");
    });
}

template <typename EventClass>
Build step() {
    return deep<EventClass>([](EventClass& e) { e.methodId = -3; });
}

template <typename EventClass>
Build iiop() {
    return deep<EventClass>([](EventClass& e) {
        e.className = text("C");
        e.methodName = text("m");
    });
}

void fillSql(SQLEvent& e) {
    e.servletDepth = 2;
    e.data_source_name = text("ds");
    e.sql = text("q");
}

void fillGps(GPSEvent& e) {
    e.servletDepth = 2;
    e.token = 0xA0000102;
    e.request_name = new char[5]{'\xA0', 0, 1, 2, 0};
}

void fillContention(LockContentionEvent& e) {
    e.method_id = method(0x11);
    e.className = text("C");
    e.owningRequestType = -2;
    e.owningRequestName = text("r");
    e.owningApplicationName = text("a");
    e.owning_method_id = method(0x22);
}

void fillFault(WSFaultEvent& e) {
    static char code[] = "c", message[] = "f", application[] = "a";
    e.servletDepth = 2;
    e.faultCode = code;
    e.faultString = message;
    e.appName = application;
}

void fillClass(ClassEvent& e) {
    e.classData = new jclass_t;
    e.classData->class_id = reinterpret_cast<jobjectID>(0x7F00AABBCCDD);
    e.classData->sequenceID = 7;
    e.classData->class_name = text("p/C");
    e.classData->allocateMethods(2);
    e.classData->methods[0].initialize("m", "()V", method(0x21), e.classData);
    e.classData->methods[1].initialize("n", "(I)J", method(0x22), e.classData);
}

void fillVault(PortalCredentialVaultEvent& e) {
    e.getCredentialCount = 1;
    e.getCredentialAvgTime = 2;
    e.setCredentialBinaryCount = 3;
    e.setCredentialBinaryAvgTime = 4;
    e.setCredentialUserPasswordCount = 5;
    e.setCredentialUserPasswordAvgTime = 6;
    e.createSlotCount = 7;
    e.createSlotAvgTime = 8;
    e.deleteSlotCount = 9;
    e.deleteSlotAvgTime = 10;
}

void fillContentAccess(PortalContentAccessEvent& e) {
    e.getInputStreamCount = 1;
    e.getInputStreamAvgTime = 2;
    e.getMarkupCount = 3;
    e.getMarkupAvgTime = 4;
    e.getURLCount = 5;
    e.getURLAvgTime = 6;
    e.includeCount = 7;
    e.includeAvgTime = 8;
}

void fillDropped(DroppedEvent& e) {
    e.dropRecStartCnt = 1;
    e.dropRecEndCnt = 2;
    e.dropMethStartCnt = 3;
    e.dropMethEndCnt = 4;
    e.dropSQLStartCnt = 5;
    e.dropSQLEndCnt = 6;
}

void fillMqi(MQIEvent& e) {
    e.mgrName = text("m");
    e.queueName = text("q");
    e.snapShotTime = 0x0102;
    e.arrLength = 2;
    e.ctype = new jbyte[2]{1, -1};
    e.count = new std::int32_t[2]{3, 4};
    e.avgTimeTaken = new std::int64_t[2]{5, 6};
}

struct Kind {
    std::string name;  // with the phase's behind it: that of a golden record
    Build build;
    std::vector<std::pair<std::string, EventSubType>> phases = {{"Start", START}, {"End", END}};
};

Kind single(const char* name, Build build, EventSubType phase = NOSTYPE) {
    return {name, std::move(build), {{"", phase}}};
}

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> all = {
        {"servlet", named<ServletEvent>(), {{"Start", START}, {"End", END}, {"Error", ERRORS}}},
        single("servletStartNamedLikeUrl", servlet("u", "u", "u"), START),
        single("servletStartOnlyOneNameDiffers", servlet("u", "a", "u"), START),
        single("servletEnd", named<ServletEvent>(), COMPLETE),  // any other phase
        {"ejb", named<EJBEvent>()},
        {"doVerbFor", named<DoVerbForEvent>()},
        {"pollFor", named<PollForEvent>()},
        {"portalPage", named<PortalPageEvent>()},
        {"portlet", named<PortalPortletEvent>()},
        {"webServiceClient", named<WSClientEvent>()},
        {"webServiceProvider", named<WSProviderEvent>()},
        {"webServiceFault", plain<WSFaultEvent>(fillFault)},
        single("trace", named<TraceEvent>()),
        {"gpsInvoke", plain<GPSEvent>(fillGps)},
        {"gpsReceive", plain<GPSEvent>(fillGps), {{"Start", CONNECT}, {"End", COMPLETE}}},
        {"iiopClient", iiop<IIOP_ClientEvent>()},
        {"iiopServer", iiop<IIOP_ServerEvent>()},
        single("iiopServerEnd", iiop<IIOP_ServerEvent>(), ERRORS),  // any other phase
        {"sql", plain<SQLEvent>(fillSql)},
        {"jndi", deep<JNDIEvent>([](auto& e) {
             e.providerURL = text("p");
             e.lookupName = text("l");
         })},
        {"mail", deep<MailEvent>([](auto& e) {
             e.serverURL = text("u");
             e.subject = text("s");
         })},
        {"jca", deep<JCAEvent>([](auto& e) { e.eisName = text("e"); })},
        {"jmsReceive", jms(JMS_RECEIVE)},
        {"jmsBrowse", jms(JMS_BROWSE)},
        {"jmsSend", jms(JMS_SEND)},
        {"jmsPublish", jms(JMS_PUBLISH)},
        {"jdo", deep<JDOEvent>([](auto& e) {
             e.className = text("C");
             e.methodName = text("m");
             e.argumentString = text("x");
         })},
        {"mq", deep<MQEvent>([](auto& e) {
             e.action = 0x1F0;  // only the low byte travels
             e.queueName = text("q");
             e.queueMgrName = text("m");
         })},
        {"gpsMqPut", gpsMq(1)},
        {"gpsMqGet", gpsMq(2)},
        single("gpsMqWithoutToken", deep<GPSMQEvent>([](auto& e) {
                   e.action = 1;
                   e.queueName = emptyText();
                   e.arrLength = 9;
               }),
               START),
        {"lockAcquire", lock<LockAcquisitionEvent>()},
        {"lockContend", deep<LockContentionEvent>(fillContention)},
        {"lockRelease", lock<LockReleaseEvent>()},
        {"heap", deep<HeapEvent>([](auto& e) {
             e.method_id = method(0xFFFFFFFE);
             e.instantiated_class_name = text("C");
             e.line_number = -1;
         })},
        {"portalAuthentication", step<PortalAuthenticationEvent>()},
        {"portalAuthorization", step<PortalAuthorizationEvent>()},
        {"portalModelBuilding", step<PortalModelBuildingEvent>()},
        {"portalPageLoading", step<PortalPageLoadingEvent>()},
        {"portalAction", step<PortalActionEvent>()},
        {"portalRendering", step<PortalPageRenderingEvent>()},
        {"gatewayServlet",
         deep<PortalGatewayServletEvent>([](auto& e) { e.pageName = text("p"); })},
        single("gatewayServletEndWithoutPage", deep<PortalGatewayServletEvent>(), END),
        single("portalAuthSummary", summary<PortalAuthAcEvent>(PORTAL_AUTH)),
        single("portalAccessSummary", summary<PortalAuthAcEvent>(PORTAL_AC)),
        single("gatewaySummary", summary<PortalAggregateDataEvent>(PORTAL_GATEWAY_SERVLET)),
        single("modelSummary", summary<PortalAggregateDataEvent>(PORTAL_MODEL_BUILDING)),
        single("loadingSummary", summary<PortalAggregateDataEvent>(PORTAL_PAGE_LOADING)),
        single("credentialVault", plain<PortalCredentialVaultEvent>(fillVault)),
        single("contentAccess", plain<PortalContentAccessEvent>(fillContentAccess)),
        single("portalMethodConstant", plain<PortalMethodConstantEvent>([](auto& e) {
                   static char name[] = "m";
                   e.methodId = -2;
                   e.methodName = name;
               })),
        single("methodEntry",
               plain<MethodEvent>([](auto& e) { e.method_id = method(0x7F0012345678); }), START),
        single("methodExit", plain<MethodEvent>(), END),
        {"gc", plain<GCEvent>([](auto& e) {
             e.used_objects = -1;
             e.used_object_space = 2;
             e.total_object_space = 3;
         })},
        single("dropped", plain<DroppedEvent>(fillDropped)),
        single("exception", plain<ExceptionEvent>([](auto& e) {
                   e.exception = text("e");
                   e.class_name = text("C");
                   e.method_name = text("m");
                   e.stacktrace = text("s");
               })),
        single("sampling", plain<SamplingEvent>([](auto& e) {
                   int rate = 0;
                   for (const int each : {1, 2, -1, 100}) e.probeLevels[rate++] = each;
                   e.useDefault = 1;
               })),
        single("samplingDefaultOnlyByOne", plain<SamplingEvent>([](auto& e) { e.useDefault = 2; })),
        single("psStatus", plain<PSStatusEvent>([](auto& e) { e.status_ = text("up"); })),
        single("ctg", plain<CTGEvent>([](auto& e) {
                   e.gatewayName = text("g");
                   e.serverName = text("s");
                   e.progName = text("p");
                   e.snapShotTime = 1;
                   e.count = 2;
                   e.avgTimeTaken = 3;
               })),
        single("mqi", plain<MQIEvent>(fillMqi)),
        single("mqiWithMissingArray", plain<MQIEvent>([](auto& e) {
                   e.mgrName = text("");
                   e.queueName = text("");
                   e.arrLength = 2;
                   e.ctype = new jbyte[2]{};
               })),
        {"class", plain<ClassEvent>(fillClass), {{"Load", LOAD}, {"Unload", UNLOAD}}},
    };
    return all;
}

std::string hexOf(const std::string& bytes) {
    return wire::hexOf(bytes.data(), bytes.size());
}

class EncodingTest : public VelFixture {
protected:
    // No text is traced while a record is written.
    EncodingTest() { traceFrom(QLG_LEVEL_INFO); }
    ~EncodingTest() override { ProbeMgr::setProbeLevel(2); }
};

TEST_F(EncodingTest, EveryKindMakesTheRoundTrip) {
    ProbeMgr::setProbeLevel(3);
    std::map<std::string, GoldenRecord> golden;
    for (const GoldenRecord& each : goldenRecords()) golden[each.name] = each;
    std::set<int> written;
    for (const Kind& kind : kinds())
        for (const auto& [suffix, phase] : kind.phases) {
            SCOPED_TRACE(kind.name + suffix);
            const auto made = kind.build(phase);
            const std::string bytes = readback::bytesOf(*made);
            ASSERT_NE(bytes, "");
            EXPECT_EQ(hexOf(bytes), wire::hex(golden[kind.name + suffix].hex));
            EXPECT_EQ(bytes.size(), made->encodedSize());
            EXPECT_EQ(readback::lineOf(bytes), golden[kind.name + suffix].line);
            written.insert(static_cast<unsigned char>(bytes[0]));
        }
    std::set<int> inRows;
#define IN_ROWS(name, number, shown, layout, phase, span) \
    if (dc2ps::kInPacket<dc2ps::layout>) inRows.insert(number);
    DC2PS_RECORD_ROWS(IN_ROWS)
#undef IN_ROWS
    EXPECT_EQ(written, inRows);
}

// What only large input shows: elements measured a little short overrun the packet's buffer.
TEST_F(EncodingTest, ManyElementsAreMeasuredToTheByte) {
    MQIEvent mqi(NOSTYPE);
    mqi.mgrName = text("m");
    mqi.queueName = text("q");
    mqi.arrLength = 100;
    mqi.ctype = new jbyte[100]{};
    mqi.count = new std::int32_t[100]{};
    mqi.avgTimeTaken = new std::int64_t[100]{};
    ClassEvent load(LOAD);
    ClassEvent unload(UNLOAD);
    for (ClassEvent* const event : {&load, &unload}) {
        event->classData = new jclass_t;
        event->classData->class_name = text("p/C");
        event->classData->allocateMethods(20000);
        for (int i = 0; i < 20000; ++i)
            event->classData->methods[i].initialize("method", "(Ljava/lang/String;)V", method(1),
                                                    event->classData);
    }
    EXPECT_EQ(mqi.encodedSize(), 1 + 3 + 3 + 8 + 4 + 100 * (1 + 4 + 8) + 2U);
    const std::vector<std::pair<Event*, std::string>> made = {
        {&mqi, "MQI_REQUEST "}, {&load, "CLASS_LOAD "}, {&unload, "CLASS_UNLOAD "}};
    for (const auto& [event, name] : made) {
        const std::string bytes = readback::bytesOf(*event);
        EXPECT_EQ(bytes.size(), event->encodedSize()) << name;
        EXPECT_EQ(readback::lineOf(bytes).substr(0, name.size()), name);
    }
    EXPECT_FALSE(load.fits(Event::kMaxTextRecord));  // no bound but its methods
    EXPECT_TRUE(load.fits(load.encodedSize()));
}

TEST_F(EncodingTest, AMissingRecordTypeIsToldOncePerKind) {
    for (int i = 0; i < 3; ++i) {
        readback::bytesOf(*jms(9)(START));
        readback::bytesOf(*plain<GPSEvent>(fillGps)(ERRORS));
    }
    ASSERT_EQ(qlog.messages(1141).size(), 2U);
    EXPECT_EQ(qlog.messages(1141)[0].text,
              "Events of kind 9 with phase 0 and action 9 have no record and are not sent");
}

TEST_F(EncodingTest, WhatHasNoRecordIsRefused) {
    const std::vector<std::pair<Build, EventSubType>> refused = {
        {named<EJBEvent>(), ERRORS},
        {named<DoVerbForEvent>(), NOSTYPE},
        {named<PollForEvent>(), CONNECT},
        {named<PortalPageEvent>(), COMPLETE},
        {named<PortalPortletEvent>(), COMPLETE},
        {plain<GPSEvent>(fillGps), ERRORS},
        {jms(0), START},
        {jms(5), END},
        {gpsMq(0), START},
        {plain<ClassEvent>(), LOAD},  // without its data
        {plain<ServerNameEvent>(), NOSTYPE}};
    for (const auto& [build, phase] : refused) {
        const auto made = build(phase);
        EXPECT_EQ(readback::bytesOf(*made), "") << made->getType();
        EXPECT_EQ(made->encodedSize(), 0U) << made->getType();
    }
}

TEST_F(EncodingTest, PacketHeaderIsSevenBytes) {
    char room[ProtocolVisitor::kPacketHeaderBytes];
    char* at = room;
    ProtocolVisitor::addPacketHeaderRecord(3, &at);
    EXPECT_EQ(wire::hexOf(room, sizeof room), "00000000037F7F");
    EXPECT_EQ(at, room + sizeof room);
}

TEST_F(EncodingTest, NullPositionWritesNothing) {
    GCEvent gc(START);
    EXPECT_FALSE(gc.addToBuffer(nullptr));
    IIOP_ClientEvent iiopCall(START);
    EXPECT_FALSE(iiopCall.addToBuffer(nullptr));
}

TEST_F(EncodingTest, NullTextAddsNoBytesAtAll) {
    auto call = event<SQLEvent>(START);
    EXPECT_EQ(readback::bytesOf(*call).size(), 25U);
}

TEST_F(EncodingTest, DepthTravelsInItsLowEightBits) {
    auto call = event<SQLEvent>(END);
    call->servletDepth = 0x1FF;
    EXPECT_EQ(hexOf(readback::bytesOf(*call)),
              wire::hex("0A 01020304 FF 00000005 00000006 0000000000000009 02 7F7F"));
}

TEST_F(EncodingTest, UnknownKindsAreRefusedAndTold) {
    for (const int kind : {2, 45, 46, 51, 300, -1}) {
        qlog.clearLines();
        Event unknown(static_cast<EventType>(kind), START, 0);
        char room[64];
        char* at = room;
        EXPECT_FALSE(unknown.addToBuffer(&at)) << kind;
        EXPECT_EQ(at, room);
        ASSERT_EQ(qlog.messages(1039).size(), 1U) << kind;
        EXPECT_EQ(qlog.messages(1039)[0].text,
                  "Unknown Event Type, TypeID: " + std::to_string(kind));
    }
}

// A text longer than its length field can say: cut where no character is split. The last characters
// end at byte 65535 exactly, or straddle it by one, two or three bytes.
TEST_F(EncodingTest, LongTextsAreCutBeforeACharacterThatWouldBeSplit) {
    struct Cut {
        std::size_t plainBytes;
        const char* character;
        std::size_t written;
    };
    for (const Cut& cut : {Cut{65535, "x", 65535}, Cut{65534, "\xC3\xA4", 65534},
                           Cut{65533, "\xC3\xA4", 65535}, Cut{65534, "\xE2\x82\xAC", 65534},
                           Cut{65533, "\xE2\x82\xAC", 65533}, Cut{65532, "\xE2\x82\xAC", 65535}}) {
        PSStatusEvent status(NOSTYPE);
        status.status_ = text(std::string(cut.plainBytes, 'a') + cut.character + "tail");
        const std::string record = readback::bytesOf(status);
        ASSERT_EQ(record.size(), 1 + 2 + cut.written + 2);
        EXPECT_EQ(
            (static_cast<unsigned char>(record[1]) << 8) + static_cast<unsigned char>(record[2]),
            static_cast<int>(cut.written));
        EXPECT_EQ(record.size(), status.encodedSize());
    }
}

TEST_F(EncodingTest, FitsLooksAtTheTextsOnlyWhenRoomIsScarce) {
    auto huge = request<ServletEvent>(START);
    freeText(huge->url);
    huge->url = text(std::string(200000, 'u'));
    EXPECT_FALSE(huge->fits(60000));
    EXPECT_TRUE(huge->fits(huge->encodedSize()));
    EXPECT_FALSE(huge->fits(huge->encodedSize() - 1));
    EXPECT_TRUE(huge->fits(Event::kMaxTextRecord));
    EXPECT_EQ(readback::bytesOf(*huge).size(), huge->encodedSize());
}

// A kind that sends its method name only once.
class MappedCall final : public CommonEvent {
public:
    explicit MappedCall(EventSubType phase) : CommonEvent(IIOP_SERVER, phase) {}
    bool isMethodMapEnabled() override { return true; }
    bool addCustomDataToBuffer(char** buff) override {
        *(*buff)++ = '\x77';
        return custom;
    }
    bool custom = true;
};

std::unique_ptr<MappedCall> mapped(bool custom) {
    auto call = make::event<MappedCall>(START);
    call->depth = 2;
    call->custom = custom;
    call->className = text("C");
    call->methodName = text("m");
    return call;
}

std::string mappedCall(bool custom = true) {
    return hexOf(readback::bytesOf(*mapped(custom)));
}

TEST_F(EncodingTest, MappedMethodNameTravelsOnceUntilTheMapIsReset) {
    CommonEvent::resetMethodIDMap();
    const std::string withName = wire::hex("98" FRAME "000143 0000002E 00016D 77" LEVEL_END);
    const std::string without = wire::hex("98" FRAME "000143 0000002E 0000 77" LEVEL_END);
    EXPECT_EQ(mappedCall(false), "");  // nothing was written, so the name has not been sent either
    EXPECT_EQ(mappedCall(), withName);
    EXPECT_EQ(mappedCall(), without);
    EXPECT_EQ(mapped(true)->encodedSize(),
              withName.size() / 2);  // the map may be reset before it is sent
    CommonEvent::resetMethodIDMap();
    EXPECT_EQ(mappedCall(), withName);
}

TEST_F(EncodingTest, DumpsCarryLengthOrOffsetAndUnsignedBytes) {
    traceFrom(kDebugMax);
    const char record[] = {0, 1, '\xFF'};
    ProtocolVisitor::printRecord(record, 3);
    EXPECT_TRUE(qlog.logged("003 [<0><1><255>]\n"));
    const std::string buffer(17, '\x02');
    ProtocolVisitor::dumpBuffer(buffer.data(), 17);
    EXPECT_TRUE(qlog.logged("000 [<2><2>"));
    EXPECT_TRUE(qlog.logged("016 [<2>]\n"));
}

// The golden packet is what a reader's tests decode; here it keeps the writer honest.
TEST_F(EncodingTest, GoldenPacket) {
    char room[1000];
    char* at = room;
    ProtocolVisitor::addPacketHeaderRecord(5, &at);
    const std::vector<std::pair<Build, EventSubType>> records = {
        {named<ServletEvent>(), START},
        {plain<SQLEvent>(fillSql), START},
        {plain<SQLEvent>(fillSql), END},
        {named<ServletEvent>(), END},
        {plain<ClassEvent>(fillClass), LOAD}};
    for (const auto& [build, phase] : records) ASSERT_TRUE(build(phase)->addToBuffer(&at));
    EXPECT_EQ(hexOf({room, at}), wire::goldenHex(VELORA_GOLDEN_DIR, "packet_request.hex"));
}

}  // namespace
