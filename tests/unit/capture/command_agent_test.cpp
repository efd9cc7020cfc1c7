#include "capture/command_agent.h"

#include <cstring>
#include <functional>
#include <map>
#include <string>

#include "foundation/Globals.h"
#include "support/CaptureFixture.h"

namespace {

class RequestTest : public CaptureFixture {
protected:
    jint start(const char16_t* name = u"servlet", const char16_t* user = u"user") {
        return Java_com_velora_probe_ThreadManager_startNativeHttpRequest(
            env, nullptr, nullptr, jni.string(name), jni.string(u"app"), jni.string(u"/url"),
            jni.string(user));
    }
    jint finish(const char16_t* name = u"servlet") {
        return Java_com_velora_probe_ThreadManager_finishNativeHttpRequest(
            env, nullptr, jni.string(name), jni.string(u"app"), jni.string(u"/url"));
    }
    jint error(const char16_t* name = u"servlet") {
        return Java_com_velora_probe_ThreadManager_errorNativeHttpRequest(
            env, nullptr, jni.string(name), jni.string(u"app"), jni.string(u"it broke"));
    }
    jint beginEjb() {
        return Java_com_velora_probe_ThreadManager_beginNativeEJBRequest(
            env, nullptr, jni.string(u"Bean"), jni.string(u"call"), jni.string(u"descr"));
    }
    jint endEjb() {
        return Java_com_velora_probe_ThreadManager_endNativeEJBRequest(env, nullptr, nullptr,
                                                                       nullptr, nullptr);
    }
    jint startIiop(const char16_t* className = u"Cls", const char16_t* method = u"meth") {
        return Java_com_velora_probe_ThreadManager_startIIOPServerRequest(
            env, nullptr, jni.string(className), jni.string(method));
    }
    jint finishIiop() {
        return Java_com_velora_probe_ThreadManager_finishIIOPServerRequest(env, nullptr);
    }
    void invoke() {
        Java_com_velora_command_CommandAgent_startNativeGpsInvokeRequest(env, nullptr);
    }
    void endInvoke() {
        Java_com_velora_command_CommandAgent_endNativeGpsInvokeRequest(env, nullptr);
    }
    void receive(jint token) {
        Java_com_velora_command_CommandAgent_startNativeGpsReceiveRequest(env, nullptr, token);
    }
    void completeReceive() {
        Java_com_velora_command_CommandAgent_completeNativeGpsReceiveRequest(env, nullptr, 0);
    }
    std::vector<std::uint8_t> tokenHandedOut() {
        const jbyteArray token =
            Java_com_velora_command_CommandAgent_getNativeGpsToken(env, nullptr);
        auto bytes = jni.bytes(token);
        jni.returnToJava(env);
        return bytes;
    }
    jint myId() const { return static_cast<jint>(thread->getThreadIntId()); }

