// How fast the record format is read: decoded alone, and decoded, joined and written as JSON lines.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "dc2ps/StreamDecoder.h"
#include "server/print/Format.h"
#include "server/receive/AgentSession.h"
#include "support/WireWriter.h"

namespace {

constexpr int kRequests = 4000;
constexpr std::size_t kPiece = 8u << 10;  // what the receiver reads at once

// Servlet requests with two SQL calls each, from eight threads in runs as an event agent drains
// them.
byhand::Bytes requestStream() {
    byhand::Writer records;
    for (int i = 0; i < kRequests; ++i) {
        const auto micros = static_cast<std::uint64_t>(i) * 1000;
        const auto thread = static_cast<std::uint32_t>(1 + i / (kRequests / 8));
        records.raw(byhand::servletStart({thread, 1, micros, 0}, "GET /shop/checkout", "shop",
                                         "/shop/checkout", "customer"));
        for (int call = 0; call < 2; ++call) {
            records.raw(byhand::sqlStart({thread, 1, micros + 10, 0}, "jdbc/main",
                                         "select name, price from article where id = ?"));
            records.raw(byhand::timed(10, {thread, 1, micros + 200, 0}));
        }
        records.raw(byhand::timed(5, {thread, 1, micros + 500, 0}));
    }
    byhand::Writer packet;
    packet.u8(0).u32(6 * kRequests).trailer();
    return packet.raw(records.done()).done();
}

// End records only: the shortest timed record.
byhand::Bytes endStream() {
    constexpr int count = 20000;
    byhand::Writer packet;
    packet.u8(0).u32(count).trailer();
    for (int i = 0; i < count; ++i) packet.raw(byhand::timed(10, {1, 1, 0, 0}));
    return packet.done();
}

struct Counting : dc2ps::RecordSink {
    void onRecord(std::uint64_t, const dc2ps::Record& record) override {
        benchmark::DoNotOptimize(&record);
        ++records;
    }
    std::int64_t records = 0;
};

struct Discarding : server::LineSink {
    void write(std::string_view lines) override { bytes += lines.size(); }
    std::size_t bytes = 0;
};

template <class Feed>
void inPieces(const byhand::Bytes& stream, Feed&& feed) {
    const dc2ps::Bytes all(stream);
    for (std::size_t at = 0; at < all.size(); at += kPiece)
        feed(all.subspan(at, std::min(kPiece, all.size() - at)));
}

void report(benchmark::State& state, std::int64_t records, std::size_t streamBytes) {
    state.SetItemsProcessed(records);
    state.SetBytesProcessed(static_cast<std::int64_t>(streamBytes) * state.iterations());
}

void decode(benchmark::State& state, const byhand::Bytes& stream) {
    Counting sink;
    for (auto _ : state) {
        dc2ps::StreamDecoder decoder;
        inPieces(stream, [&](dc2ps::Bytes piece) {
            benchmark::DoNotOptimize(decoder.feed(piece, sink).status);
        });
    }
    report(state, sink.records, stream.size());
}

void decodeRequests(benchmark::State& state) {
    decode(state, requestStream());
}
BENCHMARK(decodeRequests);

void decodeEnds(benchmark::State& state) {
    decode(state, endStream());
}
BENCHMARK(decodeEnds);

void receive(benchmark::State& state, server::Format format) {
    const byhand::Bytes stream = byhand::joined({byhand::initPacket(), requestStream()});
    Discarding lines;
    server::Statistics statistics;
    const auto output = server::makeOutput(format, lines);
    server::SessionServices services{*output, statistics, [] { return std::int64_t{0}; }};
    for (auto _ : state) {
        server::AgentSession session(services, 1, "peer");
        inPieces(stream, [&](dc2ps::Bytes piece) {
            if (session.received(piece) == server::ConnectionHandler::Taken::refused)
                state.SkipWithError("garbage");
        });
        while (session.closed({"", false}, false) != server::ConnectionHandler::Told::all) continue;
    }
    report(state, static_cast<std::int64_t>(statistics.records), stream.size());
}

void decodeJoinAndWriteJson(benchmark::State& state) {
    receive(state, server::Format::json);
}
BENCHMARK(decodeJoinAndWriteJson);

void decodeJoinAndWriteTable(benchmark::State& state) {
    receive(state, server::Format::table);
}
BENCHMARK(decodeJoinAndWriteTable);

}  // namespace
