#include "dc2ps/RecordDecoder.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "dc2ps/RecordPrinter.h"
#include "support/GoldenRecords.h"
#include "support/WireWriter.h"

using namespace dc2ps;
using byhand::hex;
using byhand::Writer;

namespace {

std::string lineOf(const Record& record) {
    std::string line;
    appendRecord(line, record);
    return line;
}

class EveryRecord : public testing::TestWithParam<GoldenRecord> {};

TEST_P(EveryRecord, IsDecodedFromItsBytes) {
    const byhand::Bytes bytes = hex(GetParam().hex);
    RecordDecoder decoder;
    Record record;
    ASSERT_EQ(decoder.decode(bytes, record), Decoded::ok) << decoder.fault().reason;
    EXPECT_EQ(lineOf(record), GetParam().line);
    EXPECT_EQ(decoder.size(), bytes.size());
}

TEST_P(EveryRecord, AsksForMoreAtEveryCut) {
    const byhand::Bytes whole = hex(GetParam().hex);
    RecordDecoder decoder;  // one for all cuts, as when the record arrives byte by byte
    Record record;
    for (std::size_t n = 0; n < whole.size(); ++n) {
        const byhand::Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(n));
        EXPECT_EQ(decoder.decode(cut, record), Decoded::needMore) << n;
    }
    ASSERT_EQ(decoder.decode(whole, record), Decoded::ok);
    EXPECT_EQ(lineOf(record), GetParam().line);
}

TEST_P(EveryRecord, IsGarbageWithoutItsTrailer) {
    for (const std::size_t fromEnd : {1, 2}) {
        byhand::Bytes bytes = hex(GetParam().hex);
        bytes[bytes.size() - fromEnd] ^= 0x01;
        RecordDecoder decoder;
        Record record;
        EXPECT_EQ(decoder.decode(bytes, record), Decoded::garbage);
        EXPECT_EQ(decoder.fault().offset, bytes.size() - 2);
        EXPECT_EQ(decoder.fault().reason, "no trailer where the record must end");
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, EveryRecord, testing::ValuesIn(goldenRecords()),
                         [](const auto& c) { return std::string(c.param.name); });

TEST(RecordDecoder, KnowsTheTypesOfTheTableAndNoOthers) {
    std::array<bool, 256> inTable{};
    for (const GoldenRecord& each : goldenRecords()) inTable[hex(each.hex)[0]] = true;
    for (unsigned type = 0; type < 256; ++type) {
        const byhand::Bytes bytes = {static_cast<std::uint8_t>(type)};
        RecordDecoder decoder;
        Record record;
        EXPECT_EQ(decoder.decode(bytes, record),
                  inTable[type] ? Decoded::needMore : Decoded::garbage)
            << type;
    }
}

struct HostileCase {
    const char* name;
    const char* hex;
    std::size_t offset;
    const char* reason;
};

class Hostile : public testing::TestWithParam<HostileCase> {};

TEST_P(Hostile, IsRefusedWithPlaceAndReason) {
    Limits limits;
    limits.maxRecordBytes = 64;
    RecordDecoder decoder(limits);
    Record record;
    ASSERT_EQ(decoder.decode(hex(GetParam().hex), record), Decoded::garbage);
    EXPECT_EQ(decoder.fault().offset, GetParam().offset);
    EXPECT_EQ(decoder.fault().reason, GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(
    Records, Hostile,
    testing::Values(HostileCase{"negativeMethodCount", "01 00000001 0000 FFFFFFFF", 7,
                                "a negative number of methods"},
                    HostileCase{"hugeMethodCount", "01 00000001 0000 7FFFFFFF", 7,
                                "more methods than a record may hold"},
                    HostileCase{"negativeUnloadCount", "0C 00000001 00000001 80000000", 9,
                                "a negative number of methods"},
                    HostileCase{"hugeUnloadCount", "0C 00000001 00000001 40000000", 9,
                                "more methods than a record may hold"},
                    HostileCase{"negativeElementCount", "29 0000 0000 0000000000000000 FFFFFFFF",
                                13, "a negative number of elements"},
                    HostileCase{"hugeElementCount", "29 0000 0000 0000000000000000 7FFFFFFF", 13,
                                "more elements than a record may hold"},
                    HostileCase{
                        "shortToken",
                        "33 00000001 01 00000000 00000000 0000000000000000 0003 414243 02 7F7F", 22,
                        "a correlation token that is not 4 bytes long"},
                    HostileCase{"longTokenIsNotWaitedFor",
                                "33 00000001 01 00000000 00000000 0000000000000000 FFFF", 22,
                                "a correlation token that is not 4 bytes long"},
                    HostileCase{"headerInsidePacket", "00 00000001 7F7F", 0,
                                "a record of the type HEADER inside a packet"},
                    HostileCase{"typeWithoutLayout", "0F", 0,
                                "a record of the type GPS_REQUEST_START inside a packet"},
                    HostileCase{"unknownType", "FF", 0, "the unknown record type 0xFF"}),
    [](const auto& c) { return std::string(c.param.name); });

// The longest text that can be announced is only an announcement until its bytes are there.
TEST(RecordDecoder, WaitsForAnnouncedTextWithoutTouchingWhatIsNotThere) {
    RecordDecoder decoder;
    Record record;
    EXPECT_EQ(decoder.decode(hex("2C FFFF 61"), record), Decoded::needMore);
}

// A record over the limit is refused when it is whole, and just as well while it is still arriving.
TEST(RecordDecoder, RefusesARecordOverTheLimitHoweverItArrives) {
    Limits limits;
    limits.maxRecordBytes = 64;
    const byhand::Bytes atLimit = Writer().u8(44).text(std::string(59, 'x')).trailer().done();
    const byhand::Bytes over = Writer().u8(44).text(std::string(60, 'x')).trailer().done();
    const byhand::Bytes arriving(over.begin(), over.end() - 1);
    Record record;
    EXPECT_EQ(RecordDecoder(limits).decode(atLimit, record), Decoded::ok);
    for (const byhand::Bytes& bytes : {over, arriving}) {
        RecordDecoder decoder(limits);
        EXPECT_EQ(decoder.decode(bytes, record), Decoded::garbage);
        EXPECT_EQ(decoder.fault().reason, "a record longer than 64 bytes");
    }
}

// A scan of a class that was given up must not be taken up again in another record.
TEST(RecordDecoder, StartsAfreshAfterGarbage) {
    RecordDecoder decoder;
    Record record;
    const byhand::Bytes begun = hex("01 00000001 0000 00000002 0000000A 0000 0000");
    const byhand::Bytes other = hex("01 00000001 0001 61 00000001 0000000B 0001 62 0000 7F7F");
    ASSERT_EQ(decoder.decode(begun, record), Decoded::needMore);
    ASSERT_EQ(decoder.decode(hex("FF"), record), Decoded::garbage);
    ASSERT_EQ(decoder.decode(other, record), Decoded::ok);
    EXPECT_EQ(lineOf(record), R"(CLASS_LOAD sequence=1 class="a" methodCount=1 methods=[11:b])");
}

}  // namespace