    static int depthOf(const Event& event) {
        if (const auto* request = dynamic_cast<const RequestEvent*>(&event); request != nullptr)
            return request->servletDepth;
        if (const auto* common = dynamic_cast<const CommonEvent*>(&event); common != nullptr)
            return common->depth;
        return -99;
    }
    // "4s1" is a servlet's start at depth 1; the phases are s e x c d.
    std::string story() {
        std::string told;
        for (const auto& event : take()) {
            if (!told.empty()) told += ' ';
            const char phases[] = "sex__cd_";
            told += std::to_string(event->getType()) + phases[event->getSubType()] +
                    std::to_string(depthOf(*event));
        }
        return told;
    }
    void play(const std::string& steps) {
        const std::map<char, std::function<void()>> does = {
            {'h', [this] { start(); }},
            {'H', [this] { finish(); }},
            {'x', [this] { error(); }},
            {'c', [this] { finish(u"JSP_CANCEL_REQUEST"); }},
            {'C', [this] { error(u"JSP_CANCEL_REQUEST"); }},
            {'j', [this] { beginEjb(); }},
            {'J', [this] { endEjb(); }},
            {'s', [this] { startIiop(); }},
            {'S', [this] { finishIiop(); }},
            {'i', [this] { invoke(); }},
            {'I', [this] { endInvoke(); }},
            {'r', [this] { receive(7); }},
            {'R', [this] { completeReceive(); }}};
        for (const char step : steps) does.at(step)();
    }
};

struct NestingCase {
    const char* name;
    const char* steps;
    const char* story;
    int depthAfter;
    bool swallowing = false;  // level 1 with nested requests disabled
};

class Nesting : public RequestTest, public ::testing::WithParamInterface<NestingCase> {};

TEST_P(Nesting, DepthsAndEvents) {
    const NestingCase& c = GetParam();
    probe_level = c.swallowing ? 1 : 2;
    disableNestedRequests = true;  // without effect above level 1
    play(c.steps);
    EXPECT_EQ(story(), c.story);
    EXPECT_EQ(thread->servletDepth_, c.depthAfter);
    EXPECT_EQ(thread->nestedRequestDepth_, 0);
    probe_level = 2;
    disableNestedRequests = false;
}

INSTANTIATE_TEST_SUITE_P(
    Steps, Nesting,
    ::testing::Values(NestingCase{"one", "hH", "4s1 4e1", 0},
                      NestingCase{"nested", "hhHH", "4s1 4s2 4e2 4e1", 0},
                      NestingCase{"error", "hx", "4s1 4x1", 0},
                      NestingCase{"finishWithoutStart", "H", "4e1", 0},
                      NestingCase{"errorWithoutStart", "x", "4x1", 0},
                      NestingCase{"cancelEndsTheNest", "hhhc", "4s1 4s2 4s3 4e1", 0},
                      NestingCase{"cancelByError", "hhC", "4s1 4s2 4x1", 0},
                      NestingCase{"cancelAtDepthNone", "c", "4e1", 0},
                      NestingCase{"ejbInsideHttp", "hjJH", "4s1 5s2 5e2 4e1", 0},
                      NestingCase{"ejbEndWithoutBegin", "J", "5e1", 0},
                      NestingCase{"iiopInsideHttp", "hsSH", "4s1 46s2 46e2 4e1", 0},
                      NestingCase{"iiopFinishAfterACancel", "hscSh", "4s1 46s2 4e1 46e0 4s1", 1},
                      NestingCase{"gpsInvoke", "hiIH", "4s1 14s2 14e2 4e1", 0},
                      NestingCase{"gpsReceive", "rhHR", "14c1 4s2 4e2 14d1", 0},
                      NestingCase{"gpsEndWithoutStart", "Ih", "14e0 4s1", 1},
                      NestingCase{"swallowed", "hhHH", "4s1 4e1", 0, true},
                      NestingCase{"swallowedTwoDeep", "hhhHHH", "4s1 4e1", 0, true},
                      NestingCase{"ejbSwallowedInsideHttp", "hjJH", "4s1 4e1", 0, true},
                      NestingCase{"httpSwallowedInsideEjb", "jhHJ", "5s1 5e1", 0, true},
                      NestingCase{"siblingsAreNotSwallowed", "hHhH", "4s1 4e1 4s1 4e1", 0, true},
                      NestingCase{"iiopIsNeverSwallowed", "hsSH", "4s1 46s2 46e2 4e1", 0, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(RequestTest, ErrorIsNotSwallowedEvenInsideASwallowedRequest) {
    probe_level = 1;
    disableNestedRequests = true;
    play("hhx");
    EXPECT_EQ(story(), "4s1 4x1");
    EXPECT_EQ(thread->servletDepth_, 0);
    EXPECT_EQ(thread->nestedRequestDepth_, 1);  // as demanded: the swallowed start is never ended
}

TEST_F(RequestTest, StartCarriesEverything) {
    EXPECT_EQ(start(u"name", u"me"), myId());
    const auto event = takeOne<ServletEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->getSubType(), START);
    EXPECT_STREQ(event->request_name, "name");
    EXPECT_STREQ(event->application_name, "app");
    EXPECT_STREQ(event->url, "/url");
    EXPECT_STREQ(event->userName, "me");
    EXPECT_EQ(event->threadId_, thread->getThreadIntId());
    EXPECT_EQ(event->size_, 188);  // an average request and its strings
    EXPECT_GT(event->timeSec_, 1700000000U);
    EXPECT_LT(event->timeUSec_, 1000000U);
    EXPECT_GT(event->cpuTime_, 0);
}

TEST_F(RequestTest, EndPointsToTheSharedEmptyText) {
    start();
    take();
    EXPECT_EQ(finish(), myId());
    const auto event = takeOne<ServletEvent>();
    ASSERT_NE(event, nullptr);
    for (const char* text :
         {event->request_name, event->application_name, event->url, event->userName})
        EXPECT_EQ(text, emptyText());
}

TEST_F(RequestTest, ErrorCarriesItsTextAsUrl) {
    start();
    take();
    error();
    const auto event = takeOne<ServletEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_STREQ(event->request_name, "servlet");
    EXPECT_STREQ(event->url, "it broke");
    EXPECT_STREQ(event->userName, "");
}

TEST_F(RequestTest, NullStringsBecomeEmptyTexts) {
    Java_com_velora_probe_ThreadManager_startNativeHttpRequest(env, nullptr, nullptr, nullptr,
                                                               nullptr, nullptr, nullptr);
    const auto event = takeOne<ServletEvent>();
    ASSERT_NE(event, nullptr);
    for (const char* text :
         {event->request_name, event->application_name, event->url, event->userName})
        EXPECT_EQ(text, emptyText());
    for (const char* note : {"request name is null", "application name is null", "url is null"})
        EXPECT_TRUE(qlog.logged(note)) << note;
}

TEST_F(RequestTest, NamesAreCutAtTheUrlLimit) {
    set("internal.url.limit", "10");
    Java_com_velora_probe_ThreadManager_startNativeHttpRequest(
        env, nullptr, nullptr, jni.string(u"abcdefghijkl"), jni.string(u"abcdefghi"),
        jni.string(u"abcdefg\u20acx"), jni.string(u"abcdefgh\u00e9"));
    const auto event = takeOne<ServletEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_STREQ(event->request_name, "abcdefghi");
    EXPECT_STREQ(event->application_name, "abcdefghi");
    EXPECT_STREQ(event->url, "abcdefg");
    EXPECT_STREQ(event->userName, "abcdefgh");
}

TEST_F(RequestTest, UrlLengthsAreLearnedUntilTheAverageIsFinal) {
    for (int i = 0; i < 253; ++i) start();
    EXPECT_FALSE(MemoryMonitor::avgURLCalculated());
    finish();  // has no URL
    EXPECT_FALSE(MemoryMonitor::avgURLCalculated());
    start();
    EXPECT_TRUE(MemoryMonitor::avgURLCalculated());
    take();
    start();
    EXPECT_EQ(takeOne<ServletEvent>()->size_, 5 + 88);  // "/url" and its zero
}

TEST_F(RequestTest, LongTextsAreHeldThoughTheAverageIsCharged) {
    for (int i = 0; i < 254; ++i) start();
    take();
    const auto before = thread->getHeldBeyond();
    const jstring text = jni.string(std::u16string(900, u'x'));
    Java_com_velora_probe_ThreadManager_startNativeHttpRequest(env, nullptr, nullptr, text, text,
                                                               text, text);
    EXPECT_GT(thread->getHeldBeyond() - before, 3500U);
    EXPECT_LT(takeOne<ServletEvent>()->size_, 100);
}

TEST_F(RequestTest, CpuTimesNeverRunBackwardsOnAThread) {
    thread->saveAndTestCPUTime(jlong{1} << 60);
    start();
    EXPECT_EQ(takeOne<ServletEvent>()->cpuTime_, jlong{1} << 60);
}

TEST_F(RequestTest, IiopCarriesItsNamesAtTheStartOnly) {
    EXPECT_EQ(startIiop(u"C", u"m"), myId());
    auto event = takeOne<IIOP_ServerEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_STREQ(event->className, "C");
    EXPECT_STREQ(event->methodName, "m");
    EXPECT_EQ(event->size_, 328 + 2);
    EXPECT_EQ(finishIiop(), myId());
    event = takeOne<IIOP_ServerEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->className, emptyText());
    EXPECT_EQ(event->methodName, emptyText());
}

TEST_F(RequestTest, IiopClientIsAKindOfItsOwn) {
    Java_com_velora_probe_ThreadManager_startIIOPClientRequest(env, nullptr, nullptr, nullptr);
    Java_com_velora_probe_ThreadManager_finishIIOPClientRequest(env, nullptr);
    EXPECT_EQ(story(), "45s1 45e1");
}

TEST_F(RequestTest, EjbCarriesClassMethodAndDescriptor) {
    EXPECT_EQ(beginEjb(), myId());
    const auto event = takeOne<EJBEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_STREQ(event->request_name, "Bean");
    EXPECT_STREQ(event->application_name, "call");
    EXPECT_STREQ(event->url, "descr");
    EXPECT_EQ(event->userName, emptyText());
    EXPECT_EQ(endEjb(), myId());
}

TEST_F(RequestTest, TraceRequestHasFixedNamesAndNoDepth) {
    Java_com_velora_probe_ThreadManager_issueTraceRequest(env, nullptr);
    const auto event = takeOne<TraceEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->getSubType(), NOSTYPE);
    EXPECT_STREQ(event->request_name, "system_trace");
    EXPECT_STREQ(event->application_name, "trace_app");
    EXPECT_STREQ(event->url, "");
    EXPECT_EQ(event->userName, emptyText());
    EXPECT_EQ(thread->servletDepth_, 0);
}

TEST_F(RequestTest, TraceRequestWithoutJavaMemoryHasEmptyNames) {
    jni.fail("NewStringUTF", 1);
    Java_com_velora_probe_ThreadManager_issueTraceRequest(env, nullptr);
    EXPECT_STREQ(takeOne<TraceEvent>()->request_name, "");
}

// --- tokens
// ---------------------------------------------------------------------------------------

TEST_F(RequestTest, InvokeTakesANewTokenWhoseBytesMayBeZero) {
    invoke();  // token 0
    auto event = takeOne<GPSEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->token, 0U);
    EXPECT_EQ(std::string(event->request_name, 5), std::string(5, '\0'));
    EXPECT_TRUE(qlog.logged("GPS token is 0"));
    EXPECT_TRUE(qlog.logged("Finished copying memcpy tokens"));
    invoke();
    event = takeOne<GPSEvent>();
    EXPECT_EQ(std::string(event->request_name, 5), std::string("\0\0\0\1\0", 5));
    EXPECT_EQ(tokenHandedOut(), (std::vector<std::uint8_t>{0, 0, 0, 1}));
    EXPECT_EQ(tokenHandedOut(), (std::vector<std::uint8_t>{0, 0, 0, 0}));  // handed out once
    EXPECT_TRUE(qlog.logged("null tmp in get passport visa"));
}

