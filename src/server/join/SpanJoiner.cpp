#include "server/join/SpanJoiner.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <type_traits>

namespace server {

using dc2ps::Phase;
using dc2ps::RawBytes;
using dc2ps::Record;
using dc2ps::Timed;

struct SpanJoiner::Open {
    SpanKind kind{};
    int depth = 0;  // as the agent counted it, before it was cut to 8 bits
    std::uint64_t id = 0;
    std::uint64_t parentId = 0;
    Record start;      // its strings point into text
    std::string text;  // never moved while in use: an Open stays where it was allocated
};

struct SpanJoiner::Thread {
    std::uint32_t id = 0;
    std::uint64_t lastUsed = 0;
    Stack work;     // requests and calls
    Stack methods;  // kept apart: their records may interleave with the work's in any order
};

namespace {

constexpr std::size_t kSpareSpans = 256;
constexpr std::size_t kSpareTextBytes = 512;  // a span with more text is not kept as a spare
constexpr std::size_t kSpareSlots = 64;       // of a thread's stack
constexpr std::size_t kAllocation = 64;       // what an object costs beside itself: links, headers
constexpr std::size_t kRoomParts = 64;        // one of so many parts of a limit is made free

std::size_t mostAfterRoom(std::size_t limit) {
    return limit - std::min(limit, std::max<std::size_t>(1, limit / kRoomParts));
}

struct TextSize {
    std::size_t bytes = 0;
    void operator()(const char*, std::string_view text) { bytes += text.size(); }
    void operator()(const char*, const RawBytes& raw) { bytes += raw.bytes.size(); }
    template <class Other>
    requires(!std::is_convertible_v<Other, std::string_view> &&
             !std::is_convertible_v<Other, RawBytes>) void
    operator()(const char*, const Other&) {}
};

struct TextMover {
    std::string& text;  // has the capacity for all of it
    void move(std::string_view& view) {
        const std::size_t at = text.size();
        text += view;
        view = std::string_view(text).substr(at);
    }
    void operator()(const char*, std::string_view& view) { move(view); }
    void operator()(const char*, RawBytes& raw) { move(raw.bytes); }
    template <class Other>
    requires(!std::is_convertible_v<Other, std::string_view> &&
             !std::is_convertible_v<Other, RawBytes>) void
    operator()(const char*, const Other&) {}
};

std::size_t textSizeOf(const Record& record) {
    return std::visit(
        [](const auto& r) {
            TextSize size;
            std::decay_t<decltype(r)>::fields(r, size);
            return size.bytes;
        },
        record);
}

void keepText(Record& record, std::string& text, std::size_t size) {
    text.clear();
    text.reserve(size);
    std::visit([&](auto& r) { std::decay_t<decltype(r)>::fields(r, TextMover{text}); }, record);
}

struct Stamp {
    std::int64_t wallMicros;
    std::int64_t cpuNanos;
};

Stamp stampOf(const Record& record) {
    return std::visit(
        [](const auto& r) -> Stamp {
            if constexpr (requires { r.cpuTime; }) return {r.time.micros(), r.cpuTime};
            return {0, 0};
        },
        record);
}

// Differences wrap instead of overflowing: the operands are a peer's.
std::int64_t difference(std::int64_t later, std::int64_t earlier) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(later) -
                                     static_cast<std::uint64_t>(earlier));
}

// The depth behind its low 8 bits: the deepest that a thread at depth top can have reached with it.
int unwrapDepth(std::uint8_t low, int top) {
    const int next = top + 1;
    const int depth = next - ((next - low) & 0xFF);
    return depth >= 0 ? depth : low;
}

bool isCall(SpanGroup group) {
    return group == SpanGroup::call || group == SpanGroup::lock || group == SpanGroup::heap;
}

template <class Stack>
int requestDepthOf(const Stack& stack) {
    for (auto span = stack.rbegin(); span != stack.rend(); ++span)
        if (groupOf((*span)->kind) == SpanGroup::request) return (*span)->depth;
    return 0;
}

// The outermost span that a request at the given depth, which starts or has ended, proves to be
// over.
template <class Stack>
std::size_t firstOverAt(const Stack& stack, int depth) {
    const auto over = [depth](const auto& span) {
        return groupOf(span->kind) == SpanGroup::looseRequest ? span->depth > depth
                                                              : span->depth >= depth;
    };
    return static_cast<std::size_t>(std::find_if(stack.begin(), stack.end(), over) - stack.begin());
}

}  // namespace

