// Feeds what the fuzzer thinks up to a whole connection: decoder, joiner, names, and both outputs.
//
// The first byte says how the stream is cut; the rest is the stream. Besides the sanitizers' watch
// over memory, two things must hold: the answer does not depend on how the stream is cut, and
// nothing that could steer a terminal comes out.
//
//   decode_fuzz_seeds seeds && decode_fuzz -max_total_time=60 corpus seeds
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "server/print/Format.h"
#include "server/print/JsonReader.h"
#include "server/receive/AgentSession.h"

namespace {

struct Text : server::LineSink {
    void write(std::string_view lines) override { text += lines; }
    std::string text;
};

// Small enough for the fuzzer to run into.
constexpr std::size_t kMaxRecordBytes = 2048;
constexpr server::JoinLimits kJoinLimits = {16, 8, 2048, 8};

std::string receive(dc2ps::Bytes stream, std::size_t piece, server::Format format) {
    Text lines;
    server::Statistics statistics;
    const auto output = server::makeOutput(format, lines);
    server::SessionServices services{*output, statistics, [] { return std::int64_t{0}; }};
    services.decodeLimits.maxRecordBytes = kMaxRecordBytes;
    services.joinLimits = kJoinLimits;
    server::AgentSession session(services, 1, "peer");
    for (std::size_t at = 0; at < stream.size(); at += piece)
        if (session.received(stream.subspan(at, std::min(piece, stream.size() - at))) ==
            server::ConnectionHandler::Taken::refused)
            break;
    while (session.closed({"end", false}, false) != server::ConnectionHandler::Told::all) continue;
    output->summary(statistics);
    output->flush();
    return lines.text;
}

// The numbers of received bytes differ when garbage ends one run early; everything else must agree.
std::string withoutByteCounts(const std::string& lines) {
    std::string out;
    for (std::size_t at = 0; at < lines.size();) {
        const std::size_t key = lines.find("\"bytes\":", at);
        out.append(lines, at, key - at);
        if (key == std::string::npos) break;
        at = lines.find(',', key);
    }
    return out;
}

void check(bool holds) {
    if (!holds) std::abort();
}

void checkSafe(const std::string& lines) {
    for (const char c : lines) check(static_cast<unsigned char>(c) >= 0x20 || c == '\n');
    check(lines.find('\x7f') == std::string::npos);
}

void checkJson(const std::string& lines) {
    for (std::size_t at = 0; at < lines.size();) {
        const std::size_t end = lines.find('\n', at);
        check(end != std::string::npos);
        check(server::JsonObject::parse(std::string_view(lines).substr(at, end - at)).has_value());
        at = end + 1;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::size_t piece = 1 + data[0];
    const dc2ps::Bytes stream(data + 1, size - 1);
    const std::string whole =
        receive(stream, std::max<std::size_t>(stream.size(), 1), server::Format::json);
    const std::string cut = receive(stream, piece, server::Format::json);
    check(withoutByteCounts(whole) == withoutByteCounts(cut));
    checkSafe(whole);
    checkJson(whole);
    checkSafe(receive(stream, piece, server::Format::table));
    return 0;
}
