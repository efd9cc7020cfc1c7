// Names derived from what the operator said and what runs here.
#include "launch/Identity.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <map>

#include "launch/EnvironmentOverlay.h"

namespace launch {
namespace {

struct NameCase {
    const char* name;
    const char* catalinaBase;
    const char* command;
    const char* expected;
};

class ServerNameTest : public testing::TestWithParam<NameCase> {};

TEST_P(ServerNameTest, IsDerived) {
    EXPECT_EQ(defaultServerName(GetParam().catalinaBase, GetParam().command), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Defaults, ServerNameTest,
    testing::Values(NameCase{"containerFolder", "/var/lib/tomcat10", "org.x.Bootstrap start",
                             "tomcat10"},
                    NameCase{"trailingSlashes", "/srv/shop//", "", "shop"},
                    NameCase{"rootIsNoName", "/", "com.acme.Main", "Main"},
                    NameCase{"mainClass", "", "com.acme.Main arg.with.dots", "Main"},
                    NameCase{"plainClass", "", "Main", "Main"},
                    NameCase{"innerClass", "", "com.acme.Outer$Main x", "Main"},
                    NameCase{"module", "", "acme.shop/com.acme.Main x", "Main"},
                    NameCase{"jar", "", "/opt/my shop/shop-1.2.jar --port 1", "shop-1.2"},
                    NameCase{"jarWithoutArguments", "", "shop.jar", "shop"},
                    NameCase{"unfitLetters", "/srv/my shop:1", "", "my_shop_1"},
                    NameCase{"nothing", "", "", "appserver"}),
    [](const auto& test) { return std::string(test.param.name); });

class IdentityTest : public testing::Test {
protected:
    Identity derive(const char* options = "") {
        const auto lookUp = [](const std::map<std::string, std::string>& values) {
            return [&values](const char* name) {
                const auto at = values.find(name);
                return at == values.end() ? std::string() : at->second;
            };
        };
        return deriveIdentity(parseAgentOptions(options),
                              {.systemProperty = lookUp(properties_),
                               .environment = lookUp(environment_),
                               .libraryPath = "/opt/velora/lib/libvelora_agent.so",
                               .hostName = "host1"});
    }

    std::map<std::string, std::string> properties_;
    std::map<std::string, std::string> environment_;
};

TEST_F(IdentityTest, ComesFromTheSurroundingsWhenNothingIsSaid) {
    const Identity who = derive();
    EXPECT_EQ(who.home, "/opt/velora");
    EXPECT_EQ(who.node, "host1");
    EXPECT_EQ(who.server, "appserver");
    EXPECT_EQ(who.profile, "");
}

TEST_F(IdentityTest, PropertyBeatsOptionBeatsEnvironment) {
    environment_ = {
        {"am.home", "/env/"}, {"am.nodename", "envNode"}, {"am.appserver", "envServer"}};
    EXPECT_EQ(derive().home, "/env");
    EXPECT_EQ(derive().node, "envNode");
    EXPECT_EQ(derive("node=optNode").node, "optNode");
    EXPECT_EQ(derive("server=opt").server, "opt");
    properties_ = {{"am.nodename", "propNode"}, {"am.appserver", "propServer"}};
    EXPECT_EQ(derive("node=optNode").node, "propNode");
    EXPECT_EQ(derive("server=opt").server, "propServer");
    EXPECT_EQ(derive("home=/opt2/").home, "/opt2");
}

TEST(EnvironmentOverlay, ShowsValuesForItsScopeOnly) {
    ASSERT_EQ(setenv("am.hidden", "before", 1), 0);
    char** const original = environ;
    {
        const EnvironmentOverlay overlay({{"am.hidden", "inside"}, {"am.fresh", "new"}});
        EXPECT_STREQ(getenv("am.hidden"), "inside");
        EXPECT_STREQ(getenv("am.fresh"), "new");
        EXPECT_NE(getenv("PATH"), nullptr);
    }
    EXPECT_STREQ(getenv("am.hidden"), "before");
    EXPECT_EQ(getenv("am.fresh"), nullptr);
    EXPECT_EQ(environ, original);
}

TEST(EnvironmentOverlay, KeepsWhatOthersSetMeanwhile) {
    ASSERT_EQ(setenv("am.hidden", "before", 1), 0);
    {
        const EnvironmentOverlay overlay({{"am.hidden", "inside"}, {"am.fresh", "new"}});
        ASSERT_EQ(setenv("am.other", "stays", 1), 0);
    }
    EXPECT_STREQ(getenv("am.other"), "stays");
    EXPECT_STREQ(getenv("am.hidden"), "before");
    EXPECT_EQ(getenv("am.fresh"), nullptr);
}

}  // namespace
}  // namespace launch
