#include "dc2ps/RecordDecoder.h"

#include <algorithm>

#include "dc2ps/ByteReader.h"

namespace dc2ps {

namespace {

constexpr std::uint16_t kTrailer = 0x7F7F;  // ends every record
constexpr std::int32_t kInitVersion = 2000;
constexpr std::size_t kTokenBytes = 4;

template <class R>
constexpr bool kLevelFirst =
    std::is_same_v<R, SqlCall> || std::is_same_v<R, JndiCall> || std::is_same_v<R, MailCall>;

std::string number(std::int64_t value) {
    return std::to_string(value);
}

std::string hexByte(std::uint8_t value) {
    constexpr char digits[] = "0123456789ABCDEF";
    return {'0', 'x', digits[value >> 4], digits[value & 15]};
}

}  // namespace

// A reader that fills the fields of a record in the order of the wire.
class RecordDecoder::Reading : public ByteReader {
public:
    using ByteReader::ByteReader;

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

bool RecordDecoder::overLimit(const Reading& in) const {
    return in.position() > limits_.maxRecordBytes;
}

// Everything but the trailer has been read. The order of the checks makes the answer to a damaged
// stream the same however the stream was cut.
Decoded RecordDecoder::finish(Reading& in, Bytes untrusted) {
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

// byte type, int thread, byte depth, int seconds, int microseconds, long CPU time, fields of the
// phase, byte probe level (before the fields in three kinds), trailer
template <class R>
Decoded RecordDecoder::timed(Bytes untrusted, Record& out, Phase phase) {
    Reading in(untrusted);
    R& r = out.emplace<R>();
    r.type = static_cast<RecordType>(in.u8());
    r.phase = phase;
    r.threadId = in.u32();
    r.depth = in.u8();
    in("time", r.time);
    r.cpuTime = in.i64();
    if constexpr (kLevelFirst<R>) r.probeLevel = in.u8();
    R::fields(r, in);
    if constexpr (!kLevelFirst<R>) r.probeLevel = in.u8();
    return finish(in, untrusted);
}

template <class R>
Decoded RecordDecoder::plain(Bytes untrusted, Record& out, Phase phase) {
    Reading in(untrusted);
    R& r = out.emplace<R>();
    r.type = static_cast<RecordType>(in.u8());
    if constexpr (requires { r.phase; }) r.phase = phase;
    R::fields(r, in);
    return finish(in, untrusted);
}

Decoded RecordDecoder::mqi(Bytes untrusted, Record& out) {
    Reading in(untrusted);
    Mqi& r = out.emplace<Mqi>();
    r.type = static_cast<RecordType>(in.u8());
    Mqi::fields(r, in);
    if (in.ranShort() || overLimit(in)) return finish(in, untrusted);
    if (r.elementCount < 0) return garbage(in.position() - 4, "a negative number of elements");
    const auto count = static_cast<std::size_t>(r.elementCount);
    if (count > limits_.maxRecordBytes / Mqi::kElementBytes)
        return garbage(in.position() - 4, "more elements than a record may hold");
    r.elements = in.take(count * Mqi::kElementBytes);
    return finish(in, untrusted);
}

Decoded RecordDecoder::classUnload(Bytes untrusted, Record& out) {
    Reading in(untrusted);
    ClassUnload& r = out.emplace<ClassUnload>();
    r.type = static_cast<RecordType>(in.u8());
    ClassUnload::fields(r, in);
    if (in.ranShort() || overLimit(in)) return finish(in, untrusted);
    if (r.methodCount < 0) return garbage(in.position() - 4, "a negative number of methods");
    const auto count = static_cast<std::size_t>(r.methodCount);
    if (count > limits_.maxRecordBytes / 4)
        return garbage(in.position() - 4, "more methods than a record may hold");
    r.methodIds = in.take(count * 4);
    return finish(in, untrusted);
}

Decoded RecordDecoder::classLoad(Bytes untrusted, Record& out) {
    Reading in(untrusted);
    ClassLoad& r = out.emplace<ClassLoad>();
    r.type = static_cast<RecordType>(in.u8());
    ClassLoad::fields(r, in);
    if (in.ranShort() || overLimit(in)) return finish(in, untrusted);
    if (r.methodCount < 0) return garbage(in.position() - 4, "a negative number of methods");
    if (static_cast<std::size_t>(r.methodCount) >
        limits_.maxRecordBytes / ClassLoad::kMinMethodBytes)
        return garbage(in.position() - 4, "more methods than a record may hold");
    const std::size_t methodsAt = in.position();
    if (scan_.position == 0) scan_ = {methodsAt, r.methodCount};
    in.seek(scan_.position);
    while (scan_.methodsLeft > 0) {
        in.take(4);
        in.text();
        in.text();
        if (in.ranShort()) return finish(in, untrusted);
        scan_ = {in.position(), scan_.methodsLeft - 1};
    }
    r.methods = untrusted.subspan(methodsAt, in.position() - methodsAt);
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
        return agentInit(untrusted, out);
    return garbage(0, "neither a packet header nor an init packet");
}

// byte 0, int number of records, trailer
Decoded RecordDecoder::packetHeader(Bytes untrusted, Record& out) {
    const Decoded answer = plain<PacketHeader>(untrusted, out);
    if (answer != Decoded::ok) return answer;
    const std::int32_t count = std::get<PacketHeader>(out).recordCount;
    if (count < 1 || count > limits_.maxPacketRecords)
        return garbage(1, "a packet header that announces " + number(count) + " records");
    return Decoded::ok;
}

// int 2000, byte 100, byte platform, byte 1, long wall time in ms, trailer
Decoded RecordDecoder::agentInit(Bytes untrusted, Record& out) {
    Reading in(untrusted);
    AgentInit& r = out.emplace<AgentInit>();
    r.type = RecordType::agentInit;
    r.version = in.i32();
    in.u8();
    r.platform = in.u8();
    r.format = in.u8();
    r.wallMillis = in.i64();
    return finish(in, untrusted);
}

Decoded RecordDecoder::decodeServerInit(Bytes untrusted, Record& out) {
    if (untrusted.empty()) return Decoded::needMore;
    const auto type = static_cast<RecordType>(untrusted[0]);
    if (type != RecordType::serverInit && type != RecordType::standaloneInit)
        return garbage(0,
                       "an init packet whose second record has the type " + hexByte(untrusted[0]));
    Reading in(untrusted);
    ServerInit& r = out.emplace<ServerInit>();
    r.type = static_cast<RecordType>(in.u8());
    ServerInit::fields(r, in);
    return finish(in, untrusted);
}

Decoded RecordDecoder::decode(Bytes untrusted, Record& out) {
    if (untrusted.empty()) return Decoded::needMore;
    const auto type = static_cast<RecordType>(untrusted[0]);
    switch (type) {
        using enum RecordType;
        case classLoad:
            return this->classLoad(untrusted, out);
        case classUnload:
            return this->classUnload(untrusted, out);
        case mqi:
            return this->mqi(untrusted, out);
        case methodEntry:
            return plain<MethodStep>(untrusted, out);
        case methodExit:
            return plain<MethodStep>(untrusted, out, Phase::end);
        case servletStart:
            return timed<ServletRequest>(untrusted, out, Phase::start);
        case servletEnd:
            return timed<ServletRequest>(untrusted, out, Phase::end);
        case servletError:
            return timed<ServletRequest>(untrusted, out, Phase::error);
        case ejbStart:
        case doVerbForStart:
        case pollForEventsStart:
            return timed<NamedRequest>(untrusted, out, Phase::start);
        case ejbEnd:
        case doVerbForEnd:
        case pollForEventsEnd:
            return timed<NamedRequest>(untrusted, out, Phase::end);
        case trace:
            return plain<Trace>(untrusted, out);
        case sqlStart:
            return timed<SqlCall>(untrusted, out, Phase::start);
        case sqlEnd:
            return timed<SqlCall>(untrusted, out, Phase::end);
        case dropped:
            return plain<Dropped>(untrusted, out);
        case gcStart:
            return plain<Gc>(untrusted, out);
        case gcEnd:
            return plain<Gc>(untrusted, out, Phase::end);
        case gpsInvokeStart:
        case gpsReceiveStart:
            return timed<GpsRequest>(untrusted, out, Phase::start);
        case gpsInvokeEnd:
        case gpsReceiveEnd:
            return timed<GpsRequest>(untrusted, out, Phase::end);
        case jmsReceiveStart:
        case jmsBrowseStart:
        case jmsSendStart:
        case jmsPublishStart:
            return timed<JmsCall>(untrusted, out, Phase::start);
        case jmsReceiveEnd:
        case jmsBrowseEnd:
        case jmsSendEnd:
        case jmsPublishEnd:
            return timed<JmsCall>(untrusted, out, Phase::end);
        case jndiStart:
            return timed<JndiCall>(untrusted, out, Phase::start);
        case jndiEnd:
            return timed<JndiCall>(untrusted, out, Phase::end);
        case mailStart:
            return timed<MailCall>(untrusted, out, Phase::start);
        case mailEnd:
            return timed<MailCall>(untrusted, out, Phase::end);
        case jcaStart:
            return timed<JcaCall>(untrusted, out, Phase::start);
        case jcaEnd:
            return timed<JcaCall>(untrusted, out, Phase::end);
        case sampling:
            return plain<Sampling>(untrusted, out);
        case ctg:
            return plain<Ctg>(untrusted, out);
        case psStatus:
            return plain<PsStatus>(untrusted, out);
        case exception:
            return plain<Exception>(untrusted, out);
        case portalGatewayAverage:
        case portalModelAverage:
        case portalPageAverage:
        case portalAuthAverage:
        case portalAccessAverage:
            return plain<PortalAverage>(untrusted, out);
        case portalCredentialVault:
            return plain<PortalCredentialVault>(untrusted, out);
        case portalContentAccess:
            return plain<PortalContentAccess>(untrusted, out);
        case portalPageStart:
        case portletStart:
            return timed<PortalRequest>(untrusted, out, Phase::start);
        case portalPageEnd:
        case portletEnd:
            return timed<PortalRequest>(untrusted, out, Phase::end);
        case mqStart:
            return timed<MqCall>(untrusted, out, Phase::start);
        case mqEnd:
            return timed<MqCall>(untrusted, out, Phase::end);
        case lockAcquireStart:
        case lockReleaseStart:
            return timed<LockStep>(untrusted, out, Phase::start);
        case lockAcquireEnd:
        case lockReleaseEnd:
            return timed<LockStep>(untrusted, out, Phase::end);
        case lockContendStart:
            return timed<LockContention>(untrusted, out, Phase::start);
        case lockContendEnd:
            return timed<LockContention>(untrusted, out, Phase::end);
        case heapStart:
            return timed<HeapAllocation>(untrusted, out, Phase::start);
        case heapEnd:
            return timed<HeapAllocation>(untrusted, out, Phase::end);
        case portalAuthenticationStart:
        case portalAuthorizationStart:
        case portalModelStart:
        case portalPageLoadStart:
        case portalActionStart:
        case portalRenderStart:
            return timed<PortalStep>(untrusted, out, Phase::start);
        case portalAuthenticationEnd:
        case portalAuthorizationEnd:
        case portalModelEnd:
        case portalPageLoadEnd:
        case portalActionEnd:
        case portalRenderEnd:
            return timed<PortalStep>(untrusted, out, Phase::end);
        case portalGatewayStart:
            return timed<PortalGateway>(untrusted, out, Phase::start);
        case portalGatewayEnd:
            return timed<PortalGateway>(untrusted, out, Phase::end);
        case portalMethodName:
            return plain<PortalMethodName>(untrusted, out);
        case jdoStart:
            return timed<JdoCall>(untrusted, out, Phase::start);
        case jdoEnd:
            return timed<JdoCall>(untrusted, out, Phase::end);
        case iiopClientStart:
        case iiopServerStart:
            return timed<IiopRequest>(untrusted, out, Phase::start);
        case iiopClientEnd:
        case iiopServerEnd:
            return timed<IiopRequest>(untrusted, out, Phase::end);
        case wsClientStart:
        case wsProviderStart:
            return timed<WebServiceRequest>(untrusted, out, Phase::start);
        case wsClientEnd:
        case wsProviderEnd:
            return timed<WebServiceRequest>(untrusted, out, Phase::end);
        case wsFaultStart:
            return timed<WsFault>(untrusted, out, Phase::start);
        case wsFaultEnd:
            return timed<WsFault>(untrusted, out, Phase::end);
        case gpsPutStart:
        case gpsGetStart:
            return timed<GpsMqCall>(untrusted, out, Phase::start);
        case gpsPutEnd:
        case gpsGetEnd:
            return timed<GpsMqCall>(untrusted, out, Phase::end);
        case header:
        case gpsStart:
        case gpsEnd:
        case gpsConnect:
        case gpsComplete:
        case portalTopologyStart:
        case portalTopologyEnd:
        case agentInit:
        case serverInit:
        case standaloneInit:
            break;
    }
    const char* name = recordTypeName(type);
    return garbage(0, name ? std::string("a record of the type ") + name + " inside a packet"
                           : "the unknown record type " + hexByte(untrusted[0]));
}

Mqi::Element Mqi::element(std::size_t index) const {
    ByteReader in(elements.subspan(index * kElementBytes, kElementBytes));
    Element element;
    element.callType = static_cast<std::int8_t>(in.u8());
    element.count = in.i32();
    element.averageTime = in.i64();
    return element;
}

std::uint32_t ClassUnload::methodId(std::size_t index) const {
    return ByteReader(methodIds.subspan(index * 4, 4)).u32();
}

ClassLoad::Method ClassLoad::methodAt(std::size_t& at) const {
    ByteReader in(methods.subspan(at));
    Method method;
    method.methodId = in.u32();
    method.name = in.text();
    method.signature = in.text();
    at += in.position();
    return method;
}

}  // namespace dc2ps
