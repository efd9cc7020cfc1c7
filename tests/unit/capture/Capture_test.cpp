#include "capture/Capture.h"

#include <string>

#include "support/CaptureFixture.h"

namespace {

class CaptureTest : public CaptureFixture {
protected:
    jstring s(const char16_t* text) { return jni.string(text); }
    CallTexts texts() { return {s(u"one"), s(u"two"), s(u"three"), s(u"four")}; }
};

TEST_F(CaptureTest, CallsStandAtTheDepthOfTheirRequestAndCostTheirTexts) {
    capture::begin(env, SERVLET, texts(), 0);
    capture::begin(env, JMS, texts(), JMS_RECEIVE);
    capture::begin(env, MQ, texts(), 4);
    const auto events = take();
    ASSERT_EQ(events.size(), 3U);
    const auto& jms = dynamic_cast<JMSEvent&>(*events[1]);
    EXPECT_EQ(jms.depth, 1);
    EXPECT_EQ(jms.action, JMS_RECEIVE);
    EXPECT_EQ(jms.size_, 80 + 3 + 3 + 5);
    const auto& mq = dynamic_cast<MQEvent&>(*events[2]);
    EXPECT_EQ(mq.action, 4);
    EXPECT_EQ(mq.size_, 112 + 3 + 3);
    EXPECT_EQ(mq.request_name, emptyText());
}

TEST_F(CaptureTest, AFailedServletEndsWithAnErrorAndOtherKindsWithAnEnd) {
    for (const EventType kind : {SERVLET, EJB}) {
        capture::begin(env, kind, texts(), 0);
        capture::end(env, kind, 0, true);
        const auto events = take();
        ASSERT_EQ(events.size(), 2U);
        EXPECT_EQ(events[1]->getSubType(), kind == SERVLET ? ERRORS : END);
        EXPECT_EQ(thread->servletDepth_, 0);
    }
}

TEST_F(CaptureTest, TheLengthsOfStatementsAreNoLengthsOfUrls) {
    for (int i = 0; i < 254; ++i) capture::begin(env, SQL, {nullptr, s(u"select")}, 0);
    EXPECT_TRUE(MemoryMonitor::avgSQLCalculated());
    EXPECT_FALSE(MemoryMonitor::avgURLCalculated());
    EXPECT_EQ(MemoryMonitor::getSQLSize(), 7 + EventCosts::SQL);
    take();
}

TEST_F(CaptureTest, TheOutermostStatementIsTheOneInFlight) {
    set("internal.sql.limit", "8");
    capture::begin(env, SQL, {s(u"jdbc/ds"), s(u"select * from t")}, 0);
    capture::begin(env, SQL, {s(u"other"), s(u"inner")}, 0);
    EXPECT_STREQ(thread->getSQL(), "select ");
    EXPECT_STREQ(thread->getDSName(), "jdbc/ds");
    capture::end(env, SQL, 0, false);
    EXPECT_STREQ(thread->getSQL(), "select ");
    capture::end(env, SQL, 0, false);
    EXPECT_EQ(thread->getSQL(), nullptr);
    const auto events = take();
    EXPECT_STREQ(dynamic_cast<SQLEvent&>(*events[0]).sql, "select ");
    EXPECT_EQ(events[0]->size_, MemoryMonitor::getSQLSize());
}

TEST_F(CaptureTest, NothingIsQueuedWhereNothingCanBe) {
    for (const jint kind : {-1, 0, static_cast<jint>(GC), static_cast<jint>(CLASS), 51, 4711}) {
        EXPECT_FALSE(capture::begin(env, kind, texts(), 0)) << kind;
        capture::end(env, kind, 0, false);
    }
    EXPECT_FALSE(capture::begin(jni.newEnv(), SQL, texts(), 0)) << "no record";
    EXPECT_TRUE(take().empty());
    disableProbe();  // the thread's record goes with it
    EXPECT_FALSE(capture::begin(env, SQL, texts(), 0));
}

TEST(RegisteredTexts, AreKeptOnceAndBounded) {
    const int number = RegisteredTexts::add("a name");
    EXPECT_GT(number, 0);
    EXPECT_EQ(RegisteredTexts::add(std::string("a name").c_str()), number);
    EXPECT_STREQ(RegisteredTexts::get(number), "a name");
    char* text = RegisteredTexts::get(number);
    freeText(text);
    EXPECT_STREQ(RegisteredTexts::get(number), "a name") << "no event frees it";
    for (const int none : {0, -1, RegisteredTexts::kMaxTexts, RegisteredTexts::kMaxTexts + 1})
        EXPECT_EQ(RegisteredTexts::get(none), emptyText()) << none;
    EXPECT_EQ(RegisteredTexts::add(nullptr), 0);
    EXPECT_EQ(RegisteredTexts::add(std::string(100000, 'x').c_str()), 0) << "longer than a block";
    int refused = 0;
    for (int i = 0; i < 1000 && refused == 0; ++i)
        if (RegisteredTexts::add(std::string(4000, 'a').append(std::to_string(i)).c_str()) == 0)
            refused = i;
    EXPECT_GT(refused, 400) << "two megabytes hold some five hundred";
    EXPECT_STREQ(RegisteredTexts::get(number), "a name");
}

}  // namespace
