// What an asker learns when no answer comes. Answers themselves are asked for in real VMs.
#include "server/ask/Ask.h"

#include <gtest/gtest.h>

#include <future>

#include "Lines.h"
#include "support/LoopbackServer.h"

namespace {

class Asking : public testing::Test {
protected:
    Asking() {
        question.port = static_cast<std::uint16_t>(agent.port());
        question.host = "127.0.0.1";
        question.text = "status";
    }

    // Why there is no answer, once the asker has been treated so.
    std::string wrongAfter(const std::function<void()>& treatment) {
        auto wrong = std::async(std::launch::async, [this] {
            std::string text;
            EXPECT_FALSE(server::ask(question, lines, text));
            return text;
        });
        treatment();
        return wrong.get();
    }

    LoopbackServer agent;
    server::Question question;
    Lines lines;
    const std::string where = "127.0.0.1:" + std::to_string(agent.port());
};

TEST_F(Asking, NobodyWhoListens) {
    agent.refuse();
    EXPECT_EQ(wrongAfter([] {}).rfind("cannot connect to " + where + ": Connection refused", 0),
              0u);
}

TEST_F(Asking, SomebodyWhoHangsUp) {
    EXPECT_EQ(wrongAfter([this] {
                  EXPECT_TRUE(agent.waitForBytes(0, 7));
                  agent.endConnections();
              }),
              where + " closed the connection without an answer");
    const std::vector<std::uint8_t> sent = agent.bytes(0);
    EXPECT_EQ(std::string(sent.begin(), sent.end()), "status\n");
}

TEST_F(Asking, SomebodyWhoVanishes) {
    EXPECT_EQ(wrongAfter([this] {
                  EXPECT_TRUE(agent.waitForBytes(0, 7));
                  agent.resetConnections();
              }),
              "the connection to " + where + " broke: Connection reset by peer");
}

TEST_F(Asking, SomebodyWhoSaysNothing) {
    question.limit = std::chrono::seconds(1);
    EXPECT_EQ(wrongAfter([] {}), "no answer from " + where + " within 1 s");
}

}  // namespace
