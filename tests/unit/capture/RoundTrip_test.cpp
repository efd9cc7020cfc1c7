// The round trip of what is captured: from the Java side's arguments through event, bytes and the
// server's decoder to the line that a reader prints. With texts, with registered ones, and with
// null for each: a null text in an event would cost its record a field.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <string>

#include "capture/Capture.h"
#include "capture/EventStamp.h"
#include "capture/PortalBuilders.h"
#include "capture/ResourceBuilders.h"
#include "foundation/ProbeState.h"
#include "support/CaptureFixture.h"
#include "support/ReadBack.h"

namespace {

class RoundTripTest : public CaptureFixture {
protected:
    RoundTripTest() {
        thread->servletDepth_ = 2;
        capture::clocks = {[](std::uint32_t* sec, std::uint32_t* usec) {
                               *sec = 5;
                               *usec = 6;
                           },
                           []() -> jlong { return 9; }};
    }
    ~RoundTripTest() override { capture::clocks = shipped_; }

    // "@ 2" is the common part at depth 2.
    std::string expand(const std::string& line) const {
        const std::string common = "thread=" + std::to_string(thread->getThreadIntId()) +
                                   " depth=$1 time=1970-01-01T00:00:05.000006Z cpu=9 level=" +
                                   std::to_string(ProbeState::level());
        return std::regex_replace(line, std::regex("@ (\\d)"), common);
    }
    static std::string withoutTexts(const std::string& line) {
        const std::string emptied = std::regex_replace(line, std::regex("\"[^\"]*\""), "\"\"");
        return std::regex_replace(emptied, std::regex("named=1"), "named=0");
    }
    // The lines of everything queued.
    std::vector<std::string> lines() {
        std::vector<std::string> read;
        for (const auto& event : take())
            read.push_back(readback::lineOf(readback::bytesOf(*event)));
        return read;
    }

private:
    const capture::Clocks shipped_ = capture::clocks;
};

struct KindCase {
    const char* name;
    EventType kind;
    int number;
    const char* begin;
    const char* end;
};

class Kinds : public RoundTripTest, public ::testing::WithParamInterface<KindCase> {};

TEST_P(Kinds, TakeTheirTextsAtBeginAndNoneAtEnd) {
    const KindCase& c = GetParam();
    const CallTexts texts = {jni.string(u"one"), jni.string(u"two"), jni.string(u"three"),
                             jni.string(u"four")};
    CallTexts registered = texts;
    registered[0] = CallText::number(RegisteredTexts::add("one"));
    registered[1] = CallText::number(RegisteredTexts::add("two"));
    const std::string begin = expand(c.begin);
    const std::string end = expand(c.end);
    for (const auto& [given, line] : {std::pair(texts, begin), std::pair(registered, begin),
                                      std::pair(CallTexts{}, withoutTexts(begin))}) {
        EXPECT_TRUE(capture::begin(env, c.kind, given, c.number));
        capture::end(env, c.kind, c.number, false);
        EXPECT_EQ(lines(), (std::vector<std::string>{line, end}));
        EXPECT_EQ(thread->servletDepth_, 2);
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, Kinds,
    ::testing::Values(
        KindCase{
            "servlet", SERVLET, 0,
            R"(SERVLET_REQUEST_START @ 3 named=1 name="one" application="two" url="three" user="four")",
            "SERVLET_REQUEST_END @ 3"},
        KindCase{"ejb", EJB, 0,
                 R"(EJB_REQUEST_START @ 3 named=1 name="one" application="two" url="three")",
                 "EJB_REQUEST_END @ 3"},
        KindCase{"portalPage", PORTAL_PAGE, 0,
                 R"(PORTAL_PAGE_START @ 3 name="one" application="two" url="three" user="four")",
                 "PORTAL_PAGE_END @ 3"},
        KindCase{"portlet", PORTAL_PORTLET, 0,
                 R"(PORTAL_PORTLET_START @ 3 name="one" application="two" url="three" user="four")",
                 "PORTAL_PORTLET_END @ 3"},
        KindCase{"doVerbFor", DOVERBFOR, 0,
                 R"(DOVERBFOR_REQUEST_START @ 3 named=1 name="one" application="two" url="three")",
                 "DOVERBFOR_REQUEST_END @ 3"},
        KindCase{
            "pollForEvents", POLLFOREVENTS, 0,
            R"(POLLFOREVENTS_REQUEST_START @ 3 named=1 name="one" application="two" url="three")",
            "POLLFOREVENTS_REQUEST_END @ 3"},
        KindCase{"wsClient", WS_CLIENT, 0,
                 R"(WS_CLIENT_START @ 3 application="two" name="one" url="three")",
                 "WS_CLIENT_END @ 3"},
        KindCase{"wsProvider", WS_PROVIDER, 0,
                 R"(WS_PROVIDER_START @ 3 application="two" name="one" url="three")",
                 "WS_PROVIDER_END @ 3"},
        KindCase{"iiopClient", IIOP_CLIENT, 0,
                 R"(IIOP_CLIENT_START @ 3 class="one" methodMapKey=0 method="two")",
                 "IIOP_CLIENT_END @ 3"},
        KindCase{"iiopServer", IIOP_SERVER, 0,
                 R"(IIOP_SERVER_START @ 3 class="one" methodMapKey=0 method="two")",
                 "IIOP_SERVER_END @ 3"},
        KindCase{"sql", SQL, 0, R"(SQL_START @ 2 dataSource="one" sql="two")", "SQL_END @ 2"},
        KindCase{"jmsReceive", JMS, JMS_RECEIVE,
                 R"(JMS_RECEIVE_START @ 2 server="one" destination="two" selector="three")",
                 "JMS_RECEIVE_END @ 2"},
        KindCase{"jmsSend", JMS, JMS_SEND, R"(JMS_SEND_START @ 2 server="one" destination="two")",
                 "JMS_SEND_END @ 2"},
        KindCase{"mq", MQ, 4, R"(MQ_START @ 2 queue="one" queueManager="two" action=4)",
                 "MQ_END @ 2 action=4"},
        KindCase{"jca", JCA, 0, R"(JCA_START @ 2 eisName="one")", "JCA_END @ 2"},
        KindCase{"jndi", JNDI, 0, R"(JNDI_START @ 2 providerUrl="one" lookupName="two")",
                 "JNDI_END @ 2"},
        KindCase{"jdo", JDO, 0, R"(JDO_START @ 2 class="one" method="two" arguments="three")",
                 "JDO_END @ 2"},
        KindCase{"mail", MAIL, 0, R"(JAVA_MAIL_START @ 2 serverUrl="one" subject="two")",
                 "JAVA_MAIL_END @ 2"}),
    [](const auto& info) { return std::string(info.param.name); });

// Java's list of kinds has the numbers of ours, and names all that capture takes and no others.
TEST_F(RoundTripTest, JavasKindsAreTheOnesThatAreTaken) {
    std::map<std::string, int> ours;
#define KIND(kind, Class) ours[#kind] = kind;
    VELORA_EVENT_CLASSES(KIND)
    VELORA_SISTER_KINDS(KIND)
    KIND(IIOP_CLIENT, CommonEvent)
    KIND(IIOP_SERVER, CommonEvent)
#undef KIND
    std::map<std::string, int> inJava, taken;
    std::ifstream source(VELORA_GOLDEN_DIR "/../../java/src/main/com/velora/probe/Capture.java");
    const std::regex constant(R"(\s*public static final int (\w+) = (\d+);.*)");
    std::smatch found;
    for (std::string line; std::getline(source, line);)
        if (std::regex_match(line, found, constant)) {
            const bool request = ours.count(found[1].str() + "_REQUEST") != 0;
            inJava[found[1].str() + (request ? "_REQUEST" : "")] = std::stoi(found[2]);
        }
    for (const auto& [name, kind] : ours)
        if (capture::begin(env, kind, {jni.string(u"one")}, 1)) taken[name] = kind;
    EXPECT_EQ(inJava, taken);
    take();
}

// What stands for itself, or is no plain timed call.
struct OtherCase {
    const char* name;
    std::function<void(JNIEnv*, const std::function<jstring(const char16_t*)>&)> append;
    const char* line;
};

class Others : public RoundTripTest, public ::testing::WithParamInterface<OtherCase> {};

TEST_P(Others, WithTextsAndWithNulls) {
    const std::string line = expand(GetParam().line);
    GetParam().append(env, [&](const char16_t* text) { return jni.string(text); });
    EXPECT_EQ(lines(), std::vector<std::string>{line});
    GetParam().append(env, [](const char16_t*) -> jstring { return nullptr; });
    EXPECT_EQ(lines(), std::vector<std::string>{withoutTexts(line)});
}

INSTANTIATE_TEST_SUITE_P(
    Builders, Others,
    ::testing::Values(
        OtherCase{
            "ctg",
            [](auto* e, auto& s) { resource::appendCTG(e, s(u"g"), s(u"s"), s(u"p"), 1, 2, 3); },
            R"(CTG_REQUEST gateway="g" ctgServer="s" program="p" snapshotTime=1 count=2 averageTime=3)"},
        OtherCase{"exception",
                  [](auto* e, auto& s) {
                      resource::appendException(e, s(u"e"), s(u"C"), s(u"m"), s(u"t"));
                  },
                  R"(EXCEPTION exception="e" class="C" method="m" stackTrace="t")"},
        OtherCase{"status", [](auto* e, auto& s) { resource::appendPSStatus(e, s(u"up")); },
                  R"(PSSTATUS status="up")"},
        OtherCase{"wsFault",
                  [](auto* e, auto& s) {  // its texts go with it: a leak would show here
                      webservice::appendFault(e, START, s(u"app"), s(u"code"), s(u"text"));
                  },
                  R"(WS_FAULT_START @ 2 application="app" faultCode="code" faultText="text")"},
        OtherCase{"accessChecks",
                  [](auto* e, auto&) { portal::appendAccessChecks(e, PORTAL_AC, 5, 6); },
                  "PORTAL_AC count=5 averageTime=6"},
        OtherCase{"aggregate",
                  [](auto* e, auto&) { portal::appendAggregate(e, PORTAL_PAGE_LOADING, 7, 8); },
                  "PORTAL_PAGE_LOADING count=7 averageTime=8"},
        OtherCase{"credentialVault",
                  [](auto* e, auto&) {
                      portal::appendCredentialVault(e, {{1, 2}, {3, 4}, {5, 6}, {7, 8}, {9, 10}});
                  },
                  "PORTAL_CREDENTIALVAULT getCredential=1x2 setCredentialBinary=3x4 "
                  "setCredentialUserPassword=5x6 createSlot=7x8 deleteSlot=9x10"},
        OtherCase{"contentAccess",
                  [](auto* e, auto&) {
                      portal::appendContentAccess(e, {{1, 2}, {3, 4}, {5, 6}, {7, 8}});
                  },
                  "PORTAL_CONTENTACCESS getInputStream=1x2 getMarkup=3x4 getURL=5x6 include=7x8"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(RoundTripTest, GpsMqCopiesTheToken) {
    EXPECT_TRUE(resource::appendGPSMQ(env, START, GPSMQ_PUT, jni.string(u"q"),
                                      jni.byteArray({0, 1, 0, 255})));
    EXPECT_TRUE(resource::appendGPSMQ(env, START, GPSMQ_GET, nullptr, nullptr));
    EXPECT_EQ(lines(), (std::vector<std::string>{
                           expand(R"(GPS_PUT_START @ 2 queue="q" token=000100ff action=1)"),
                           expand(R"(GPS_GET_START @ 2 queue="" token= action=2)")}));
}

TEST_F(RoundTripTest, MqiTakesTheShortestOfItsArrays) {
    const std::vector<jlong> times = {100, 200, 300, 400};
    const jlongArray averages = env->NewLongArray(4);
    env->SetLongArrayRegion(averages, 0, 4, times.data());
    EXPECT_TRUE(resource::appendMQI(env, jni.string(u"m"), jni.string(u"q"), 99,
                                    jni.byteArray({1, 2, 3}), jni.intArray({10, 20}), averages));
    EXPECT_TRUE(resource::appendMQI(env, nullptr, nullptr, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(
        lines(),
        (std::vector<std::string>{
            R"(MQI_REQUEST queueManager="m" queue="q" snapshotTime=99 elementCount=2 )"
            "elements=[1:10x100 2:20x200]",
            R"(MQI_REQUEST queueManager="" queue="" snapshotTime=0 elementCount=0 elements=[])"}));
    jni.returnToJava(env);
}

TEST_F(RoundTripTest, WithoutARecordNothingIsMade) {
    EXPECT_FALSE(resource::appendPSStatus(jni.newEnv(), nullptr));
    EXPECT_TRUE(take().empty());
}

}  // namespace
