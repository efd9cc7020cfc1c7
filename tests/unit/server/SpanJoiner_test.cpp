#include "server/join/SpanJoiner.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>

#include "dc2ps/RecordDecoder.h"
#include "support/WireWriter.h"

using namespace server;

namespace {

constexpr std::uint64_t kNotMeasured =
    ~std::uint64_t{0};  // what a start carries without a CPU time

// Writes down every span as "kind start-end outcome", where start and end are the numbers of the
// steps that made them, "?" for one that is missing; "why" in place of "unfinished", nothing for
// "ok".
class Story : public SpanSink {
public:
    void onSpan(const Span& span) override {
        if (!text.empty()) text += ", ";
        text += spanKindName(span.kind);
        text += " " + step(span.start) + "-" + step(span.end);
        if (span.outcome == Outcome::unfinished) text += std::string(" ") + givenUpName(span.why);
        if (span.outcome == Outcome::error || span.outcome == Outcome::noStart)
            text += std::string(" ") + outcomeName(span.outcome);
    }
    void onGc(const GcPause& pause) override {
        if (!text.empty()) text += ", ";
        text += "gc ";
        text += pause.startMicros ? std::to_string(*pause.startMicros) : "?";
        text += "-" + std::to_string(pause.end->time.micros());
    }
    std::string text;

private:
    static std::string step(const dc2ps::Record* record) {
        if (!record) return "?";
        return std::visit(
            [](const auto& r) {
                if constexpr (requires { r.time; }) return std::to_string(r.time.micros());
                return std::string();
            },
            *record);
    }
};

// Plays steps into a joiner; step n happens at microsecond n. A step is a letter for the kind,
// capital for the start, the depth (for M the method's id), and @thread where it is not thread 1:
//   S servlet (X ends it with an error)  E ejb  I iiopServer  P portalPage
//   Q sql  H heap  L lock acquisition  M method  Gs, Ge: GC
//   D drop record; D:a,b,c,d,e,f with the six counts in the order of the wire
class Play {
public:
    explicit Play(const JoinLimits& limits = {}) : joiner(story, limits) {}

    void steps(const std::string& script) {
        std::istringstream words(script);
        for (std::string word; words >> word; ++now) step(word);
    }

    Story story;
    SpanJoiner joiner;
    std::uint64_t now = 0;

private:
    void step(const std::string& word) {
        byhand::At at;
        at.micros = now;
        const std::size_t thread = word.find('@');
        if (thread != std::string::npos)
            at.thread = static_cast<std::uint32_t>(std::stoul(word.substr(thread + 1)));
        const auto number = [&] { return static_cast<unsigned>(std::stoul(word.substr(1))); };
        if (word[0] == 'D') return dropped(word.substr(0, thread), at.thread);
        if (word[0] == 'G') {
            byhand::Writer gc;
            gc.u8(word[1] == 's' ? 13 : 14).u32(at.thread).u32(0).u32(static_cast<unsigned>(now));
            if (word[1] == 'e') gc.u64(0).u64(0).u64(0);
            return take(gc.trailer().done());
        }
        if (word[0] == 'M' || word[0] == 'm')
            return take(byhand::methodStep(word[0] == 'M', at.thread, number(), now));
        at.depth = number() & 255;
        const byhand::Bytes names = byhand::Writer().u8(0).text("").text("").text("u").done();
        const byhand::Bytes methodAndClass = byhand::Writer().u32(1).text("C").done();
        if (word[0] == 'S') return take(byhand::servletStart(at, "n", "a", "u"));
        if (word[0] == 'Q') return take(byhand::sqlStart(at, "d", "select"));
        const std::map<char, std::pair<unsigned, byhand::Bytes>> records = {
            {'s', {5, {}}},
            {'X', {50, {}}},
            {'E', {6, names}},
            {'e', {7, {}}},
            {'I', {152, byhand::hex("0000 00000000 0000")}},
            {'i', {153, {}}},
            {'P', {65, byhand::hex("0000 0000 0000 0000")}},
            {'p', {66, {}}},
            {'q', {10, {}}},
            {'H', {124, byhand::Writer().raw(methodAndClass).u32(1).done()}},
            {'h', {125, {}}},
            {'L', {118, methodAndClass}},
            {'l', {119, {}}}};
        const auto& [type, fields] = records.at(word[0]);
        take(byhand::timed(type, at, fields));
    }

    void dropped(const std::string& word, std::uint32_t thread) {
        std::int32_t counts[6] = {};
        if (word.size() > 2) {
            std::istringstream list(word.substr(2));
            std::string count;
            for (int i = 0; std::getline(list, count, ',') && i < 6; ++i)
                counts[i] = std::stoi(count);
        }
        take(byhand::dropped(thread,
                             {counts[0], counts[1], counts[2], counts[3], counts[4], counts[5]}));
    }

