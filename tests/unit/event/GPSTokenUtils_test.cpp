#include "event/GPSTokenUtils.h"

#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/CaptureFixture.h"
#include "support/ReadBack.h"

namespace {

namespace fs = std::filesystem;

class GPSTokenTest : public CaptureFixture {
protected:
    fs::path file() const { return home / "etc" / "n1.s1.veloraGpsCounter.txt"; }
    std::string content() const {
        std::ifstream in(file());
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void write(const std::string& text) { std::ofstream(file()) << text; }
};

struct TokenCase {
    const char* name;
    const char* mask;
    const char* file;  // null: none
    unsigned firstToken;
};

// One process per test, as the region bits only ever add up.
class GPSFirstToken : public GPSTokenTest, public ::testing::WithParamInterface<TokenCase> {};

TEST_P(GPSFirstToken, JoinsRegionAndCounter) {
    const TokenCase& c = GetParam();
    if (c.file != nullptr) write(c.file);
    GPSTokenUtils::setUpGps(c.mask);
    EXPECT_EQ(GPSTokenUtils::getToken(), c.firstToken);
    EXPECT_EQ(GPSTokenUtils::getToken(), c.firstToken + 1);
}

INSTANTIATE_TEST_SUITE_P(
    Masks, GPSFirstToken,
    ::testing::Values(TokenCase{"threeBits", "101", nullptr, 0xA0000000U},
                      TokenCase{"counterFromFile", "1", "1234", 0x800004D2U},
                      TokenCase{"noMask", "", "77", 77U}, TokenCase{"nullMask", nullptr, "77", 77U},
                      TokenCase{"otherCharactersCountAsZero", "1x2", nullptr, 0x80000000U},
                      TokenCase{"counterBeyondItsBitsIsMasked", "1111", "4294967295", 0xFFFFFFFFU},
                      TokenCase{"longestMask", "0000000000000000000000000000001", nullptr, 2U},
                      TokenCase{"garbageFileCountsAsZero", "1", "what", 0x80000000U},
                      TokenCase{"emptyFileCountsAsZero", "1", "", 0x80000000U},
                      TokenCase{"negativeFileCountsAsZero", "1", "-5", 0x80000000U},
                      TokenCase{"hugeFileCountsAsZero", "1", "99999999999999999999", 0x80000000U},
                      TokenCase{"fileWithLineEnd", "1", "12\n", 0x8000000CU}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(GPSTokenTest, FreshStartMakesTheFile) {
    GPSTokenUtils::setUpGps(env, jni.string(u"101"));
    EXPECT_EQ(content(), "0");
    EXPECT_TRUE(qlog.logged("counter file is: " + file().string()));
    EXPECT_TRUE(qlog.logged("regionId: 0xA0000000"));
    EXPECT_TRUE(qlog.logged("gpsMask: 0x1FFFFFFF"));
}

TEST_F(GPSTokenTest, HighWaterMarkMovesByTheCushion) {
    GPSTokenUtils::setUpGps("1");
    const unsigned first = GPSTokenUtils::getToken();
    GPSTokenUtils::saveGPSToken(first);
    EXPECT_EQ(content(), "0");  // does not pass the mark
    GPSTokenUtils::saveGPSToken(first + 1);
    EXPECT_EQ(content(), "200");
    GPSTokenUtils::saveGPSToken(first + 200);
    EXPECT_EQ(content(), "200");
    GPSTokenUtils::saveGPSToken(first + 201);
    EXPECT_EQ(content(), "400");
}

TEST_F(GPSTokenTest, RestartGoesOnAboveEverySavedToken) {
    GPSTokenUtils::setUpGps("1");
    for (int i = 0; i < 450; ++i) GPSTokenUtils::saveGPSToken(GPSTokenUtils::getToken());
    const unsigned last = GPSTokenUtils::getToken();
    GPSTokenUtils::saveGPSToken(last);
    GPSTokenUtils::setUpGps("1");  // reads the file again, as a new process would
    EXPECT_GT(GPSTokenUtils::getToken(), last);
}

TEST_F(GPSTokenTest, OnlyTheRecordThatIssuesATokenNotesIt) {
    GPSTokenUtils::setUpGps("1");
    for (const EventSubType phase : {CONNECT, COMPLETE, END, START}) {
        GPSEvent event(phase);
        event.token = GPSTokenUtils::getToken() + 1;
        EXPECT_GT(event.encodedSize(), 0U);  // measured only: nothing that a server can know yet
        GPSTokenUtils::saveNotedTokens();
        EXPECT_EQ(content(), "0");
        EXPECT_NE(readback::bytesOf(event), "");
        GPSTokenUtils::saveNotedTokens();
        EXPECT_EQ(content(), phase == START ? "200" : "0") << phase;
    }
}

// One packet after the other: the mark ends above the highest token of each, and never moves by
// more steps than there are tokens, as one that has run over into the region bits stays above it.
TEST_F(GPSTokenTest, NotedTokensMoveTheMarkStepByStep) {
    struct Packet {
        std::vector<unsigned> tokens;  // counted from the first
        const char* saved;
    };
    GPSTokenUtils::setUpGps("1");
    const unsigned first = GPSTokenUtils::getToken();
    for (const Packet& packet : std::vector<Packet>{{{}, "0"},
                                                    {{0}, "0"},
                                                    {{1, 2, 3}, "200"},
                                                    {{}, "200"},
                                                    {{450, 199, 201}, "600"},
                                                    {{7}, "600"},
                                                    {{0x7FFFFFFF, 5}, "1000"}}) {
        for (const unsigned token : packet.tokens) GPSTokenUtils::noteToken(first + token);
        GPSTokenUtils::saveNotedTokens();
        EXPECT_EQ(content(), packet.saved) << ::testing::PrintToString(packet.tokens);
    }
}

struct CushionCase {
    const char* name;
    const char* value;
    const char* saved;
    bool warned;
};
class GPSCushion : public GPSTokenTest, public ::testing::WithParamInterface<CushionCase> {};

TEST_P(GPSCushion, IsBounded) {
    set("gps.cushion", GetParam().value);
    GPSTokenUtils::setUpGps("1");
    GPSTokenUtils::saveGPSToken(GPSTokenUtils::getToken() + 1);
    EXPECT_EQ(content(), GetParam().saved);
    EXPECT_EQ(!qlog.messages(1101).empty(), GetParam().warned);
}
INSTANTIATE_TEST_SUITE_P(Values, GPSCushion,
                         ::testing::Values(CushionCase{"asSet", "7", "7", false},
                                           CushionCase{"zero", "0", "1", true},
                                           CushionCase{"negative", "-3", "1", true},
                                           CushionCase{"absurd", "2000000", "1000000", true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(GPSTokenTest, TheFileGetsTheUnmaskedSum) {
    GPSTokenUtils::setUpGps(std::string(31, '0').c_str());  // a single counter bit
    GPSTokenUtils::saveGPSToken(1);
    EXPECT_EQ(content(), "200");
}

TEST_F(GPSTokenTest, RegionBitsOnlyAddUp) {
    GPSTokenUtils::setUpGps("1");
    GPSTokenUtils::setUpGps("01");
    EXPECT_EQ(GPSTokenUtils::getToken(), 0xC0000000U);
}

TEST_F(GPSTokenTest, TooLongMaskChangesNothing) {
    GPSTokenUtils::setUpGps("01");
    const unsigned before = GPSTokenUtils::getToken();
    GPSTokenUtils::setUpGps(std::string(32, '1').c_str());
    EXPECT_EQ(GPSTokenUtils::getToken(), before + 1);
    EXPECT_EQ(qlog.messages(1171).size(), 1U);
}

TEST_F(GPSTokenTest, TokensGoOnWithoutAFolderForTheFile) {
    fs::remove_all(home / "etc");
    GPSTokenUtils::setUpGps("1");
    EXPECT_TRUE(qlog.logged("counterFp = NULL for writing"));
    EXPECT_EQ(GPSTokenUtils::getToken(), 0x80000000U);
    GPSTokenUtils::saveGPSToken(0x80000001U);
    EXPECT_TRUE(qlog.logged("counterFp is NULL for writing"));
    EXPECT_EQ(GPSTokenUtils::getToken(), 0x80000001U);
}

TEST_F(GPSTokenTest, UnconfiguredTokensStartAtZero) {
    EXPECT_EQ(GPSTokenUtils::getToken(), 0U);
    EXPECT_EQ(GPSTokenUtils::getToken(), 1U);
    GPSTokenUtils::saveGPSToken(1);
    EXPECT_FALSE(fs::exists(file()));
}

}  // namespace