MicroTime timeOf(const Span& span) {
    return MicroTime(
        std::chrono::microseconds(stampOf(span.start ? *span.start : *span.end).wallMicros));
}

SpanJoiner::SpanJoiner(SpanSink& sink, const JoinLimits& limits) : sink_(sink), limits_(limits) {
}

SpanJoiner::~SpanJoiner() = default;

SpanJoiner::Thread& SpanJoiner::threadOf(std::uint32_t id) {
    ++now_;
    if (!last_ || last_->id != id) {
        auto found = threads_.find(id);
        if (found == threads_.end()) {
            if (threads_.size() >= limits_.maxThreads) makeRoom(0);
            auto thread = std::make_unique<Thread>();
            thread->id = id;
            found = threads_.emplace(id, std::move(thread)).first;
        }
        last_ = found->second.get();
    }
    last_->lastUsed = now_;
    return *last_;
}

void SpanJoiner::timed(const Record& record, const Timed& r) {
    Thread& thread = threadOf(r.threadId);
    const SpanKind kind = spanKindOf(r.type);
    if (r.phase != Phase::start) return end(thread, kind, record, r);
    const int depth = unwrapDepth(r.depth, requestDepthOf(thread.work));
    const SpanGroup group = groupOf(kind);
    if (group == SpanGroup::request) return startRequest(thread, kind, depth, record);
    if (group == SpanGroup::looseRequest) return startLooseRequest(thread, kind, depth, record);
    startCall(thread, kind, depth, record);
}

void SpanJoiner::startRequest(Thread& thread, SpanKind kind, int depth, const Record& record) {
    cut(thread, thread.work, firstOverAt(thread.work, depth), GivenUp::replaced);
    open(thread, thread.work, kind, depth, record);
}

void SpanJoiner::startLooseRequest(Thread& thread, SpanKind kind, int depth, const Record& record) {
    const auto over = std::find_if(thread.work.begin(), thread.work.end(), [&](const auto& span) {
        return span->kind == kind && span->depth >= depth;
    });
    cut(thread, thread.work, static_cast<std::size_t>(over - thread.work.begin()),
        GivenUp::replaced);
    open(thread, thread.work, kind, depth, record);
}

// Calls of one kind nest at the same depth (a constructor allocates), so an open call at this depth
// proves nothing; one at a greater depth belongs to a request that is over.
void SpanJoiner::startCall(Thread& thread, SpanKind kind, int depth, const Record& record) {
    const auto over = std::find_if(
        thread.work.begin(), thread.work.end(),
        [depth](const auto& span) { return isCall(groupOf(span->kind)) && span->depth > depth; });
    cut(thread, thread.work, static_cast<std::size_t>(over - thread.work.begin()),
        GivenUp::replaced);
    open(thread, thread.work, kind, depth, record);
}

void SpanJoiner::open(Thread& thread, Stack& stack, SpanKind kind, int depth,
                      const Record& record) {
    const std::size_t textSize = textSizeOf(record);
    if (openCount_ >= limits_.maxOpen || textBytes_ + textSize > limits_.maxTextBytes)
        makeRoom(textSize);
    if (stack.size() >= limits_.maxOpenPerThread) giveUpAt(thread, stack, 0, GivenUp::tooMany);
    std::unique_ptr<Open> span;
    if (spare_.empty()) {
        span = std::make_unique<Open>();
    } else {
        span = std::move(spare_.back());
        spare_.pop_back();
    }
    const Stack& around = stack.empty() ? thread.work : stack;
    span->kind = kind;
    span->depth = depth;
    span->id = ++lastId_;
    span->parentId = around.empty() ? 0 : around.back()->id;
    span->start = record;
    keepText(span->start, span->text, textSize);
    stack.push_back(std::move(span));
    ++openCount_;
    textBytes_ += textSize;
}

void SpanJoiner::end(Thread& thread, SpanKind kind, const Record& record, const Timed& r) {
    Stack& stack = thread.work;
    const Outcome outcome = r.phase == Phase::error ? Outcome::error : Outcome::ok;
    for (std::size_t i = stack.size(); i-- > 0;)
        if (stack[i]->kind == kind && (stack[i]->depth & 0xFF) == r.depth)
            return finish(thread, stack, i, record, outcome);
    if (groupOf(kind) == SpanGroup::request) {
        const int depth = unwrapDepth(r.depth, requestDepthOf(stack));
        cut(thread, stack, firstOverAt(stack, depth), GivenUp::replaced);
    }
    endWithoutStart(thread, stack, kind, record, r.depth);
}