TEST_F(RequestTest, ReceiveKeepsTheTokenAndWritesItBigEndian) {
    receive(0x01020304);
    const auto event = takeOne<GPSEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->token, 0x01020304U);
    EXPECT_EQ(std::string(event->request_name, 5), std::string("\1\2\3\4\0", 5));
    EXPECT_EQ(event->url, nullptr);
    completeReceive();
    EXPECT_EQ(takeOne<GPSEvent>()->request_name, nullptr);
    EXPECT_EQ(tokenHandedOut(), (std::vector<std::uint8_t>{1, 2, 3, 4}));
}

TEST_F(RequestTest, TokenDiesWithTheOutermostRequest) {
    start();
    invoke();
    endInvoke();
    EXPECT_NE(thread->gpsToken_, nullptr);
    finish();
    EXPECT_EQ(thread->gpsToken_, nullptr);
    EXPECT_EQ(tokenHandedOut(), (std::vector<std::uint8_t>{0, 0, 0, 0}));
}

TEST_F(RequestTest, TokenOfAnEndedThreadIsNotHandedOut) {
    receive(9);
    thread->alive_ = false;
    EXPECT_EQ(tokenHandedOut(), (std::vector<std::uint8_t>{0, 0, 0, 0}));
    thread->alive_ = true;
}

