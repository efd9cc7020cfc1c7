#include "server/Options.h"

#include <gtest/gtest.h>

#include <vector>

#include "server/print/JsonReader.h"

using namespace server;

namespace {

struct ListenCase {
    const char* name;
    const char* value;
    const char* host;  // null: refused
    int port;
};

class Listen : public testing::TestWithParam<ListenCase> {};

TEST_P(Listen, IsHostAndPort) {
    const char* arguments[] = {"--listen", GetParam().value};
    Options options;
    const std::string wrong = parseOptions(2, arguments, options);
    if (!GetParam().host) {
        EXPECT_EQ(wrong, std::string("--listen ") + GetParam().value + ": HOST:PORT expected");
        return;
    }
    EXPECT_EQ(wrong, "");
    EXPECT_EQ(options.host, GetParam().host);
    EXPECT_EQ(options.port, GetParam().port);
}

INSTANTIATE_TEST_SUITE_P(Values, Listen,
                         testing::Values(ListenCase{"address", "0.0.0.0:80", "0.0.0.0", 80},
                                         ListenCase{"name", "localhost:0", "localhost", 0},
                                         ListenCase{"six", "[::1]:65535", "::1", 65535},
                                         ListenCase{"sixWithoutBrackets", "::1:80", nullptr, 0},
                                         ListenCase{"portTooLarge", "h:65536", nullptr, 0},
                                         ListenCase{"portWithMore", "h:80x", nullptr, 0},
                                         ListenCase{"noPort", "h:", nullptr, 0},
                                         ListenCase{"noColon", "80", nullptr, 0},
                                         ListenCase{"noHost", ":80", nullptr, 0},
                                         ListenCase{"emptyBrackets", "[]:80", nullptr, 0},
                                         ListenCase{"openBracket", "[:1", nullptr, 0},
                                         ListenCase{"openBracketWithSix", "[::1:1", nullptr, 0},
                                         ListenCase{"twoBrackets", "[[::1]]:1", nullptr, 0},
                                         ListenCase{"bracketInAName", "a]:1", nullptr, 0}),
                         [](const auto& c) { return std::string(c.param.name); });

TEST(Options, RefuseWhatTheyDoNotKnow) {
    const std::vector<std::vector<const char*>> refused = {{"--foo"},
                                                           {"file"},
                                                           {"--listen"},
                                                           {"--format", "xml"},
                                                           {"--dump"},
                                                           {"--port-file", ""},
                                                           {"--dump=a", "--show=b"},
                                                           {"--show=a", "--heap=b"},
                                                           {"--heap=a", "--ask=h:1", "heap"},
                                                           {"--ask", "h:1"},
                                                           {"--ask", "h", "heap"},
                                                           {"heap", "--ask", "h:1"},
                                                           {"--timeout", "0"},
                                                           {"--timeout", "86401"},
                                                           {"--timeout", "1s"},
                                                           {"--memory", "15"},
                                                           {"--memory", "1g"},
                                                           {"--format="}};
    for (const auto& arguments : refused) {
        Options options;
        EXPECT_NE(parseOptions(static_cast<int>(arguments.size()), arguments.data(), options), "")
            << arguments[0];
    }
}

TEST(Options, TakeValuesBehindABlankOrAnEqualsSign) {
    const char* arguments[] = {"--format=json", "--port-file", "p", "--record=r=1"};
    Options options;
    EXPECT_EQ(parseOptions(4, arguments, options), "");
    EXPECT_EQ(options.format, Format::json);
    EXPECT_EQ(options.portFile, "p");
    EXPECT_EQ(options.recordFile, "r=1");
    EXPECT_EQ(options.host, "127.0.0.1");
    EXPECT_EQ(options.port, 9520);
}

TEST(Options, TakeAQuestionOfSeveralWords) {
    const char* arguments[] = {"--ask", "[::1]:9521", "stack", "--timeout", "7", "12"};
    Options options;
    EXPECT_EQ(parseOptions(6, arguments, options), "");
    EXPECT_EQ(options.task, Options::Task::ask);
    EXPECT_EQ(options.host, "::1");
    EXPECT_EQ(options.port, 9521);
    EXPECT_EQ(options.question, "stack 12");
    EXPECT_EQ(options.answerLimit, std::chrono::seconds(7));
}

TEST(JsonObject, ReadsWhatTheServerWrites) {
    const auto object = JsonObject::parse(
        R"({"a":"x\"\\\n\u001b\u202e\ud83d\ude00","b":-1.5,"c":null,"d":{"e":["}",1]},"f":""})");
    ASSERT_TRUE(object);
    // The pair stays two halves until it is shown.
    EXPECT_EQ((*object)["a"], "x\"\\\n\x1b\xE2\x80\xAE\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_EQ((*object)["b"], "-1.5");
    EXPECT_EQ((*object)["c"], "null");
    EXPECT_EQ((*object)["d"], R"({"e":["}",1]})");
    EXPECT_EQ((*object)["f"], "");
    EXPECT_EQ((*object)["g"], "");
}

TEST(JsonObject, RefusesEveryBeginningOfALine) {
    const std::string whole = R"({"a":"x\u00e9","b":[1,{"c":2}],"d":3})";
    ASSERT_TRUE(JsonObject::parse(whole));
    for (std::size_t n = 0; n < whole.size(); ++n)
        EXPECT_FALSE(JsonObject::parse(std::string(whole, 0, n))) << n;
    EXPECT_FALSE(JsonObject::parse(whole + "x"));
    EXPECT_FALSE(JsonObject::parse(R"({"a":"\u00g0"})"));
}

}  // namespace
