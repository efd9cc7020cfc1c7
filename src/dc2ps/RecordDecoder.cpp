#include "dc2ps/RecordDecoder.h"

#include <algorithm>
#include <array>

#include "dc2ps/ByteReader.h"
#include "dc2ps/RecordFrame.h"

namespace dc2ps {

namespace {

constexpr std::int32_t kInitVersion = 2000;
constexpr std::size_t kTokenBytes = 4;

std::string number(std::int64_t value) {
    return std::to_string(value);
}

std::string hexByte(std::uint8_t value) {
    constexpr char digits[] = "0123456789ABCDEF";
    return {'0', 'x', digits[value >> 4], digits[value & 15]};
}

}  // namespace

// A reader that fills the fields of a record in the order of the wire.
class FieldReader : public ByteReader {
public:
    using ByteReader::ByteReader;

    void operator()(const char*, RecordType& field) { field = static_cast<RecordType>(u8()); }
    void operator()(const char*, std::uint8_t& field) { field = u8(); }
    void operator()(const char*, std::int8_t& field) { field = static_cast<std::int8_t>(u8()); }
    void operator()(const char*, std::int32_t& field) { field = i32(); }
    void operator()(const char*, std::uint32_t& field) { field = u32(); }
    void operator()(const char*, std::int64_t& field) { field = i64(); }
    void operator()(const char*, std::string_view& field) { field = text(); }
    void operator()(const char*, WallTime& field) {
        field.seconds = u32();
        field.microseconds = u32();
    }
    void operator()(const char*, CountAndAverage& field) {
        field.count = i32();
        field.averageTime = i64();
    }
    void operator()(const char*, RawBytes& field) { field.bytes = text(); }
    void operator()(const char*, Token& field) {
        tokenAt_ = position();
        const std::size_t length = u16();
        badToken_ = !ranShort() && length != kTokenBytes;  // not waited for
        const Bytes bytes = take(length);
        field.bytes = {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    }

    bool badToken() const { return badToken_; }
    std::size_t tokenAt() const { return tokenAt_; }

private:
    std::size_t tokenAt_ = 0;
    bool badToken_ = false;
};

Decoded RecordDecoder::garbage(std::size_t offset, std::string reason) {
    scan_ = {};
    fault_.offset = offset;
    fault_.reason = std::move(reason);
    return Decoded::garbage;
}

bool RecordDecoder::overLimit(const FieldReader& in) const {
    return in.position() > limits_.maxRecordBytes;
}

// Everything but the trailer has been read. The order of the checks makes the answer to a damaged
// stream the same however the stream was cut.
Decoded RecordDecoder::finish(FieldReader& in, Bytes untrusted) {
    if (in.badToken()) return garbage(in.tokenAt(), "a correlation token that is not 4 bytes long");
    const std::size_t trailerAt = in.position();
    const std::uint16_t trailer = in.u16();
    if (in.ranShort() ? untrusted.size() >= limits_.maxRecordBytes : overLimit(in))
        return garbage(0, "a record longer than " +
                              number(static_cast<std::int64_t>(limits_.maxRecordBytes)) + " bytes");
    if (in.ranShort()) return Decoded::needMore;
    if (trailer != kTrailer) return garbage(trailerAt, "no trailer where the record must end");
    size_ = in.position();
    scan_ = {};
    return Decoded::ok;
}

// A count that has just been read, of elements of so many bytes at least.
bool RecordDecoder::credible(const FieldReader& in, std::int32_t count, std::size_t bytesEach,
                             const char* elements) {
    const std::size_t at = in.position() - 4;
    if (count < 0) {
        garbage(at, std::string("a negative number of ") + elements);
        return false;
    }
    if (static_cast<std::size_t>(count) <= limits_.maxRecordBytes / bytesEach) return true;
    garbage(at, std::string("more ") + elements + " than a record may hold");
    return false;
}

bool RecordDecoder::takeElements(FieldReader& in, Mqi& r) {
    if (!credible(in, r.elementCount, Mqi::kElementBytes, "elements")) return false;
    r.elements = in.take(static_cast<std::size_t>(r.elementCount) * Mqi::kElementBytes);
    return true;
}

bool RecordDecoder::takeElements(FieldReader& in, ClassUnload& r) {
    if (!credible(in, r.methodCount, ClassUnload::kMethodBytes, "methods")) return false;
    r.methodIds = in.take(static_cast<std::size_t>(r.methodCount) * ClassUnload::kMethodBytes);
    return true;
}

bool RecordDecoder::takeElements(FieldReader& in, ClassLoad& r) {
    if (!credible(in, r.methodCount, ClassLoad::kMinMethodBytes, "methods")) return false;
    const std::size_t methodsAt = in.position();
    if (scan_.position == 0) scan_ = {methodsAt, r.methodCount};
    in.seek(scan_.position);
    while (scan_.methodsLeft > 0) {
        ClassLoad::Method method;
        ClassLoad::Method::fields(method, in);
        if (in.ranShort()) return true;
        scan_ = {in.position(), scan_.methodsLeft - 1};
    }
    r.methods = in.since(methodsAt);
    return true;
}

template <class Layout>
Decoded RecordDecoder::whole(Bytes untrusted, Record& out) {
    FieldReader in(untrusted);
    Layout& r = out.emplace<Layout>();
    if constexpr (requires { r.phase; }) r.phase = kRecordRows[untrusted[0]].phase;
    onWire(r, in);
    if constexpr (requires { takeElements(in, r); })
        if (!in.ranShort() && !overLimit(in) && !takeElements(in, r)) return Decoded::garbage;
    return finish(in, untrusted);
}

// A packet opens with one of two records; their seventh byte tells them apart for good:
//   00 cccc cccc 7F 7F          header record with a count
//   00 00 07 D0 64 pp 01 ...    init record
Decoded RecordDecoder::decodeOpening(Bytes untrusted, Record& out) {
    constexpr std::size_t kHeaderBytes = 7;
    constexpr std::uint8_t initOpening[] = {0, 0, kInitVersion >> 8, kInitVersion & 255,
                                            static_cast<std::uint8_t>(RecordType::agentInit)};
    if (untrusted.empty()) return Decoded::needMore;
    if (untrusted[0] != 0)  // told at once: a peer that speaks another language may say no more
        return garbage(0, "a packet that begins with " + hexByte(untrusted[0]));
    if (untrusted.size() < kHeaderBytes) return Decoded::needMore;
    if (untrusted[5] == kTrailer >> 8 && untrusted[6] == (kTrailer & 255))
        return packetHeader(untrusted, out);
    if (std::equal(std::begin(initOpening), std::end(initOpening), untrusted.begin()))
        return whole<AgentInit>(untrusted, out);
    return garbage(0, "neither a packet header nor an init packet");
}

// byte 0, int number of records, trailer
Decoded RecordDecoder::packetHeader(Bytes untrusted, Record& out) {
    const Decoded answer = whole<PacketHeader>(untrusted, out);
    if (answer != Decoded::ok) return answer;
    const std::int32_t count = std::get<PacketHeader>(out).recordCount;
    if (count < 1 || count > limits_.maxPacketRecords)
        return garbage(1, "a packet header that announces " + number(count) + " records");
    return Decoded::ok;
}

Decoded RecordDecoder::decodeServerInit(Bytes untrusted, Record& out) {
    if (untrusted.empty()) return Decoded::needMore;
    const auto type = static_cast<RecordType>(untrusted[0]);
    if (type != RecordType::serverInit && type != RecordType::standaloneInit)
        return garbage(0,
                       "an init packet whose second record has the type " + hexByte(untrusted[0]));
    return whole<ServerInit>(untrusted, out);
}

namespace {

// A unit of work without a kind could not be joined, one without a phase neither.
template <class Layout>
constexpr bool isSound(Phase phase, SpanKind span) {
    return !std::is_base_of_v<Timed, Layout> || (phase != Phase::single && span != SpanKind::none);
}

}  // namespace

Decoded RecordDecoder::decode(Bytes untrusted, Record& out) {
    using Decode = Decoded (RecordDecoder::*)(Bytes, Record&);
    static constexpr std::array<Decode, 256> byType = [] {
        std::array<Decode, 256> table{};
#define DC2PS_DECODE(name, number, shown, layout, phase, span)   \
    static_assert(isSound<layout>(Phase::phase, SpanKind::span), \
                  #name " lacks a phase or a kind");             \
    if constexpr (kInPacket<layout>) table[number] = &RecordDecoder::whole<layout>;
        DC2PS_RECORD_ROWS(DC2PS_DECODE)
#undef DC2PS_DECODE
        return table;
    }();
    if (untrusted.empty()) return Decoded::needMore;
    if (const Decode decode = byType[untrusted[0]]) return (this->*decode)(untrusted, out);
    const char* const name = kRecordRows[untrusted[0]].shown;
    return garbage(0, name ? std::string("a record of the type ") + name + " inside a packet"
                           : "the unknown record type " + hexByte(untrusted[0]));
}

Mqi::Element Mqi::element(std::size_t index) const {
    FieldReader in(elements.subspan(index * kElementBytes, kElementBytes));
    Element element;
    Element::fields(element, in);
    return element;
}

std::uint32_t ClassUnload::methodId(std::size_t index) const {
    return ByteReader(methodIds.subspan(index * kMethodBytes, kMethodBytes)).u32();
}

ClassLoad::Method ClassLoad::methodAt(std::size_t& at) const {
    FieldReader in(methods.subspan(at));
    Method method;
    Method::fields(method, in);
    at += in.position();
    return method;
}

}  // namespace dc2ps