    // The record's bytes are gone when this returns, as a receiver's are.
    void take(const byhand::Bytes& bytes) {
        dc2ps::Record record;
        ASSERT_EQ(decoder_.decode(bytes, record), dc2ps::Decoded::ok);
        std::visit(
            [&](const auto& r) {
                using R = std::decay_t<decltype(r)>;
                if constexpr (std::is_base_of_v<dc2ps::Timed, R>) joiner.timed(record, r);
                if constexpr (std::is_same_v<R, dc2ps::MethodStep>) joiner.method(record, r);
                if constexpr (std::is_same_v<R, dc2ps::Dropped>) joiner.dropped(r);
                if constexpr (std::is_same_v<R, dc2ps::Gc>) joiner.gc(r);
            },
            record);
    }

    dc2ps::RecordDecoder decoder_;
};

struct JoinCase {
    const char* name;
    const char* script;
    const char* story;
};

class Joining : public testing::TestWithParam<JoinCase> {};

TEST_P(Joining, NeverMispairs) {
    Play play;
    play.steps(GetParam().script);
    EXPECT_EQ(play.story.text, GetParam().story);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, Joining,
    testing::Values(
        JoinCase{"startAndEnd", "S1 s1", "servlet 0-1"},
        JoinCase{"nested", "S1 S2 s2 s1", "servlet 1-2, servlet 0-3"},
        JoinCase{"sequence", "S1 s1 S1 s1", "servlet 0-1, servlet 2-3"},
        JoinCase{"errorEnds", "S1 X1", "servlet 0-1 error"},
        JoinCase{"kindsShareDepths", "S1 E2 I3 i3 e2 s1", "iiopServer 2-3, ejb 1-4, servlet 0-5"},
        JoinCase{"threadsApart", "S1@1 S1@2 s1@1 s1@2", "servlet 0-2, servlet 1-3"},
        JoinCase{"endWithoutStart", "s1 S1 s1", "servlet ?-0 noStart, servlet 1-2"},
        JoinCase{"cancelledNest", "S1 S2 S3 s1 s1 S1 s1",
                 "servlet 2-? enclosingEnded, servlet 1-? enclosingEnded, servlet 0-3, "
                 "servlet ?-4 noStart, servlet 5-6"},
        JoinCase{"cancelledByError", "S1 S2 X1", "servlet 1-? enclosingEnded, servlet 0-2 error"},
        JoinCase{"lostEnd", "S1 S1 s1", "servlet 0-? replaced, servlet 1-2"},
        JoinCase{"lostInnerEnd", "S1 S2 S2 s2 s1",
                 "servlet 1-? replaced, servlet 2-3, servlet 0-4"},
        JoinCase{"lostEndsOfANest", "S1 S2 S3 S1 s1",
                 "servlet 2-? replaced, servlet 1-? replaced, servlet 0-? replaced, servlet 3-4"},
        JoinCase{"lostInnerStart", "S1 s2 s1", "servlet ?-1 noStart, servlet 0-2"},
        JoinCase{"lostMiddleStart", "S1 S3 s3 s2 s1",
                 "servlet 1-2, servlet ?-3 noStart, servlet 0-4"},
        JoinCase{"otherKindTookTheDepth", "S1 I1 i1 s1",
                 "servlet 0-? replaced, iiopServer 1-2, servlet ?-3 noStart"},
        JoinCase{"endOfOtherKindAtTheDepth", "S1 I2 s2 i2 s1",
                 "iiopServer 1-? replaced, servlet ?-2 noStart, iiopServer ?-3 noStart, "
                 "servlet 0-4"},
        JoinCase{"unknownEndEndsWhatIsDeeper", "S3 s2 s3",
                 "servlet 0-? replaced, servlet ?-1 noStart, servlet ?-2 noStart"},
        JoinCase{"pageSharesTheDepth", "S1 P1 p1 s1", "portalPage 1-2, servlet 0-3"},
        JoinCase{"lostPageEnd", "S1 P1 P1 p1 s1",
                 "portalPage 1-? replaced, portalPage 2-3, servlet 0-4"}),
    [](const auto& c) { return std::string(c.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Calls, Joining,
    testing::Values(
        JoinCase{"insideARequest", "S1 Q1 q1 s1", "sql 1-2, servlet 0-3"},
        JoinCase{"outsideOfRequests", "Q0 q0", "sql 0-1"},
        JoinCase{"sameKindNestsAtOneDepth", "S1 H1 H1 h1 h1 s1",
                 "heapAllocation 2-3, heapAllocation 1-4, servlet 0-5"},
        JoinCase{"kindsDoNotMix", "L1 Q1 l1 q1",
                 "sql 1-? enclosingEnded, lockAcquisition 0-2, sql ?-3 noStart"},
        JoinCase{"depthsDoNotMix", "Q1 q2 q1", "sql ?-1 noStart, sql 0-2"},
        JoinCase{"endWithItsRequest", "S1 Q1 s1 q1",
                 "sql 1-? enclosingEnded, servlet 0-2, sql ?-3 noStart"},
        JoinCase{"notTakenOverByTheNextRequest", "S1 Q1 S1 q1 s1",
                 "sql 1-? replaced, servlet 0-? replaced, sql ?-3 noStart, servlet 2-4"},
        JoinCase{"requestInsideACall", "S1 Q1 S2 s2 q1 s1", "servlet 2-3, sql 1-4, servlet 0-5"},
        JoinCase{"deeperCallIsOver", "S1 S2 Q2 Q1 q1 q2",
                 "sql 2-? replaced, sql 3-4, sql ?-5 noStart"}),
    [](const auto& c) { return std::string(c.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Methods, Joining,
    testing::Values(JoinCase{"nestLikeBrackets", "M7 M8 m8 m7", "method 1-2, method 0-3"},
                    JoinCase{"recursion", "M7 M7 m7 m7", "method 1-2, method 0-3"},
                    JoinCase{"lostExit", "M7 M8 m7 m8",
                             "method 1-? enclosingEnded, method 0-2, method ?-3 noStart"},
                    JoinCase{"mayOverlapRequests", "S1 M7 s1 m7", "servlet 0-2, method 1-3"}),
    [](const auto& c) { return std::string(c.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Drops, Joining,
    testing::Values(
        JoinCase{"lostEndsMakeTheInnermostDoubtful", "S1 S2 D:0,1,0,0,0,0 s2 s1",
                 "servlet 1-? dropped, servlet ?-3 noStart, servlet 0-4"},
        JoinCase{"lostStartsDoNot", "S1 D:1,0,0,0,0,0 s2 s1", "servlet ?-2 noStart, servlet 0-3"},
        JoinCase{"sqlIsCountedApart", "S1 Q1 D:0,0,0,0,0,1 q1 s1",
                 "sql 1-? dropped, sql ?-3 noStart, servlet 0-4"},
        JoinCase{"requestsDoNotTakeSqlAlong", "S1 Q1 D:0,1,0,0,0,0 q1 s1",
                 "servlet 0-? dropped, sql 1-3, servlet ?-4 noStart"},
        JoinCase{"methodsAreCountedApart", "S1 M7 M8 D:0,0,0,1,0,0 m8 m7 s1",
                 "method 2-? dropped, method ?-4 noStart, method 1-5, servlet 0-6"},
        JoinCase{"otherThreadsAreNotMeant", "S1@1 S1@2 D:0,9,0,9,0,9@1 s1@2 s1@1",
                 "servlet 0-? dropped, servlet 1-3, servlet ?-4 noStart"},
        JoinCase{"stoppedCaptureMakesAllDoubtful", "S1 Q1 M7 D s1",
                 "method 2-? dropped, sql 1-? dropped, servlet 0-? dropped, servlet ?-4 noStart"},
        JoinCase{"negativeCountsMeanNothing", "S1 D:1,-5,0,-5,0,-5 s1", "servlet 0-2"}),
    [](const auto& c) { return std::string(c.param.name); });

INSTANTIATE_TEST_SUITE_P(GarbageCollections, Joining,
                         testing::Values(JoinCase{"pause", "Gs Ge", "gc 0-1"},
                                         JoinCase{"lostStart", "Ge Gs Ge", "gc ?-0, gc 1-2"},
                                         JoinCase{"lostEnd", "Gs Gs Ge Ge", "gc 1-2, gc ?-3"}),
                         [](const auto& c) { return std::string(c.param.name); });

// The depth on the wire has 8 bits; recursion may go deeper.
TEST(SpanJoiner, PairsNestsDeeperThanTheWireCanSay) {
    Play play;
    std::string down, up, expected;
    for (int depth = 1; depth <= 600; ++depth) down += "S" + std::to_string(depth) + " ";
    for (int depth = 600; depth >= 1; --depth) {
        up += "s" + std::to_string(depth) + " ";
        if (!expected.empty()) expected += ", ";
        expected += "servlet " + std::to_string(depth - 1) + "-" + std::to_string(1200 - depth);
    }
    play.steps(down + up);
    EXPECT_EQ(play.story.text, expected);
}

// Looks at the details of a nest: who is around whom.
TEST(SpanJoiner, TellsLevelParentAndRequest) {
    struct Check : SpanSink {
        void onSpan(const Span& span) override {
            seen += std::to_string(span.id) + " in " + std::to_string(span.parentId) + " level " +
                    std::to_string(span.level) + (span.request ? " for " : "");
            if (span.request)
                seen += std::get<dc2ps::ServletRequest>(*span.request).name;  // kept, not dangling
            if (span.wall)
                seen += " wall " + std::to_string(span.wall->count()) + " cpu " +
                        (span.cpu ? std::to_string(span.cpu->count()) : "not measured");
            seen += "\n";
        }
        void onGc(const GcPause&) override {}
        std::string seen;
    } check;
    SpanJoiner joiner(check);
    dc2ps::RecordDecoder decoder;
    const auto take = [&](const byhand::Bytes& bytes) {
        dc2ps::Record record;
        ASSERT_EQ(decoder.decode(bytes, record), dc2ps::Decoded::ok);
        joiner.timed(record, *dc2ps::asTimed(record));
    };
    take(byhand::servletStart({1, 1, 1000000, 50}, "outer request with a name of its own", "a",
                              "u"));
    take(byhand::servletStart({1, 2, 1000100, 60}, "inner", "a", "u"));
    take(byhand::sqlStart({1, 2, 1000200, kNotMeasured}, "d", "s"));
    take(byhand::timed(10, {1, 2, 1000500, kNotMeasured}));
    take(byhand::timed(5, {1, 2, 1000600, 100}));
    take(byhand::timed(5, {1, 1, 999000, 40}));  // the clock was set back
    EXPECT_EQ(check.seen,
              "3 in 2 level 2 for inner wall 300 cpu not measured\n"
              "2 in 1 level 1 for outer request with a name of its own wall 500 cpu 40\n"
              "1 in 0 level 0 wall -1000 cpu -10\n");
}

TEST(SpanJoiner, GivesUpEverythingWhenTheConnectionEndsSomeAtATime) {
    Play play;
    play.steps("S1@2 S1@1 S2@1 M7@2");
    const std::size_t held = play.joiner.heldBytes();
    EXPECT_FALSE(play.joiner.close(1));
    EXPECT_LT(play.joiner.heldBytes(), held);
    EXPECT_TRUE(play.joiner.close(3));
    EXPECT_EQ(play.story.text,
              "servlet 2-? disconnected, servlet 1-? disconnected, method 3-? disconnected, "
              "servlet 0-? disconnected");
    EXPECT_EQ(play.joiner.openCount(), 0u);
}

TEST(SpanJoiner, GivesUpTheOldestOfAThreadThatHasTooMany) {
    JoinLimits limits;
    limits.maxOpenPerThread = 2;
    Play play(limits);
    play.steps("S1 S2 S3 s3 s2 s1");
    EXPECT_EQ(play.story.text,
              "servlet 0-? tooMany, servlet 2-3, servlet 1-4, servlet ?-5 noStart");
}

TEST(SpanJoiner, GivesUpTheThreadsThatWereQuietLongest) {
    JoinLimits limits;
    limits.maxOpen = 4;
    Play play(limits);
    play.steps("S1@1 S1@2 S1@3 S1@4 S2@1 s1@2 s2@1 s1@1 s1@4");
    EXPECT_EQ(play.story.text,
              "servlet 1-? tooMany, servlet ?-5 noStart, servlet 4-6, servlet 0-7, servlet 3-8");
}

TEST(SpanJoiner, BoundsTheTextItKeeps) {
    JoinLimits limits;
    limits.maxTextBytes = 4;  // a servlet start of this play has three bytes of text
    Play play(limits);
    play.steps("S1@1 S1@2 s1@2");
    EXPECT_EQ(play.story.text, "servlet 0-? tooMany, servlet 1-2");
}

TEST(SpanJoiner, GivesTextBackWhenItsWorkEnds) {
    JoinLimits limits;
    limits.maxTextBytes = 8;  // two starts
    Play play(limits);
    play.steps("S1 s1 S1 s1 S1 S2 s2 s1");
    EXPECT_EQ(play.story.text, "servlet 0-1, servlet 2-3, servlet 5-6, servlet 4-7");
}

// The thread whose record makes the limit overflow may be the only one there is.
TEST(SpanJoiner, GivesUpTheWorkOfTheThreadThatOverflowsItself) {
    JoinLimits limits;
    limits.maxTextBytes = 4;
    Play play(limits);
    play.steps("S1 S2 s2 S2 s2");
    EXPECT_EQ(play.story.text, "servlet 0-? tooMany, servlet 1-2, servlet 3-4");
}

TEST(SpanJoiner, ForgetsIdleThreadsBeforeBusyOnes) {
    JoinLimits limits;
    limits.maxThreads = 4;
    Play play(limits);
    play.steps("S1@1 S1@2 s1@2 S1@3 s1@3 s1@4 s1@5 s1@1");
    EXPECT_EQ(play.story.text,
              "servlet 1-2, servlet 3-4, servlet ?-5 noStart, servlet ?-6 noStart, servlet 0-7");
}

}  // namespace
