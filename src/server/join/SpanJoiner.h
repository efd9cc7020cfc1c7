// Joins the start and end records of one connection, and of those that go on with it, into spans:
// pieces of work with a duration.
//
// A start opens a span on its thread. An end closes the innermost open span of the same kind and
// depth on that thread. Records get lost (full queues, a stopped capture, a connection made anew),
// so that what is open is only believed as long as nothing contradicts it:
//   - a request at depth d, starting or ending, proves that nothing of that thread is still open at
//   d
//     or deeper: whatever stands there has ended without its end arriving. (An agent that cancels a
//     nest of requests resets the depth and sends one end of depth 1 for all of them.)
//   - the end of a span ends what was opened inside it.
//   - a drop record with n lost ends makes the n innermost open spans of that class doubtful; one
//     without any count tells that capture stopped, which makes all of the thread's doubtful.
// What is doubtful is given up and reported as unfinished, never matched with a later end.
//
// Memory: bounded by JoinLimits; the spans of the threads that were quiet longest are given up
// first, some at a time. Threads: one joiner per connection, used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "dc2ps/Records.h"
#include "server/join/MixedHash.h"
#include "server/model/Output.h"
#include "server/model/SpanRow.h"

namespace server {

struct Span {
    SpanKind kind{};
    Outcome outcome = Outcome::ok;
    GivenUp why = GivenUp::no;
    std::uint8_t depth = 0;  // as on the wire; 0 for a method
    std::uint32_t threadId = 0;
    int level = 0;               // how many spans enclose it
    std::uint64_t id = 0;        // counted from 1 within the connection
    std::uint64_t parentId = 0;  // the span around it; 0: none
    // Either may be null, never both. Valid only during the call, like the strings inside.
    const dc2ps::Record* start = nullptr;
    const dc2ps::Record* end = nullptr;
    const dc2ps::Record* request =
        nullptr;  // start of the innermost request around it; may be null
    Micros wall;  // none unless both records arrived
    Nanos cpu;
};

// When the span began, or ended where its start did not arrive.
MicroTime timeOf(const Span& span);

class SpanSink {
public:
    virtual ~SpanSink() = default;
    virtual void onSpan(const Span& span) = 0;
    virtual void onGc(const GcPause& pause) = 0;
};

struct JoinLimits {
    std::size_t maxOpen = 65536;           // open spans of a connection
    std::size_t maxOpenPerThread = 1024;   // of one thread; methods are counted on their own
    std::size_t maxTextBytes = 32u << 20;  // names, SQL and so on kept for open spans
    std::size_t maxThreads = 16384;        // threads remembered
};

class SpanJoiner {
public:
    explicit SpanJoiner(SpanSink& sink, const JoinLimits& limits = {});
    ~SpanJoiner();
    SpanJoiner(const SpanJoiner&) = delete;
    SpanJoiner& operator=(const SpanJoiner&) = delete;

    void timed(const dc2ps::Record& record, const dc2ps::Timed& r);
    void method(const dc2ps::Record& record, const dc2ps::MethodStep& r);
    void dropped(const dc2ps::Dropped& r);
    void gc(const dc2ps::Gc& r);
    // Goes on with what is open on another connection of the same agent, as far as there is room.
    // Its pieces are numbered anew.
    void takeOver(SpanJoiner& before);
    // The connection has ended: gives up some of what is open, thread by thread, until atMost
    // pieces have been told. True when nothing is left.
    bool close(std::size_t atMost = SIZE_MAX);

    std::size_t openCount() const { return openCount_; }
    std::size_t heldBytes() const;  // memory, at most

private:
    struct Open;
    struct Thread;
    using Stack = std::vector<std::unique_ptr<Open>>;  // innermost last

    Thread& threadOf(std::uint32_t id);
    bool takeOver(SpanJoiner& before, Thread& thread);
    void startRequest(Thread& thread, SpanKind kind, int depth, const dc2ps::Record& record);
    void startLooseRequest(Thread& thread, SpanKind kind, int depth, const dc2ps::Record& record);
    void startCall(Thread& thread, SpanKind kind, int depth, const dc2ps::Record& record);
    void open(Thread& thread, Stack& stack, SpanKind kind, int depth, const dc2ps::Record& record);
    void end(Thread& thread, SpanKind kind, const dc2ps::Record& record, const dc2ps::Timed& r);
    // Reports the span at index as finished and what stands above it as unfinished.
    void finish(Thread& thread, Stack& stack, std::size_t index, const dc2ps::Record& end,
                Outcome outcome);
    void endWithoutStart(Thread& thread, const Stack& stack, SpanKind kind,
                         const dc2ps::Record& end, std::uint8_t depth);
    void cut(Thread& thread, Stack& stack, std::size_t from, GivenUp why);
    void cutAll(Thread& thread, GivenUp why);
    void giveUpAt(Thread& thread, Stack& stack, std::size_t index, GivenUp why);
    template <class Matches>
    void giveUpInnermost(Thread& thread, Stack& stack, std::int32_t count, Matches matches);
    Span describe(Thread& thread, const Stack& stack, std::size_t index) const;
    void release(std::unique_ptr<Open> span);
    void makeRoom(std::size_t textBytes);

    SpanSink& sink_;
    JoinLimits limits_;
    std::unordered_map<std::uint32_t, std::unique_ptr<Thread>, MixedHash> threads_;
    Thread* last_ = nullptr;  // an agent sends a thread's records in runs
    std::vector<std::unique_ptr<Open>> spare_;
    std::size_t openCount_ = 0;
    std::size_t textBytes_ = 0;
    std::uint64_t lastId_ = 0;
    std::uint64_t now_ = 0;  // counts records: tells which thread was quiet longest
    std::optional<dc2ps::Gc> gcStart_;
    std::vector<std::unique_ptr<Thread>> closing_;  // the next one last
};

}  // namespace server