void SpanJoiner::method(const Record& record, const dc2ps::MethodStep& r) {
    Thread& thread = threadOf(r.threadId);
    Stack& stack = thread.methods;
    if (r.phase == Phase::start) return open(thread, stack, SpanKind::method, 0, record);
    for (std::size_t i = stack.size(); i-- > 0;)
        if (std::get<dc2ps::MethodStep>(stack[i]->start).methodId == r.methodId)
            return finish(thread, stack, i, record, Outcome::ok);
    endWithoutStart(thread, stack, SpanKind::method, record, 0);
}

void SpanJoiner::finish(Thread& thread, Stack& stack, std::size_t index, const Record& end,
                        Outcome outcome) {
    cut(thread, stack, index + 1, GivenUp::enclosingEnded);
    Span span = describe(thread, stack, index);
    const Stamp from = stampOf(*span.start);
    const Stamp to = stampOf(end);
    span.end = &end;
    span.outcome = outcome;
    span.wall = std::chrono::microseconds(difference(to.wallMicros, from.wallMicros));
    if (from.cpuNanos >= 0 && to.cpuNanos >= 0)  // else not measured
        span.cpu = std::chrono::nanoseconds(difference(to.cpuNanos, from.cpuNanos));
    sink_.onSpan(span);
    release(std::move(stack.back()));
    stack.pop_back();
}

void SpanJoiner::endWithoutStart(Thread& thread, const Stack& stack, SpanKind kind,
                                 const Record& end, std::uint8_t depth) {
    Span span;
    span.kind = kind;
    span.outcome = Outcome::noStart;
    span.depth = depth;
    span.threadId = thread.id;
    span.level = static_cast<int>(stack.size());
    span.id = ++lastId_;
    span.parentId = stack.empty() ? 0 : stack.back()->id;
    span.end = &end;
    sink_.onSpan(span);
}

Span SpanJoiner::describe(Thread& thread, const Stack& stack, std::size_t index) const {
    const Open& open = *stack[index];
    Span span;
    span.kind = open.kind;
    span.depth = static_cast<std::uint8_t>(open.depth & 0xFF);
    span.threadId = thread.id;
    span.level = static_cast<int>(&stack == &thread.work ? index : index + thread.work.size());
    span.id = open.id;
    span.parentId = open.parentId;
    span.start = &open.start;
    const std::size_t inside = &stack == &thread.work ? index : thread.work.size();
    for (std::size_t i = inside; i-- > 0 && !span.request;)
        if (isRequest(thread.work[i]->kind)) span.request = &thread.work[i]->start;
    return span;
}

void SpanJoiner::cut(Thread& thread, Stack& stack, std::size_t from, GivenUp why) {
    while (stack.size() > from) giveUpAt(thread, stack, stack.size() - 1, why);
    if (stack.empty() && stack.capacity() > kSpareSlots) Stack().swap(stack);
}

void SpanJoiner::cutAll(Thread& thread, GivenUp why) {
    cut(thread, thread.methods, 0, why);
    cut(thread, thread.work, 0, why);
}

void SpanJoiner::giveUpAt(Thread& thread, Stack& stack, std::size_t index, GivenUp why) {
    Span span = describe(thread, stack, index);
    span.outcome = Outcome::unfinished;
    span.why = why;
    sink_.onSpan(span);
    release(std::move(stack[index]));
    stack.erase(stack.begin() + static_cast<std::ptrdiff_t>(index));
}

void SpanJoiner::release(std::unique_ptr<Open> span) {
    --openCount_;
    textBytes_ -= span->text.size();
    if (spare_.size() < kSpareSpans && span->text.capacity() <= kSpareTextBytes)
        spare_.push_back(std::move(span));
}

template <class Matches>
void SpanJoiner::giveUpInnermost(Thread& thread, Stack& stack, std::int32_t count,
                                 Matches matches) {
    for (std::size_t i = stack.size(); i-- > 0 && count > 0;) {
        if (!matches(stack[i]->kind)) continue;
        giveUpAt(thread, stack, i, GivenUp::dropped);
        --count;
    }
}

