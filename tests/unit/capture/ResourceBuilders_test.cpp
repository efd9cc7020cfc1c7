#include "capture/ResourceBuilders.h"

#include <functional>
#include <string>

#include "support/CaptureFixture.h"

namespace {

class ResourceTest : public CaptureFixture {
protected:
    jstring s(const char16_t* text) { return jni.string(text); }
    jlongArray longs(const std::vector<jlong>& values) {
        const jlongArray array = env->NewLongArray(static_cast<jsize>(values.size()));
        env->SetLongArrayRegion(array, 0, static_cast<jsize>(values.size()), values.data());
        return array;
    }
};

// Every builder with null strings: the encoder writes nothing at all for a null text, so a record
// would lose a field.
struct NullCase {
    const char* name;
    std::function<bool(JNIEnv*)> append;
    std::function<std::vector<const char*>(const Event&)> texts;
};
class NoNullText : public ResourceTest, public ::testing::WithParamInterface<NullCase> {};

TEST_P(NoNullText, OfAnyKindAndPhase) {
    ASSERT_TRUE(GetParam().append(env));
    const auto events = take();
    ASSERT_EQ(events.size(), 1U);
    for (const char* text : GetParam().texts(*events[0])) EXPECT_EQ(text, emptyText());
}

template <typename Kind, typename... Members>
auto textsOf(Members... members) {
    return [=](const Event& event) {
        const auto& kind = dynamic_cast<const Kind&>(event);
        return std::vector<const char*>{kind.*members...};
    };
}

INSTANTIATE_TEST_SUITE_P(
    Builders, NoNullText,
    ::testing::Values(
        NullCase{"sql", [](JNIEnv* e) { return resource::appendSQL(e, START, nullptr, nullptr); },
                 textsOf<SQLEvent>(&SQLEvent::data_source_name, &SQLEvent::sql)},
        NullCase{"sqlEnd", [](JNIEnv* e) { return resource::appendSQL(e, END, nullptr, nullptr); },
                 textsOf<SQLEvent>(&SQLEvent::data_source_name, &SQLEvent::sql)},
        NullCase{"jms",
                 [](JNIEnv* e) {
                     return resource::appendJMS(e, START, JMS_SEND, nullptr, nullptr, nullptr);
                 },
                 textsOf<JMSEvent>(&JMSEvent::serverName, &JMSEvent::queueOrTopicName,
                                   &JMSEvent::selector)},
        NullCase{"jca", [](JNIEnv* e) { return resource::appendJCA(e, START, nullptr); },
                 textsOf<JCAEvent>(&JCAEvent::eisName)},
        NullCase{"jndi", [](JNIEnv* e) { return resource::appendJNDI(e, START, nullptr, nullptr); },
                 textsOf<JNDIEvent>(&JNDIEvent::providerURL, &JNDIEvent::lookupName)},
        NullCase{"jdo",
                 [](JNIEnv* e) { return resource::appendJDO(e, START, nullptr, nullptr, nullptr); },
                 textsOf<JDOEvent>(&JDOEvent::className, &JDOEvent::methodName,
                                   &JDOEvent::argumentString)},
        NullCase{"mail", [](JNIEnv* e) { return resource::appendMail(e, START, nullptr, nullptr); },
                 textsOf<MailEvent>(&MailEvent::serverURL, &MailEvent::subject)},
        NullCase{"mq", [](JNIEnv* e) { return resource::appendMQ(e, START, 1, nullptr, nullptr); },
                 textsOf<MQEvent>(&MQEvent::queueName, &MQEvent::queueMgrName)},
        NullCase{
            "ctg",
            [](JNIEnv* e) { return resource::appendCTG(e, nullptr, nullptr, nullptr, 1, 2, 3); },
            textsOf<CTGEvent>(&CTGEvent::gatewayName, &CTGEvent::serverName, &CTGEvent::progName)},
        NullCase{
            "exception",
            [](JNIEnv* e) {
                return resource::appendException(e, nullptr, nullptr, nullptr, nullptr);
            },
            textsOf<ExceptionEvent>(&ExceptionEvent::exception, &ExceptionEvent::class_name,
                                    &ExceptionEvent::method_name, &ExceptionEvent::stacktrace)},
        NullCase{"status", [](JNIEnv* e) { return resource::appendPSStatus(e, nullptr); },
                 textsOf<PSStatusEvent>(&PSStatusEvent::status_)}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ResourceTest, SqlIsCutAtItsOwnLimitAndChargedByTheAverage) {
    set("internal.sql.limit", "8");
    thread->servletDepth_ = 2;
    EXPECT_TRUE(resource::appendSQL(env, START, s(u"jdbc/ds"), s(u"select * from t")));
    const auto event = takeOne<SQLEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_STREQ(event->data_source_name, "jdbc/ds");
    EXPECT_STREQ(event->sql, "select ");
    EXPECT_EQ(event->servletDepth, 2);
    EXPECT_EQ(event->size_, MemoryMonitor::getSQLSize());
}

TEST_F(ResourceTest, JmsCarriesActionAndNames) {
    EXPECT_TRUE(resource::appendJMS(env, START, JMS_RECEIVE, s(u"srv"), s(u"q"), s(u"a=1")));
    const auto event = takeOne<JMSEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->action, JMS_RECEIVE);
    EXPECT_STREQ(event->serverName, "srv");
    EXPECT_STREQ(event->queueOrTopicName, "q");
    EXPECT_STREQ(event->selector, "a=1");
    EXPECT_EQ(event->size_, 80 + 3 + 1 + 3);
}

TEST_F(ResourceTest, MqChargesItsOwnCost) {
    EXPECT_TRUE(resource::appendMQ(env, END, 4, s(u"q"), s(u"m")));
    const auto event = takeOne<MQEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->size_, 112 + 2);
    EXPECT_EQ(event->action, 4);
    EXPECT_EQ(event->request_name, emptyText());
}