TEST_F(RequestTest, TokenWithoutJavaMemoryIsNullAndStays) {
    receive(9);
    jni.fail("New<T>Array", 1);
    EXPECT_EQ(Java_com_velora_command_CommandAgent_getNativeGpsToken(env, nullptr), nullptr);
    EXPECT_EQ(tokenHandedOut(), (std::vector<std::uint8_t>{0, 0, 0, 9}));
}

// --- the gate
// -------------------------------------------------------------------------------------

TEST_F(RequestTest, ClosedGateMakesOneMarkerAndNoEvents) {
    closeGate();
    EXPECT_EQ(start(), myId());
    EXPECT_EQ(finish(), myId());
    EXPECT_EQ(error(), myId());
    EXPECT_EQ(startIiop(), myId());
    EXPECT_EQ(finishIiop(), myId());
    EXPECT_EQ(beginEjb(), myId());
    EXPECT_EQ(endEjb(), myId());
    play("iIrR");
    Java_com_velora_probe_ThreadManager_issueTraceRequest(env, nullptr);
    EXPECT_NE(takeOne<DroppedEvent>(), nullptr);
    EXPECT_EQ(thread->servletDepth_, 0);
    openGate();
    play("hH");
    EXPECT_EQ(story(), "4s1 4e1");
}

