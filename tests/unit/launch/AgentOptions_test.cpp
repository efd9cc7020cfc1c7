// Who reads which of the agent's options.
#include "launch/AgentOptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace launch {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(AgentOptions, NothingIsFine) {
    for (const char* text : {static_cast<const char*>(nullptr), "", ",", " , ,"}) {
        const AgentOptions options = parseAgentOptions(text);
        EXPECT_EQ(options.home, "");
        EXPECT_EQ(options.forJava, "");
        EXPECT_THAT(options.unknown, IsEmpty());
    }
}

TEST(AgentOptions, EachReaderGetsItsOwn) {
    const AgentOptions options = parseAgentOptions(
        "home=/opt/a b/velora, node = n1 ,ps=h:1;h2:2,server=shop,probe=off,admin= "
        "0,profile=p,debug=on and "
        "more");
    EXPECT_EQ(options.home, "/opt/a b/velora");
    EXPECT_EQ(options.node, "n1");
    EXPECT_EQ(options.server, "shop");
    EXPECT_EQ(options.profile, "p");
    EXPECT_EQ(options.forJava, "ps=h:1;h2:2,probe=off,admin=0");
    EXPECT_EQ(options.forCollector, "debug=on and more");
    EXPECT_THAT(options.unknown, IsEmpty());
}

TEST(AgentOptions, LastOneHoldsAndValuesKeepTheirEquals) {
    EXPECT_EQ(parseAgentOptions("server=a,server=b=c").server, "b=c");
}

TEST(AgentOptions, UnknownOnesAreNamed) {
    EXPECT_THAT(parseAgentOptions("sever=x,ps=h:1,=y,Home=/z,word").unknown,
                ElementsAre("sever=x", "=y", "Home=/z", "word"));
}

TEST(JavaAgentArguments, AreFoundBehindOurJarOnly) {
    EXPECT_EQ(javaAgentArguments({"java", "-javaagent:/x/other.jar=node=no",
                                  "-javaagent:/opt/velora/lib/velora.jar=node=n,ps=h:1", "Main"}),
              "node=n,ps=h:1");
    EXPECT_EQ(javaAgentArguments({"java", "-javaagent:velora.jar=a=b"}), "a=b");
    EXPECT_EQ(javaAgentArguments({"java", "-javaagent:/opt/velora.jar", "x"}),
              "");  // there, without options
    EXPECT_EQ(javaAgentArguments({"java", "-javaagent:/opt/notvelora.jar=a"}), std::nullopt);
    EXPECT_EQ(javaAgentArguments({"java", "-jar", "/opt/velora.jar=a"}), std::nullopt);
    EXPECT_EQ(javaAgentArguments({}), std::nullopt);
}

}  // namespace
}  // namespace launch
