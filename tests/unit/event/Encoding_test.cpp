// Every record byte by byte. The expected bytes are typed from docs/WIRE.md, not taken from the
// encoder.
#include <gtest/gtest.h>

#include <functional>

#include "agent/ProbeMgr.h"
#include "event/ProtocolVisitor.h"
#include "event/WireWriter.h"
#include "support/VelFixture.h"
#include "unit/event/EventMaking.h"

using make::event;
using make::method;
using make::request;
using make::text;

// Thread, depth 2 and times: what stands between type and fields of a timed record.
#define FRAME " 01020304 02 00000005 00000006 0000000000000009 "
#define LEVEL_END " 02 7F7F"

namespace {

struct RecordCase {
    const char* name;
    std::function<std::unique_ptr<Event>()> build;
    const char* bytes;  // "": refused
};

template <typename EventClass>
std::unique_ptr<Event> atDepth2(std::unique_ptr<EventClass> made,
                                const std::function<void(EventClass&)>& fill) {
    made->depth = 2;
    fill(*made);
    return made;
}

template <typename EventClass>
std::function<std::unique_ptr<Event>()> deep(
    EventSubType phase, std::function<void(EventClass&)> fill = [](EventClass&) {}) {
    return [=]() -> std::unique_ptr<Event> {
        return atDepth2<EventClass>(event<EventClass>(phase), fill);
    };
}

template <typename EventClass>
std::function<std::unique_ptr<Event>()> named(EventSubType phase) {
    return [=] { return request<EventClass>(phase); };
}

template <typename EventClass>
std::function<std::unique_ptr<Event>()> plain(
    EventSubType phase, std::function<void(EventClass&)> fill = [](EventClass&) {}) {
    return [=]() -> std::unique_ptr<Event> {
        auto made = event<EventClass>(phase);
        fill(*made);
        return made;
    };
}

template <typename EventClass>
std::function<std::unique_ptr<Event>()> summary(EventType type) {
    return [=]() -> std::unique_ptr<Event> {
        auto made = event<EventClass>(type, NOSTYPE);
        made->count = 3;
        made->avgTimeTaken = 4;
        return made;
    };
}

std::function<std::unique_ptr<Event>()> servlet(const char* name, const char* application,
                                                const char* url) {
    return [=]() -> std::unique_ptr<Event> {
        auto made = event<ServletEvent>(START);
        made->servletDepth = 2;
        made->request_name = text(name);
        made->application_name = text(application);
        made->url = text(url);
        made->userName = emptyText();
        return made;
    };
}

std::function<std::unique_ptr<Event>()> sql(EventSubType phase) {
    return plain<SQLEvent>(phase, [](SQLEvent& e) {
        e.servletDepth = 2;
        e.data_source_name = text("ds");
        e.sql = text("q");
    });
}

std::function<std::unique_ptr<Event>()> jms(EventSubType phase, int action) {
    return deep<JMSEvent>(phase, [=](JMSEvent& e) {
        e.action = static_cast<JMS_ACTION>(action);
        e.serverName = text("s");
        e.queueOrTopicName = text("q");
        e.selector = text("x");
    });
}

std::function<std::unique_ptr<Event>()> gps(EventSubType phase) {
    return plain<GPSEvent>(phase, [](GPSEvent& e) {
        e.servletDepth = 2;
        e.token = 0xA0000102;
        e.request_name = new char[5]{'\xA0', 0, 1, 2, 0};
    });
}

std::function<std::unique_ptr<Event>()> mq(EventSubType phase) {
    return deep<MQEvent>(phase, [](MQEvent& e) {
        e.action = 0x107;  // only the low byte travels
        e.queueName = text("q");
        e.queueMgrName = text("m");
    });
}

std::function<std::unique_ptr<Event>()> gpsMq(EventSubType phase, int action) {
    return deep<GPSMQEvent>(phase, [=](GPSMQEvent& e) {
        e.action = action;
        e.queueName = text("q");
        e.gpsToken = new jbyte[4]{1, 0, 0, -1};
        e.arrLength = 4;
    });
}

template <typename EventClass>
std::function<std::unique_ptr<Event>()> lock(EventSubType phase) {
    return deep<EventClass>(phase, [](EventClass& e) {
        e.method_id = method(0x7F0012345678);  // the low half travels
        e.className = text("C");
    });
}

std::function<std::unique_ptr<Event>()> contention(EventSubType phase) {
    return deep<LockContentionEvent>(phase, [](LockContentionEvent& e) {
        e.method_id = method(0x11);
        e.className = text("C");
        e.owningRequestType = -2;
        e.owningRequestName = text("r");
        e.owningApplicationName = text("a");
        e.owning_method_id = method(0x22);
    });
}

std::function<std::unique_ptr<Event>()> heap(EventSubType phase) {
    return deep<HeapEvent>(phase, [](HeapEvent& e) {
        e.method_id = method(0x11);
        e.instantiated_class_name = text("C");
        e.line_number = -1;
    });
}

template <typename EventClass>
std::function<std::unique_ptr<Event>()> step(EventSubType phase) {
    return deep<EventClass>(phase, [](EventClass& e) { e.methodId = -3; });
}

template <typename EventClass>
std::function<std::unique_ptr<Event>()> iiop(EventSubType phase) {
    return deep<EventClass>(phase, [](EventClass& e) {
        e.className = text("C");
        e.methodName = text("m");
    });
}

std::function<std::unique_ptr<Event>()> wsFault(EventSubType phase) {
    static char code[] = "c";
    static char message[] = "f";
    static char application[] = "a";
    return plain<WSFaultEvent>(phase, [](WSFaultEvent& e) {
        e.servletDepth = 2;
        e.faultCode = code;
        e.faultString = message;
        e.appName = application;
    });
}

std::function<std::unique_ptr<Event>()> clazz(EventSubType phase) {
    return plain<ClassEvent>(phase, [](ClassEvent& e) {
        e.classData = new jclass_t;
        e.classData->class_id = reinterpret_cast<jobjectID>(0x7F00AABBCCDD);
        e.classData->sequenceID = 7;
        e.classData->class_name = text("p/C");
        e.classData->allocateMethods(2);
        e.classData->methods[0].initialize("m", "()V", method(0x21), e.classData);
        e.classData->methods[1].initialize("n", "(I)J", method(0x22), e.classData);
    });
}

std::function<std::unique_ptr<Event>()> mqi() {
    return plain<MQIEvent>(NOSTYPE, [](MQIEvent& e) {
        e.mgrName = text("m");
        e.queueName = text("q");
        e.snapShotTime = 0x0102;
        e.arrLength = 2;
        e.ctype = new jbyte[2]{1, -1};
        e.count = new std::int32_t[2]{3, 4};
        e.avgTimeTaken = new std::int64_t[2]{5, 6};
    });
}

const std::vector<RecordCase>& cases() {
    static const std::vector<RecordCase> all = {
        {"servletStart", named<ServletEvent>(START),
         "04" FRAME "01 000172 000161 000175 00016E" LEVEL_END},
        {"servletStartNamedLikeUrl", servlet("u", "u", "u"),
         "04" FRAME "00 0000 0000 000175 0000" LEVEL_END},
        {"servletStartOnlyOneNameDiffers", servlet("u", "a", "u"),
         "04" FRAME "01 000175 000161 000175 0000" LEVEL_END},
        {"servletEnd", named<ServletEvent>(END), "05" FRAME LEVEL_END},
        {"servletError", named<ServletEvent>(ERRORS), "32" FRAME LEVEL_END},
        {"servletOtherPhaseIsEnd", named<ServletEvent>(COMPLETE), "05" FRAME LEVEL_END},
        {"ejbStart", named<EJBEvent>(START), "06" FRAME "01 000172 000161 000175" LEVEL_END},
        {"ejbEnd", named<EJBEvent>(END), "07" FRAME LEVEL_END},
        {"ejbOtherPhase", named<EJBEvent>(ERRORS), ""},
        {"doVerbForStart", named<DoVerbForEvent>(START),
         "70" FRAME "01 000172 000161 000175" LEVEL_END},
        {"doVerbForEnd", named<DoVerbForEvent>(END), "71" FRAME LEVEL_END},
        {"doVerbForOtherPhase", named<DoVerbForEvent>(NOSTYPE), ""},
        {"pollForStart", named<PollForEvent>(START),
         "72" FRAME "01 000172 000161 000175" LEVEL_END},
        {"pollForEnd", named<PollForEvent>(END), "73" FRAME LEVEL_END},
        {"pollForOtherPhase", named<PollForEvent>(CONNECT), ""},
        {"portalPageStart", named<PortalPageEvent>(START),
         "41" FRAME "000172 000161 000175 00016E" LEVEL_END},
        {"portalPageEnd", named<PortalPageEvent>(END), "42" FRAME LEVEL_END},
        {"portalPageOtherPhase", named<PortalPageEvent>(COMPLETE), ""},
        {"portletStart", named<PortalPortletEvent>(START),
         "43" FRAME "000172 000161 000175 00016E" LEVEL_END},
        {"portletEnd", named<PortalPortletEvent>(END), "44" FRAME LEVEL_END},
        {"portletOtherPhase", named<PortalPortletEvent>(COMPLETE), ""},
        {"webServiceClientStart", named<WSClientEvent>(START),
         "C7" FRAME "000161 000172 000175" LEVEL_END},
        {"webServiceClientEnd", named<WSClientEvent>(END), "C8" FRAME LEVEL_END},
        {"webServiceProviderStart", named<WSProviderEvent>(START),
         "C9" FRAME "000161 000172 000175" LEVEL_END},
        {"webServiceProviderEnd", named<WSProviderEvent>(END), "CA" FRAME LEVEL_END},
        {"webServiceFaultStart", wsFault(START), "CB" FRAME "000161 000163 000166" LEVEL_END},
        {"webServiceFaultEnd", wsFault(END), "CC" FRAME LEVEL_END},
        {"trace", named<TraceEvent>(NOSTYPE), "08 00000005 00000006 000172" LEVEL_END},
        {"gpsInvokeStart", gps(START), "33" FRAME "0004 A0000102" LEVEL_END},
        {"gpsInvokeEnd", gps(END), "34" FRAME LEVEL_END},
        {"gpsReceiveStart", gps(CONNECT), "35" FRAME "0004 A0000102" LEVEL_END},
        {"gpsReceiveEnd", gps(COMPLETE), "36" FRAME LEVEL_END},
        {"gpsOtherPhase", gps(ERRORS), ""},
        {"iiopClientStart", iiop<IIOP_ClientEvent>(START),
         "96" FRAME "000143 00000000 00016D" LEVEL_END},
        {"iiopClientEnd", iiop<IIOP_ClientEvent>(END), "97" FRAME LEVEL_END},
        {"iiopServerStart", iiop<IIOP_ServerEvent>(START),
         "98" FRAME "000143 00000000 00016D" LEVEL_END},
        {"iiopServerEnd", iiop<IIOP_ServerEvent>(END), "99" FRAME LEVEL_END},
        {"sqlStart", sql(START), "09" FRAME "02 0002 6473 000171 7F7F"},
        {"sqlEnd", sql(END), "0A" FRAME LEVEL_END},
        {"jndiStart",
         deep<JNDIEvent>(START,
                         [](JNDIEvent& e) {
                             e.providerURL = text("p");
                             e.lookupName = text("l");
                         }),
         "21" FRAME "02 000170 00016C 7F7F"},
        {"jndiEnd", deep<JNDIEvent>(END), "22" FRAME LEVEL_END},
        {"mailStart",
         deep<MailEvent>(START,
                         [](MailEvent& e) {
                             e.serverURL = text("u");
                             e.subject = text("s");
                         }),
         "23" FRAME "02 000175 000173 7F7F"},
        {"mailEnd", deep<MailEvent>(END), "24" FRAME LEVEL_END},
        {"jcaStart", deep<JCAEvent>(START, [](JCAEvent& e) { e.eisName = text("e"); }),
         "25" FRAME "000165" LEVEL_END},
        {"jcaEnd", deep<JCAEvent>(END), "26" FRAME LEVEL_END},
        {"jmsReceiveStart", jms(START, JMS_RECEIVE), "19" FRAME "000173 000171 000178" LEVEL_END},
        {"jmsReceiveEnd", jms(END, JMS_RECEIVE), "1A" FRAME LEVEL_END},
        {"jmsBrowseStart", jms(START, JMS_BROWSE), "1B" FRAME "000173 000171 000178" LEVEL_END},
        {"jmsBrowseEnd", jms(END, JMS_BROWSE), "1C" FRAME LEVEL_END},
        {"jmsSendStart", jms(START, JMS_SEND), "1D" FRAME "000173 000171" LEVEL_END},
        {"jmsSendEnd", jms(END, JMS_SEND), "1E" FRAME LEVEL_END},
        {"jmsPublishStart", jms(START, JMS_PUBLISH), "1F" FRAME "000173 000171" LEVEL_END},
        {"jmsPublishEnd", jms(END, JMS_PUBLISH), "20" FRAME LEVEL_END},
        {"jmsNoAction", jms(START, 0), ""},
        {"jmsUnknownAction", jms(END, 5), ""},
        {"jdoStart",
         deep<JDOEvent>(START,
                        [](JDOEvent& e) {
                            e.className = text("C");
                            e.methodName = text("m");
                            e.argumentString = text("x");
                        }),
         "93" FRAME "000143 00016D 000178" LEVEL_END},
        {"jdoEnd", deep<JDOEvent>(END), "94" FRAME LEVEL_END},
        {"mqStart", mq(START), "6E" FRAME "000171 00016D 07" LEVEL_END},
        {"mqEnd", mq(END), "6F" FRAME "07" LEVEL_END},
        {"gpsMqPutStart", gpsMq(START, 1), "37" FRAME "000171 0004 010000FF 01" LEVEL_END},
        {"gpsMqPutEnd", gpsMq(END, 1), "38" FRAME "01" LEVEL_END},
        {"gpsMqGetStart", gpsMq(START, 2), "39" FRAME "000171 0004 010000FF 02" LEVEL_END},
        {"gpsMqGetEnd", gpsMq(END, 2), "3A" FRAME "02" LEVEL_END},
        {"gpsMqUnknownAction", gpsMq(START, 0), ""},
        {"gpsMqWithoutToken",
         deep<GPSMQEvent>(START,
                          [](GPSMQEvent& e) {
                              e.action = 1;
                              e.queueName = emptyText();
                              e.arrLength = 9;
                          }),
         "37" FRAME "0000 0000 01" LEVEL_END},
        {"lockAcquireStart", lock<LockAcquisitionEvent>(START),
         "76" FRAME "12345678 000143" LEVEL_END},
        {"lockAcquireEnd", lock<LockAcquisitionEvent>(END), "77" FRAME LEVEL_END},
        {"lockContendStart", contention(START),
         "78" FRAME "00000011 000143 FE 000172 000161 00000022" LEVEL_END},
        {"lockContendEnd", contention(END), "79" FRAME LEVEL_END},
        {"lockReleaseStart", lock<LockReleaseEvent>(START), "7A" FRAME "12345678 000143" LEVEL_END},
        {"lockReleaseEnd", lock<LockReleaseEvent>(END), "7B" FRAME LEVEL_END},
        {"heapStart", heap(START), "7C" FRAME "00000011 000143 FFFFFFFF" LEVEL_END},
        {"heapEnd", heap(END), "7D" FRAME LEVEL_END},
        {"portalAuthenticationStart", step<PortalAuthenticationEvent>(START),
         "82" FRAME "FD" LEVEL_END},
        {"portalAuthenticationEnd", step<PortalAuthenticationEvent>(END), "83" FRAME LEVEL_END},
        {"portalAuthorizationStart", step<PortalAuthorizationEvent>(START),
         "84" FRAME "FD" LEVEL_END},
        {"portalAuthorizationEnd", step<PortalAuthorizationEvent>(END), "85" FRAME LEVEL_END},
        {"portalModelBuildingStart", step<PortalModelBuildingEvent>(START),
         "86" FRAME "FD" LEVEL_END},
        {"portalModelBuildingEnd", step<PortalModelBuildingEvent>(END), "87" FRAME LEVEL_END},
        {"portalPageLoadingStart", step<PortalPageLoadingEvent>(START), "88" FRAME "FD" LEVEL_END},
        {"portalPageLoadingEnd", step<PortalPageLoadingEvent>(END), "89" FRAME LEVEL_END},
        {"portalActionStart", step<PortalActionEvent>(START), "8A" FRAME "FD" LEVEL_END},
        {"portalActionEnd", step<PortalActionEvent>(END), "8B" FRAME LEVEL_END},
        {"portalRenderingStart", step<PortalPageRenderingEvent>(START), "8E" FRAME "FD" LEVEL_END},
        {"portalRenderingEnd", step<PortalPageRenderingEvent>(END), "8F" FRAME LEVEL_END},
        {"gatewayServletStart",
         deep<PortalGatewayServletEvent>(
             START, [](PortalGatewayServletEvent& e) { e.pageName = text("p"); }),
         "8C" FRAME LEVEL_END},
        {"gatewayServletEnd",
         deep<PortalGatewayServletEvent>(
             END, [](PortalGatewayServletEvent& e) { e.pageName = text("p"); }),
         "8D" FRAME "000170" LEVEL_END},
        {"gatewayServletEndWithoutPage", deep<PortalGatewayServletEvent>(END),
         "8D" FRAME "000F 506167654E616D65556E6B6E6F776E" LEVEL_END},
        {"portalAuthSummary", summary<PortalAuthAcEvent>(PORTAL_AUTH),
         "3D 00000003 0000000000000004 7F7F"},
        {"portalAccessSummary", summary<PortalAuthAcEvent>(PORTAL_AC),
         "3E 00000003 0000000000000004 7F7F"},
        {"gatewaySummary", summary<PortalAggregateDataEvent>(PORTAL_GATEWAY_SERVLET),
         "2E 00000003 0000000000000004 7F7F"},
        {"modelSummary", summary<PortalAggregateDataEvent>(PORTAL_MODEL_BUILDING),
         "2F 00000003 0000000000000004 7F7F"},
        {"loadingSummary", summary<PortalAggregateDataEvent>(PORTAL_PAGE_LOADING),
         "30 00000003 0000000000000004 7F7F"},
        {"credentialVault",
         plain<PortalCredentialVaultEvent>(NOSTYPE,
                                           [](PortalCredentialVaultEvent& e) {
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
                                           }),
         "3F 00000001 0000000000000002 00000003 0000000000000004 00000005 0000000000000006"
         "00000007 0000000000000008 00000009 000000000000000A 7F7F"},
        {"contentAccess",
         plain<PortalContentAccessEvent>(NOSTYPE,
                                         [](PortalContentAccessEvent& e) {
                                             e.getInputStreamCount = 1;
                                             e.getInputStreamAvgTime = 2;
                                             e.getMarkupCount = 3;
                                             e.getMarkupAvgTime = 4;
                                             e.getURLCount = 5;
                                             e.getURLAvgTime = 6;
                                             e.includeCount = 7;
                                             e.includeAvgTime = 8;
                                         }),
         "40 00000001 0000000000000002 00000003 0000000000000004 00000005 0000000000000006"
         "00000007 0000000000000008 7F7F"},
        {"portalMethodConstant",
         plain<PortalMethodConstantEvent>(NOSTYPE,
                                          [](PortalMethodConstantEvent& e) {
                                              static char name[] = "m";
                                              e.methodId = 5;
                                              e.methodName = name;
                                          }),
         "92 05 00016D 7F7F"},
        {"methodEntry",
         plain<MethodEvent>(START, [](MethodEvent& e) { e.method_id = method(0x7F0012345678); }),
         "02 01020304 12345678 00000005 00000006 0000000000000009 7F7F"},
        {"methodExit", plain<MethodEvent>(END),
         "03 01020304 00000000 00000005 00000006 0000000000000009 7F7F"},
        {"gcStart", plain<GCEvent>(START), "0D 01020304 00000005 00000006 7F7F"},
        {"gcEnd",
         plain<GCEvent>(END,
                        [](GCEvent& e) {
                            e.used_objects = -1;
                            e.used_object_space = 2;
                            e.total_object_space = 3;
                        }),
         "0E 01020304 00000005 00000006 FFFFFFFFFFFFFFFF 0000000000000002 0000000000000003 7F7F"},
        {"dropped",
         plain<DroppedEvent>(NOSTYPE,
                             [](DroppedEvent& e) {
                                 e.dropRecStartCnt = 1;
                                 e.dropRecEndCnt = 2;
                                 e.dropMethStartCnt = 3;
                                 e.dropMethEndCnt = 4;
                                 e.dropSQLStartCnt = 5;
                                 e.dropSQLEndCnt = 6;
                             }),
         "0B 01020304 00000001 00000002 00000003 00000004 00000005 00000006 7F7F"},
        {"exception",
         plain<ExceptionEvent>(NOSTYPE,
                               [](ExceptionEvent& e) {
                                   e.exception = text("e");
                                   e.class_name = text("C");
                                   e.method_name = text("m");
                                   e.stacktrace = text("s");
                               }),
         "2D 000165 000143 00016D 000173 7F7F"},
        {"sampling",
         plain<SamplingEvent>(NOSTYPE,
                              [](SamplingEvent& e) {
                                  e.probeLevels[0] = 1;
                                  e.probeLevels[1] = 2;
                                  e.probeLevels[2] = -1;
                                  e.probeLevels[3] = 100;
                                  e.useDefault = 1;
                              }),
         "27 00000001 00000002 FFFFFFFF 00000064 01 7F7F"},
        {"samplingDefaultOnlyByOne",
         plain<SamplingEvent>(NOSTYPE, [](SamplingEvent& e) { e.useDefault = 2; }),
         "27 00000000 00000000 00000000 00000000 00 7F7F"},
        {"psStatus",
         plain<PSStatusEvent>(NOSTYPE, [](PSStatusEvent& e) { e.status_ = text("up"); }),
         "2C 0002 7570 7F7F"},
        {"ctg",
         plain<CTGEvent>(NOSTYPE,
                         [](CTGEvent& e) {
                             e.gatewayName = text("g");
                             e.serverName = text("s");
                             e.progName = text("p");
                             e.snapShotTime = 1;
                             e.count = 2;
                             e.avgTimeTaken = 3;
                         }),
         "28 000167 000173 000170 0000000000000001 00000002 0000000000000003 7F7F"},
        {"mqi", mqi(),
         "29 00016D 000171 0000000000000102 00000002 01 00000003 0000000000000005 FF 00000004 "
         "0000000000000006 7F7F"},
        {"mqiWithMissingArray",
         plain<MQIEvent>(NOSTYPE,
                         [](MQIEvent& e) {
                             e.mgrName = text("");
                             e.queueName = text("");
                             e.arrLength = 2;
                             e.ctype = new jbyte[2]{};
                         }),
         "29 0000 0000 0000000000000000 00000000 7F7F"},
        {"classLoad", clazz(LOAD),
         "01 00000007 0003 702F43 00000002"
         "00000021 00016D 0003 282956 00000022 00016E 0004 2849294A 7F7F"},
        {"classUnload", clazz(UNLOAD), "0C 00000007 AABBCCDD 00000002 00000021 00000022 7F7F"},
        {"classWithoutRecord", plain<ClassEvent>(LOAD), ""},
        {"serverNameHasNoRecord", plain<ServerNameEvent>(NOSTYPE), ""},
    };
    return all;
}

class EncodingTest : public VelFixture {
protected:
    // No text is traced while a record is written.
    EncodingTest() { traceFrom(QLG_LEVEL_INFO); }
};

class RecordTest : public EncodingTest, public ::testing::WithParamInterface<RecordCase> {};

TEST_P(RecordTest, HasTheseBytes) {
    const auto made = GetParam().build();
    const std::string record = make::encode(*made);
    EXPECT_EQ(record, wire::hex(GetParam().bytes));
    EXPECT_LE(record.size() / 2, made->encodedBound());
}

INSTANTIATE_TEST_SUITE_P(Kinds, RecordTest, testing::ValuesIn(cases()),
                         [](const auto& tested) { return std::string(tested.param.name); });

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
    EXPECT_EQ(make::encode(*call).size() / 2, 25U);
}

