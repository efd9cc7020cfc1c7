#include "capture/EventUtils.h"

#include <cstring>
#include <limits>
#include <string>

#include "capture/EventStamp.h"
#include "foundation/Platform.h"
#include "support/CaptureFixture.h"

namespace {

class EventUtilsTest : public CaptureFixture {
protected:
    ServletEvent* servlet(EventSubType phase) {
        auto* const event = new ServletEvent(phase);
        event->servletDepth = 1;
        return event;
    }
};

TEST_F(EventUtilsTest, SendRequestReplacesNamesThatAreAlreadyThere) {
    ServletEvent* const event = servlet(START);
    event->request_name = Utils::cstrdup("old");  // must not leak
    EventUtils::sendRequest(env, thread, event, jni.string(u"new"), nullptr, nullptr);
    EXPECT_STREQ(takeOne<ServletEvent>()->request_name, "new");
}

TEST_F(EventUtilsTest, SendRequestConnectTakesItsTokenFromTheName) {
    thread->servletDepth_ = 1;
    EventUtils::sendRequest(env, thread, new GPSEvent(CONNECT), nullptr, nullptr, nullptr);
    EXPECT_TRUE(take().empty());  // a CONNECT without a token is no event
    EventUtils::sendRequest(env, thread, new GPSEvent(CONNECT), jni.string(u"ab"), nullptr,
                            nullptr);
    const auto event = takeOne<GPSEvent>();
    ASSERT_NE(event, nullptr);
    // Whoever takes four token bytes finds four, whatever the name's length.
    EXPECT_EQ(std::string(event->request_name, 5), std::string("ab\0\0\0", 5));
    EXPECT_EQ(std::memcmp(thread->gpsToken_, "ab\0\0", 4), 0);
    EventUtils::sendRequest(env, thread, new GPSEvent(CONNECT), jni.string(u"wxyz1"), nullptr,
                            nullptr);
    EXPECT_EQ(std::memcmp(thread->gpsToken_, "wxyz1", 5), 0);
    EXPECT_STREQ(takeOne<GPSEvent>()->request_name, "wxyz1");
}

TEST_F(EventUtilsTest, AppendToAFullQueueIsRefused) {
    set("internal.probe.event.queue.size.limit", "1");
    EXPECT_TRUE(EventUtils::appendRequestEvent(env, thread, servlet(END)));
    EXPECT_FALSE(EventUtils::appendRequestEvent(env, thread, servlet(END)));
    EXPECT_FALSE(EventUtils::appendRequestEvent(env, thread, nullptr));
}

TEST_F(EventUtilsTest, AppendWithoutARecordUsesTheCallersOwn) {
    EXPECT_TRUE(EventUtils::appendRequestEvent(env, nullptr, servlet(END)));
    EXPECT_EQ(takeOne<ServletEvent>()->threadId_, thread->getThreadIntId());
}

TEST_F(EventUtilsTest, CreatesOnlyItsOwnKinds) {
    const std::unique_ptr<CommonEvent> client(EventUtils::createCommonEvent(IIOP_CLIENT, START));
    EXPECT_EQ(client->getType(), IIOP_CLIENT);
    EXPECT_EQ(EventUtils::createCommonEvent(SERVLET, START), nullptr);
    EXPECT_FALSE(EventUtils::appendCommonEvent(env, SERVLET, START, nullptr, nullptr, nullptr));
    EXPECT_EQ(thread->servletDepth_, 0);
}

TEST_F(EventUtilsTest, GarbageCollectionsRespectTheGate) {
    closeGate();
    EventUtils::appendGCStartEvent(env);
    EXPECT_NE(takeOne<DroppedEvent>(), nullptr);
}

TEST_F(EventUtilsTest, SamplingRatesGoToTheGivenThread) {
    ThreadData* const other = record(addThread());
    const int levels[4] = {10, 20, 30, 40};
    EventUtils::appendSamplingRateEvent(env, other, levels, 1);
    EXPECT_TRUE(take().empty());
    const auto events = take(other);
    ASSERT_EQ(events.size(), 1U);
    const auto& event = dynamic_cast<const SamplingEvent&>(*events[0]);
    EXPECT_EQ(event.getSubType(), NOSTYPE);
    EXPECT_EQ(event.probeLevels[0], 10);
    EXPECT_EQ(event.probeLevels[3], 40);
    EXPECT_EQ(event.useDefault, 1);
}

TEST_F(EventUtilsTest, AllocationsCarryTheirPlace) {
    thread->servletDepth_ = 3;
    EXPECT_TRUE(EventUtils::appendHeapEvent(env, START, 77, 12, jni.string(u"java/util/List")));
    const auto event = takeOne<HeapEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->method_id, capture::methodIdFrom(77));
    EXPECT_EQ(event->line_number, 12);
    EXPECT_STREQ(event->instantiated_class_name, "java/util/List");
    EXPECT_EQ(event->depth, 3);
    EXPECT_EQ(event->size_, 72 + 14);
}

TEST(EventCharge, StaysAtItsGreatestValue) {
    SQLEvent event(START);
    capture::charge(event, std::numeric_limits<std::int16_t>::max());
    EXPECT_EQ(event.size_, std::numeric_limits<std::int16_t>::max());
    capture::charge(event, 1);
    EXPECT_EQ(event.size_, std::numeric_limits<std::int16_t>::max());
}

// --- clocks -------------------------------------------------------------------------------------

std::string readings;  // "w" and "c", in the order in which the clocks were read

struct PhaseCase {
    const char* name;
    EventSubType phase;
    const char* order;
};

class ClockOrder : public EventUtilsTest, public ::testing::WithParamInterface<PhaseCase> {
protected:
    ClockOrder() {
        readings.clear();
        capture::clocks = {[](std::uint32_t* sec, std::uint32_t* usec) {
                               readings += 'w';
                               *sec = 11;
                               *usec = 22;
                           },
                           []() -> jlong {
                               readings += 'c';
                               return 33;
                           }};
    }
    ~ClockOrder() override { capture::clocks = shipped; }

private:
    const capture::Clocks shipped = capture::clocks;
};

// What is read last at a begin and first at an end lies inside the measured interval.
TEST_P(ClockOrder, KeepsCpuReadingsInside) {
    EventUtils::sendRequest(env, thread, servlet(GetParam().phase), nullptr, nullptr, nullptr);
    EXPECT_EQ(readings, GetParam().order);
    const auto event = takeOne<ServletEvent>();
    EXPECT_EQ(event->timeSec_, 11U);
    EXPECT_EQ(event->timeUSec_, 22U);
    EXPECT_EQ(event->cpuTime_, 33);
}
INSTANTIATE_TEST_SUITE_P(Phases, ClockOrder,
                         ::testing::Values(PhaseCase{"start", START, "wc"},
                                           PhaseCase{"end", END, "cw"},
                                           PhaseCase{"error", ERRORS, "cw"},
                                           PhaseCase{"other", NOSTYPE, "cw"}),
                         [](const auto& info) { return std::string(info.param.name); });

class FixedClockOrder : public ClockOrder {};
TEST_P(FixedClockOrder, OfClassAndReceiveEvents) {
    EventUtils::appendCommonEvent(env, IIOP_SERVER, GetParam().phase, nullptr, nullptr, nullptr);
    EventUtils::appendGPSReceiveEvent(env, thread, new GPSEvent(COMPLETE));
    EXPECT_EQ(readings, "wcwc");
}
INSTANTIATE_TEST_SUITE_P(Phases, FixedClockOrder,
                         ::testing::Values(PhaseCase{"start", START, ""},
                                           PhaseCase{"end", END, ""}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
