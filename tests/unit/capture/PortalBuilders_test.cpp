#include "capture/PortalBuilders.h"

#include <string>

#include "capture/Capture.h"
#include "capture/PortalMethodMgr.h"
#include "support/CaptureFixture.h"

namespace {

class PortalTest : public CaptureFixture {
protected:
    jstring s(const char16_t* text) { return jni.string(text); }
};

TEST_F(PortalTest, GatewayServletEndNamesThePageShownMeanwhile) {
    EXPECT_TRUE(portal::appendGatewayServlet(env, START));
    capture::begin(env, PORTAL_PAGE, {s(u"welcome"), s(u"portal"), s(u"/p"), s(u"me")}, 0);
    capture::end(env, PORTAL_PAGE, 0, false);
    EXPECT_TRUE(portal::appendGatewayServlet(env, END));
    EXPECT_TRUE(portal::appendGatewayServlet(env, END));
    const auto events = take();
    ASSERT_EQ(events.size(), 5U);
    EXPECT_EQ(dynamic_cast<PortalGatewayServletEvent&>(*events[0]).pageName, nullptr);
    const auto& page = dynamic_cast<PortalPageEvent&>(*events[1]);
    EXPECT_EQ(page.servletDepth, 1);
    EXPECT_STREQ(page.request_name, "welcome");
    EXPECT_STREQ(page.userName, "me");
    EXPECT_STREQ(dynamic_cast<PortalGatewayServletEvent&>(*events[3]).pageName, "welcome");
    EXPECT_EQ(dynamic_cast<PortalGatewayServletEvent&>(*events[4]).pageName, nullptr);
}

TEST_F(PortalTest, MethodsAreNamedOnceAndKeepTheirId) {
    EXPECT_TRUE(portal::appendMethod(env, PORTAL_AUTHENTICATION, START, s(u"login")));
    EXPECT_TRUE(portal::appendMethod(env, PORTAL_ACTION_REQUEST, START, s(u"act")));
    EXPECT_TRUE(portal::appendMethod(env, PORTAL_AUTHENTICATION, END, s(u"login")));
    const auto events = take();
    ASSERT_EQ(events.size(), 5U);  // two names, three steps
    const auto& name = dynamic_cast<PortalMethodConstantEvent&>(*events[0]);
    EXPECT_STREQ(name.methodName, "login");
    const auto& begin = dynamic_cast<PortalAuthenticationEvent&>(*events[1]);
    EXPECT_EQ(begin.methodId, name.methodId);
    EXPECT_EQ(dynamic_cast<PortalAuthenticationEvent&>(*events[4]).methodId, name.methodId);
    EXPECT_NE(dynamic_cast<PortalActionEvent&>(*events[3]).methodId, name.methodId);

    PortalMethodMgr::getInstance().resendAll(env);
    const auto again = take();
    ASSERT_EQ(again.size(), 2U);
    EXPECT_STREQ(dynamic_cast<PortalMethodConstantEvent&>(*again[1]).methodName, "act");
    EXPECT_STREQ(PortalMethodMgr::getInstance().getMethodName(name.methodId), "login");
    EXPECT_EQ(PortalMethodMgr::getInstance().getMethodName(0), nullptr);
}

TEST_F(PortalTest, MethodIdsRunOutQuietly) {
    PortalMethodMgr& methods = PortalMethodMgr::getInstance();
    for (int i = 0; i < 127; ++i)
        EXPECT_EQ(methods.getMethodId(env, ("m" + std::to_string(i)).c_str()), i + 1);
    EXPECT_EQ(methods.getMethodId(env, "one more"), 0);
    EXPECT_EQ(methods.getMethodId(env, "m5"), 6);
    EXPECT_EQ(methods.getMethodId(env, ""), 0);
    EXPECT_EQ(methods.getMethodId(env, nullptr), 0);
}

TEST_F(PortalTest, OnlyTheirOwnKindsAreTaken) {
    EXPECT_FALSE(portal::appendMethod(env, SERVLET, START, nullptr));
    EXPECT_FALSE(portal::appendAccessChecks(env, PORTAL_PAGE, 1, 2));
    EXPECT_FALSE(portal::appendAggregate(env, PORTAL_AUTHENTICATION, 1, 2));
    EXPECT_TRUE(take().empty());
}

}  // namespace
