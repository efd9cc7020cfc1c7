// Turns the bytes of one connection, cut anywhere, into records.
//
//   stream = init packet or packet, again and again
//   init packet = agent init record, server init record (no header)
//   packet = header record with a count, and as many records
//
// A connection begins with an init packet as a rule, and more may come later on: the agent that
// speaks for a collector sends one whenever any of the collector's connections was made anew. A
// stream that begins with a packet is decoded all the same; who sends it is not known then. The
// first thing that is none of these ends the stream for good: records carry no length of their own,
// so nothing behind it can be trusted.
//
// Memory: at most one unfinished record (Limits::maxRecordBytes) and the bytes of one feed.
// Threads: one decoder per connection, used by one thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dc2ps/RecordDecoder.h"
#include "dc2ps/Records.h"

namespace dc2ps {

// Where decoded records go.
class RecordSink {
public:
    virtual ~RecordSink() = default;
    // offset: of the record's first byte in the stream. The record's strings die with the call.
    // Init and header records come through here like every other.
    virtual void onRecord(std::uint64_t offset, const Record& record) = 0;
};

struct FeedResult {
    enum class Status : std::uint8_t {
        ok,        // all is decoded, and the stream may end here: between two packets
        needMore,  // the stream may not end here
        error      // the stream holds garbage; it stays in error whatever is fed next
    };
    Status status = Status::needMore;
    std::uint64_t offset = 0;  // error: where in the stream; else: how many bytes are decoded
    std::string reason;        // error: what stands there, in words; empty otherwise
};

class StreamDecoder {
public:
    explicit StreamDecoder(const Limits& limits = {}) : decoder_(limits) {}

    // Hands every record that is complete by now to sink, in order. An empty feed just reports.
    FeedResult feed(Bytes untrusted, RecordSink& sink);

private:
    enum class Expect : std::uint8_t { packet, serverInit, record };

    std::size_t decodeAll(Bytes untrusted, RecordSink& sink);
    Decoded decodeNext(Bytes untrusted);
    void advance();

    RecordDecoder decoder_;
    Record record_;
    Expect expect_ = Expect::packet;
    std::int32_t recordsLeft_ = 0;       // of the packet that is being read
    std::uint64_t offset_ = 0;           // bytes decoded since the stream began
    std::vector<std::uint8_t> pending_;  // the beginning of a record that is not complete yet
    FeedResult result_;
};

}  // namespace dc2ps