TEST_F(ResourceTest, GpsMqCopiesTheToken) {
    EXPECT_TRUE(
        resource::appendGPSMQ(env, START, GPSMQ_PUT, s(u"q"), jni.byteArray({0, 1, 0, 255})));
    auto event = takeOne<GPSMQEvent>();
    ASSERT_NE(event, nullptr);
    ASSERT_EQ(event->arrLength, 4);
    EXPECT_EQ(event->gpsToken[1], 1);
    EXPECT_EQ(event->gpsToken[3], -1);
    EXPECT_TRUE(resource::appendGPSMQ(env, END, GPSMQ_GET, nullptr, nullptr));
    event = takeOne<GPSMQEvent>();
    EXPECT_EQ(event->arrLength, 0);
    EXPECT_NE(event->gpsToken, nullptr);
}

TEST_F(ResourceTest, MqiTakesTheShortestOfItsArrays) {
    EXPECT_TRUE(resource::appendMQI(env, s(u"m"), s(u"q"), 99, jni.byteArray({1, 2, 3}),
                                    jni.intArray({10, 20}), longs({100, 200, 300, 400})));
    auto event = takeOne<MQIEvent>();
    ASSERT_NE(event, nullptr);
    ASSERT_EQ(event->arrLength, 2);
    EXPECT_EQ(event->ctype[1], 2);
    EXPECT_EQ(event->count[1], 20);
    EXPECT_EQ(event->avgTimeTaken[1], 200);
    EXPECT_EQ(event->snapShotTime, 99);
    EXPECT_TRUE(resource::appendMQI(env, nullptr, nullptr, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(takeOne<MQIEvent>()->arrLength, 0);
    jni.returnToJava(env);
}

TEST_F(ResourceTest, WithoutARecordNothingIsMade) {
    EXPECT_FALSE(resource::appendSQL(jni.newEnv(), START, nullptr, nullptr));
    EXPECT_TRUE(take().empty());
}

}  // namespace