TEST_F(EncodingTest, DepthTravelsInItsLowEightBits) {
    auto call = event<SQLEvent>(END);
    call->servletDepth = 0x1FF;
    EXPECT_EQ(make::encode(*call),
              wire::hex("0A 01020304 FF 00000005 00000006 0000000000000009 02 7F7F"));
}

TEST_F(EncodingTest, LevelIsTheOneInForce) {
    ProbeMgr::setProbeLevel(3);
    EXPECT_EQ(make::encode(*event<SQLEvent>(END)).substr(44), "037F7F");
    ProbeMgr::setProbeLevel(2);
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

TEST_F(EncodingTest, AMissingRecordTypeIsToldOncePerKind) {
    for (int i = 0; i < 3; ++i) {
        make::encode(*jms(START, 9)());
        make::encode(*gps(ERRORS)());
    }
    ASSERT_EQ(qlog.messages(1141).size(), 2U);
    EXPECT_EQ(qlog.messages(1141)[0].text,
              "Events of kind 9 with phase 0 and action 9 have no record and are not sent");
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
        const std::string record = wire::bytesOf(make::encode(status));
        ASSERT_EQ(record.size(), 1 + 2 + cut.written + 2);
        EXPECT_EQ(
            (static_cast<unsigned char>(record[1]) << 8) + static_cast<unsigned char>(record[2]),
            static_cast<int>(cut.written));
        EXPECT_LE(record.size(), status.encodedBound());
    }
}