TEST_F(RequestTest, DisabledProbeMakesNothingAtAll) {
    disableProbe();
    start();
    startIiop();
    invoke();
    Java_com_velora_probe_ThreadManager_issueTraceRequest(env, nullptr);
    ThreadMgr* const threads = ThreadMgr::getInstance();
    EXPECT_EQ(threads->getThreadCount(), 0);
}

// --- threads without a record
// ---------------------------------------------------------------------

TEST_F(RequestTest, WithoutARecordNativesAnswerZeroAndMakeNothing) {
    JNIEnv* const stranger = jni.newEnv();  // no event agent is there to take the thread
    const jstring name = jni.string(u"n");
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_startNativeHttpRequest(stranger, nullptr, nullptr,
                                                                         name, name, name, name),
              0);
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_finishNativeHttpRequest(stranger, nullptr, name,
                                                                          name, name),
              0);
    EXPECT_TRUE(qlog.logged("thread local storage is NULL"));
    EXPECT_EQ(
        Java_com_velora_probe_ThreadManager_startIIOPServerRequest(stranger, nullptr, name, name),
        0);
    EXPECT_EQ(qlog.messages(1045).size(), 1U);  // the IIOP call asked for a record of its own
    Java_com_velora_command_CommandAgent_startNativeGpsInvokeRequest(stranger, nullptr);
    Java_com_velora_command_CommandAgent_startNativeGpsReceiveRequest(stranger, nullptr, 1);
    Java_com_velora_probe_ThreadManager_issueTraceRequest(stranger, nullptr);
    EXPECT_TRUE(qlog.logged("thread local storage is NULL"));
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_getEnv(stranger, nullptr), 0);
    EXPECT_TRUE(take().empty());
}

TEST_F(RequestTest, EjbOfAnUnknownThreadAnswersItsCastId) {
    JNIEnv* const stranger = jni.newEnv();
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_beginNativeEJBRequest(stranger, nullptr, nullptr,
                                                                        nullptr, nullptr),
              static_cast<jint>(reinterpret_cast<std::uintptr_t>(stranger)));
}

// --- ids
// ------------------------------------------------------------------------------------------

TEST_F(RequestTest, ThreadIdsByNameAndOfTheCaller) {
    EXPECT_EQ(Java_com_velora_probe_ThreadManager_getEnv(env, nullptr), myId());
    thread->setThreadName(Utils::cstrdup("worker-1"));
    thread->setGroupName(Utils::cstrdup("main"));
    record(addThread())->setThreadName(Utils::cstrdup("worker-1"));  // in no group
    const auto idOf = [&](const char16_t* name, const char16_t* group) {
        return Java_com_velora_command_CommandAgent_getThreadId(env, nullptr, jni.string(name),
                                                                jni.string(group));
    };
    EXPECT_EQ(idOf(u"worker-1", u"main"), myId());
    EXPECT_EQ(idOf(u"worker-1", u"other"), 0);
    EXPECT_EQ(idOf(u"main", u"worker-1"), 0);
    EXPECT_EQ(Java_com_velora_command_CommandAgent_getThreadId(env, nullptr, nullptr, nullptr), 0);
}

}  // namespace
