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
    EXPECT_FALSE(resource::appendPSStatus(jni.newEnv(), nullptr));
    EXPECT_TRUE(take().empty());
}

}  // namespace