TEST_F(EncodingTest, FitsLooksAtTheTextsOnlyWhenRoomIsScarce) {
    auto huge = request<ServletEvent>(START);
    freeText(huge->url);
    huge->url = text(std::string(200000, 'u'));
    EXPECT_FALSE(huge->fits(60000));
    EXPECT_TRUE(huge->fits(huge->encodedBound()));
    EXPECT_FALSE(huge->fits(huge->encodedBound() - 1));
    EXPECT_TRUE(huge->fits(Event::kMaxTextRecord));
    EXPECT_LE(make::encode(*huge).size() / 2, huge->encodedBound());

    const auto load = event<ClassEvent>(LOAD);
    auto* const record = load->classData = new jclass_t;
    record->allocateMethods(20000);
    for (int i = 0; i < 20000; ++i)
        record->methods[i].initialize("method", "(Ljava/lang/String;)V", method(1), record);
    EXPECT_FALSE(load->fits(Event::kMaxTextRecord));  // a class is bounded by its methods alone
    EXPECT_TRUE(load->fits(load->encodedBound()));
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

std::string mappedCall(bool custom = true) {
    auto call = make::event<MappedCall>(START);
    call->depth = 2;
    call->custom = custom;
    call->className = text("C");
    call->methodName = text("m");
    return make::encode(*call);
}

TEST_F(EncodingTest, MappedMethodNameTravelsOnceUntilTheMapIsReset) {
    CommonEvent::resetMethodIDMap();
    const std::string withName = wire::hex("98" FRAME "000143 0000002E 00016D 77" LEVEL_END);
    const std::string without = wire::hex("98" FRAME "000143 0000002E 0000 77" LEVEL_END);
    EXPECT_EQ(mappedCall(false), "");  // nothing was written, so the name has not been sent either
    EXPECT_EQ(mappedCall(), withName);
    EXPECT_EQ(mappedCall(), without);
    CommonEvent::resetMethodIDMap();
    EXPECT_EQ(mappedCall(), withName);
}

TEST_F(EncodingTest, OnlyIiopKindsHaveARecordTypeOfTheirOwn) {
    EXPECT_EQ(ProtocolVisitor::getRecordType(IIOP_CLIENT, START), 150);
    EXPECT_EQ(ProtocolVisitor::getRecordType(IIOP_CLIENT, ERRORS), 151);
    EXPECT_EQ(ProtocolVisitor::getRecordType(IIOP_SERVER, START), 152);
    EXPECT_EQ(ProtocolVisitor::getRecordType(IIOP_SERVER, END), 153);
    EXPECT_EQ(ProtocolVisitor::getRecordType(SERVLET, START), -1);
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
    for (const auto& build :
         {named<ServletEvent>(START), sql(START), sql(END), named<ServletEvent>(END), clazz(LOAD)})
        ASSERT_TRUE(build()->addToBuffer(&at));
    EXPECT_EQ(wire::hexOf(room, static_cast<std::size_t>(at - room)),
              wire::goldenHex(VELORA_GOLDEN_DIR, "packet_request.hex"));
}

}  // namespace
