// The records at the beginning of a connection.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "agent/ProbeMgr.h"
#include "event/ProtocolVisitor.h"
#include "foundation/Platform.h"
#include "support/VelFixture.h"
#include "support/WireBytes.h"

namespace {

class InitRecordTest : public VelFixture {
protected:
    void SetUp() override {
        std::filesystem::create_directories(home_ + "/etc");  // where the MOD file is made
        setenv("am.home", home_.c_str(), 1);
        setenv("am.nodename", "N", 1);
        setenv("am.appserver", "S", 1);
        ProbeMgr::onLoadInitialize(vm.vm(), nullptr);
        ProbeMgr* const probe = ProbeMgr::getInstance();
        probe->setAppServerVersion("6.1.0.11");
        probe->setComponentId("id");
        probe->setAdminServerPort(8880);
    }

    ~InitRecordTest() override { std::filesystem::remove_all(home_); }

    void defineServerName(const char* name) {
        jni.defineClass("com/velora/probe/ProbeSystem")
            .staticMethod("fullAppServerName", "()Ljava/lang/String;",
                          [this, name](JNIEnv*, jobject, const FakeJni::Args&) {
                              return FakeJni::of(jni.string(name));
                          });
    }

    std::string serverRecord() {
        char room[ProtocolVisitor::kMaxServerInitRecord];
        char* at = room;
        ProtocolVisitor::addJ2EEInitRecord(&at, env);
        return wire::hexOf(room, static_cast<std::size_t>(at - room));
    }

private:
    const std::string home_ = testing::TempDir() + "velora_init_" + std::to_string(getpid());
};

// The server's record, with "<NO CLUSTER NAME>", around the server's name.
std::string recordOf(const char* server) {
    return wire::hex("65 C8 06 01 00 0002 6964 0011 3C4E4F20434C5553544552204E414D453E 0001 4E") +
           wire::hex(server) + wire::hex("000022B0 7F7F");
}

TEST_F(InitRecordTest, InitRecordCarriesPlatformAndTime) {
    std::uint32_t before = 0;
    std::uint32_t usec = 0;
    getCurrentTime(&before, &usec);
    char room[ProtocolVisitor::kMaxInitRecord];
    char* at = room;
    ProtocolVisitor::addInitRecord(&at);
    ASSERT_EQ(at, room + 17);
    EXPECT_EQ(wire::hexOf(room, 7), "000007D0640301");
    EXPECT_EQ(wire::hexOf(room + 15, 2), "7F7F");
    const std::int64_t now = std::stoll(wire::hexOf(room + 7, 8), nullptr, 16);
    EXPECT_GE(now, std::int64_t{before} * 1000);
    EXPECT_LT(now, (std::int64_t{before} + 60) * 1000);
}

TEST_F(InitRecordTest, ServerRecordNamesTheServerAsJavaKnowsIt) {
    defineServerName("cell/S");
    EXPECT_EQ(serverRecord(), recordOf("0006 63656C6C2F53"));
}

TEST_F(InitRecordTest, WithoutJavasAnswerTheServerHasItsShortName) {
    EXPECT_EQ(serverRecord(), recordOf("0001 53"));
}

TEST_F(InitRecordTest, AVersionThatIsNoVersionCountsAsZero) {
    ProbeMgr::getInstance()->setAppServerVersion("unknown");
    EXPECT_EQ(serverRecord().substr(0, 10), "65C8000000");
}

TEST_F(InitRecordTest, StandaloneRecordHasServerBeforeNode) {
    char room[ProtocolVisitor::kMaxServerInitRecord];
    char* at = room;
    ProtocolVisitor::addStandaloneInitRecord(&at);
    EXPECT_EQ(wire::hexOf(room, static_cast<std::size_t>(at - room)),
              wire::hex("6B CC 01 01 01 0002 6964 0001 53 0001 4E 000022B0 7F7F"));
}

}  // namespace
