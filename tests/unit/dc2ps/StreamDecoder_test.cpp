#include "dc2ps/StreamDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "dc2ps/RecordPrinter.h"
#include "support/GoldenRecords.h"
#include "support/WireBytes.h"
#include "support/WireWriter.h"

using namespace dc2ps;
using byhand::hex;
using Status = FeedResult::Status;

namespace {

// Keeps what it is given as lines, the offset in front.
class Lines : public RecordSink {
public:
    void onRecord(std::uint64_t offset, const Record& record) override {
        lines.push_back(std::to_string(offset) + " ");
        appendRecord(lines.back(), record);
    }
    std::vector<std::string> lines;
};

// Keeps where records stood: enough to compare two runs, and quick.
class Offsets : public RecordSink {
public:
    void onRecord(std::uint64_t offset, const Record& record) override {
        offsets.push_back(offset << 8 | static_cast<std::uint8_t>(typeOf(record)));
    }
    std::vector<std::uint64_t> offsets;
};

// A fresh vector per piece, so that a sanitizer sees its end.
FeedResult feedInPieces(StreamDecoder& decoder, const byhand::Bytes& stream, std::size_t size,
                        RecordSink& sink) {
    FeedResult result;
    for (std::size_t at = 0; at < stream.size(); at += size) {
        const std::size_t end = std::min(stream.size(), at + size);
        const byhand::Bytes piece(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                  stream.begin() + static_cast<std::ptrdiff_t>(end));
        result = decoder.feed(piece, sink);
    }
    return result;
}

// One packet with every kind of record.
byhand::Bytes bigPacket() {
    byhand::Writer packet;
    packet.u8(0).u32(static_cast<std::uint32_t>(goldenRecords().size())).trailer();
    for (const GoldenRecord& each : goldenRecords()) packet.raw(hex(each.hex));
    return packet.done();
}

// An init packet, a packet for each kind of record, and one with all of them.
byhand::Bytes everything() {
    byhand::Writer stream;
    stream.raw(byhand::initPacket());
    for (const GoldenRecord& each : goldenRecords()) stream.raw(byhand::packet({hex(each.hex)}));
    return stream.raw(bigPacket()).done();
}

TEST(StreamDecoder, DecodesTheSameHoweverTheStreamIsCut) {
    const byhand::Bytes stream = everything();
    Lines whole;
    const FeedResult result = StreamDecoder().feed(stream, whole);
    ASSERT_EQ(result.status, Status::ok) << result.offset << ": " << result.reason;
    EXPECT_EQ(result.offset, stream.size());
    EXPECT_EQ(whole.lines.size(), 3 + 3 * goldenRecords().size());
    for (const std::size_t size : {1, 2, 3, 5, 7, 16, 61, 1000}) {
        Lines cut;
        StreamDecoder decoder;
        EXPECT_EQ(feedInPieces(decoder, stream, size, cut).status, Status::ok);
        EXPECT_EQ(cut.lines, whole.lines) << size;
    }
}

TEST(StreamDecoder, MayEndOnlyBetweenPackets) {
    const byhand::Bytes init = byhand::initPacket();
    const byhand::Bytes stream =
        byhand::joined({init, byhand::packet({byhand::timed(5, {}), byhand::timed(5, {})})});
    StreamDecoder decoder;
    Lines sink;
    EXPECT_EQ(decoder.feed({}, sink).status, Status::ok);
    for (std::size_t n = 1; n <= stream.size(); ++n) {
        const bool mayEnd = n == init.size() || n == stream.size();
        EXPECT_EQ(decoder.feed(Bytes(&stream[n - 1], 1), sink).status,
                  mayEnd ? Status::ok : Status::needMore)
            << n;
    }
}

TEST(StreamDecoder, TakesAnInitPacketAtEveryPacketBoundary) {
    const byhand::Bytes stream =
        byhand::joined({byhand::initPacket("n1"), byhand::packet({byhand::timed(5, {})}),
                        byhand::initPacket("n2"), byhand::packet({byhand::timed(5, {})})});
    Lines sink;
    EXPECT_EQ(StreamDecoder().feed(stream, sink).status, Status::ok);
    EXPECT_EQ(sink.lines.size(), 8u);
}

// A header that announces 512100 records has the first four bytes of an init packet, and the fifth.
TEST(StreamDecoder, TellsALargePacketFromAnInitPacket) {
    Lines sink;
    EXPECT_EQ(StreamDecoder().feed(hex("00 0007D064 7F7F"), sink).status, Status::needMore);
    EXPECT_EQ(sink.lines, std::vector<std::string>{"0 HEADER recordCount=512100"});
}

TEST(StreamDecoder, ReadsTheStandaloneRecordsOtherOrderOfNames) {
    const byhand::Bytes stream =
        hex("000007D0 64 03 01 0000000000000001 7F7F"
            "6B CC 01 02 03 0001 63 0001 73 0001 6E 00000050 7F7F");
    Lines sink;
    EXPECT_EQ(StreamDecoder().feed(stream, sink).status, Status::ok);
    EXPECT_EQ(sink.lines,
              (std::vector<std::string>{
                  "0 INIT version=2000 platform=3 format=1 wallMillis=1",
                  "17 STANDALONE_INIT kind=204 major=1 minor=2 micro=3 componentId=\"c\" "
                  "server=\"s\" node=\"n\" adminPort=80"}));
}

// The packet that the collector's encoder is held to.
TEST(StreamDecoder, ReadsTheGoldenPacket) {
    const std::string bytes =
        wire::bytesOf(wire::goldenHex(VELORA_GOLDEN_DIR, "packet_request.hex"));
    const auto* first = reinterpret_cast<const std::uint8_t*>(bytes.data());
    Lines sink;
    EXPECT_EQ(StreamDecoder().feed(Bytes(first, bytes.size()), sink).status, Status::ok);
    const std::string common =
        " thread=16909060 depth=2 time=1970-01-01T00:00:05.000006Z cpu=9 level=2";
    EXPECT_EQ(
        sink.lines,
        (std::vector<std::string>{
            "0 HEADER recordCount=5",
            "7 SERVLET_REQUEST_START" + common +
                R"( named=1 name="r" application="a" url="u" user="n")",
            "45 SQL_START" + common + R"( dataSource="ds" sql="q")", "77 SQL_END" + common,
            "102 SERVLET_REQUEST_END" + common,
            R"(127 CLASS_LOAD sequence=7 class="p/C" methodCount=2 methods=[33:m()V 34:n(I)J])"}));
}

struct GarbageCase {
    const char* name;
    const char* hexAfterInit;
    std::size_t offset;  // behind the init packet
    const char* reason;
};

class Garbage : public testing::TestWithParam<GarbageCase> {};

TEST_P(Garbage, IsReportedAtTheSamePlaceHoweverTheStreamIsCut) {
    const byhand::Bytes init = byhand::initPacket();
    const byhand::Bytes sound = byhand::packet({byhand::timed(5, {})});
    const byhand::Bytes stream = byhand::joined({init, hex(GetParam().hexAfterInit), sound});
    for (const std::size_t size : {stream.size(), std::size_t{1}, std::size_t{3}}) {
        Lines sink;
        StreamDecoder decoder;
        const FeedResult result = feedInPieces(decoder, stream, size, sink);
        EXPECT_EQ(result.status, Status::error);
        EXPECT_EQ(result.offset, init.size() + GetParam().offset);
        EXPECT_EQ(result.reason, GetParam().reason);
        // What stands behind garbage is never decoded, not even when it looks sound.
        const std::size_t before = sink.lines.size();
        EXPECT_EQ(decoder.feed(sound, sink).status, Status::error);
        EXPECT_EQ(sink.lines.size(), before);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Streams, Garbage,
    testing::Values(
        GarbageCase{"anotherLanguage", "474554202F", 0, "a packet that begins with 0x47"},
        GarbageCase{"recordWithoutHeader", "05", 0, "a packet that begins with 0x05"},
        GarbageCase{"neitherHeaderNorInit", "00 00000001 7F7E", 0,
                    "neither a packet header nor an init packet"},
        GarbageCase{"initOfAnotherVersion", "000007D1 64 03 01 0000000000000001 7F7F", 0,
                    "neither a packet header nor an init packet"},
        GarbageCase{"noRecords", "00 00000000 7F7F", 1, "a packet header that announces 0 records"},
        GarbageCase{"negativeRecords", "00 FFFFFFFF 7F7F", 1,
                    "a packet header that announces -1 records"},
        GarbageCase{"absurdlyManyRecords", "00 7FFFFFFF 7F7F", 1,
                    "a packet header that announces 2147483647 records"},
        GarbageCase{"initWithoutServerRecord", "000007D0 64 03 01 0000000000000001 7F7F", 17,
                    "an init packet whose second record has the type 0x00"},
        GarbageCase{"unknownRecord", "00 00000001 7F7F 3B", 7, "the unknown record type 0x3B"},
        GarbageCase{"secondRecordOutOfStep", "00 00000002 7F7F 2C 0000 7F7F 7F", 12,
                    "the unknown record type 0x7F"}),
    [](const auto& c) { return std::string(c.param.name); });

// Damages every byte of a stream in turn. Whatever comes of it, the decoder neither reads where
// nothing is (a sanitizer watches) nor answers differently when the same bytes come in pieces.
TEST(StreamDecoder, AnswersTheSameToEveryDamagedByte) {
    const byhand::Bytes sound = byhand::joined({byhand::initPacket(), bigPacket()});
    for (std::size_t at = 0; at < sound.size(); ++at) {
        byhand::Bytes damaged = sound;
        damaged[at] ^= 0x81;
        Offsets whole, cut;
        StreamDecoder decoder;
        const FeedResult one = StreamDecoder().feed(damaged, whole);
        const FeedResult many = feedInPieces(decoder, damaged, 251, cut);
        ASSERT_EQ(one.status, many.status) << at;
        ASSERT_EQ(one.offset, many.offset) << at;
        ASSERT_EQ(whole.offsets, cut.offsets) << at;
    }
}

// A class of thirty thousand methods that arrives byte by byte is walked over once, not once for
// every byte: that would take minutes and run into the test's time limit.
TEST(StreamDecoder, DoesNotWalkOverABigClassAgainForEveryByte) {
    constexpr unsigned methods = 30000;
    byhand::Writer record;
    record.u8(1).u32(1).text("Big").u32(methods);
    for (unsigned i = 0; i < methods; ++i) record.u32(i).text("method").text("()V");
    const byhand::Bytes stream = byhand::packet({record.trailer().done()});
    StreamDecoder decoder;
    Lines sink;
    FeedResult result;
    for (const std::uint8_t byte : stream) result = decoder.feed(Bytes(&byte, 1), sink);
    EXPECT_EQ(result.status, Status::ok);
    EXPECT_EQ(sink.lines.size(), 2u);
}

}  // namespace