void SpanJoiner::dropped(const dc2ps::Dropped& r) {
    Thread& thread = threadOf(r.threadId);
    const bool stopped = r.requestStarts == 0 && r.requestEnds == 0 && r.methodStarts == 0 &&
                         r.methodEnds == 0 && r.sqlStarts == 0 && r.sqlEnds == 0;
    if (stopped) return cutAll(thread, GivenUp::dropped);
    giveUpInnermost(thread, thread.methods, r.methodEnds, [](SpanKind) { return true; });
    giveUpInnermost(thread, thread.work, r.sqlEnds,
                    [](SpanKind kind) { return kind == SpanKind::sql; });
    giveUpInnermost(thread, thread.work, r.requestEnds,
                    [](SpanKind kind) { return kind != SpanKind::sql; });
}

void SpanJoiner::gc(const dc2ps::Gc& r) {
    if (r.phase == Phase::start) {
        gcStart_ = r;
        return;
    }
    GcPause pause;
    if (gcStart_) pause.startMicros = gcStart_->time.micros();
    gcStart_.reset();
    pause.end = &r;
    sink_.onGc(pause);
}

void SpanJoiner::takeOver(SpanJoiner& before) {
    before.last_ = nullptr;
    std::erase_if(before.threads_,
                  [&](const auto& entry) { return takeOver(before, *entry.second); });
    lastId_ += before.lastId_;
}

bool SpanJoiner::takeOver(SpanJoiner& before, Thread& thread) {
    std::size_t count = 0;
    std::size_t text = 0;
    for (const Stack* stack : {&thread.work, &thread.methods}) {
        count += stack->size();
        for (const auto& span : *stack) text += span->text.size();
    }
    if (count == 0 || openCount_ + count > limits_.maxOpen ||
        textBytes_ + text > limits_.maxTextBytes || threads_.size() >= limits_.maxThreads)
        return false;
    auto& mine = threads_[thread.id];
    if (mine && !(mine->work.empty() && mine->methods.empty())) return false;
    if (!mine) mine = std::make_unique<Thread>();
    mine->id = thread.id;
    mine->work = std::move(thread.work);
    mine->methods = std::move(thread.methods);
    for (const Stack* stack : {&mine->work, &mine->methods}) {
        for (const auto& span : *stack) {
            span->id += lastId_;
            if (span->parentId != 0) span->parentId += lastId_;
        }
    }
    openCount_ += count;
    textBytes_ += text;
    before.openCount_ -= count;
    before.textBytes_ -= text;
    return true;
}

bool SpanJoiner::close(std::size_t atMost) {
    for (auto& [id, thread] : threads_) closing_.push_back(std::move(thread));
    if (!threads_.empty())
        std::sort(closing_.begin(), closing_.end(),
                  [](const auto& a, const auto& b) { return a->id > b->id; });
    threads_.clear();
    last_ = nullptr;
    gcStart_.reset();
    for (const std::size_t before = openCount_; !closing_.empty(); closing_.pop_back()) {
        if (before - openCount_ >= atMost) return false;
        cutAll(*closing_.back(), GivenUp::disconnected);
    }
    return true;
}

std::size_t SpanJoiner::heldBytes() const {
    return openCount_ * (sizeof(Open) + kAllocation) + textBytes_ +
           spare_.size() * (sizeof(Open) + kAllocation + kSpareTextBytes) +
           threads_.size() * (sizeof(Thread) + 2 * kAllocation + 2 * kSpareSlots * sizeof(void*));
}

// Forgets the threads that have nothing open, then gives up the work of those that were quiet
// longest until a part of each limit is free: the walk over all threads is paid for by many
// records, and what is told at a time stays little. The thread that the caller works on is never
// forgotten, only its work may be given up.
void SpanJoiner::makeRoom(std::size_t textBytes) {
    std::erase_if(threads_, [this](const auto& entry) {
        const Thread& thread = *entry.second;
        return &thread != last_ && thread.work.empty() && thread.methods.empty();
    });
    std::vector<Thread*> byAge;
    byAge.reserve(threads_.size());
    for (const auto& [id, thread] : threads_) byAge.push_back(thread.get());
    std::sort(byAge.begin(), byAge.end(),
              [](const Thread* a, const Thread* b) { return a->lastUsed < b->lastUsed; });
    const auto enough = [&] {
        return openCount_ <= mostAfterRoom(limits_.maxOpen) &&
               textBytes_ + textBytes <= mostAfterRoom(limits_.maxTextBytes) &&
               threads_.size() <= mostAfterRoom(limits_.maxThreads);
    };
    for (Thread* thread : byAge) {
        if (enough()) return;
        cutAll(*thread, GivenUp::tooMany);
        const std::uint32_t id = thread->id;
        if (thread != last_) threads_.erase(id);
    }
}

}  // namespace server
