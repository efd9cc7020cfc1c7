// A connection's way from bytes to lines, in both formats.
#include "server/receive/AgentSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "Lines.h"
#include "dc2ps/Text.h"
#include "server/model/Fanout.h"
#include "server/print/Format.h"
#include "server/print/JsonReader.h"
#include "server/print/Show.h"
#include "support/WireWriter.h"

using namespace server;
using byhand::At;
using byhand::Writer;

namespace {

constexpr std::uint64_t kSecond = 1000000;
constexpr std::uint64_t kNoon = 1709294400 * kSecond;  // 2024-03-01T12:00:00Z

class Session {
public:
    explicit Session(Format format)
        : output(makeOutput(format, lines)),
          services{*output, statistics, [] { return std::int64_t{1709294400123}; }},
          session(services, 1, "10.0.0.7:4711") {}

    bool feed(const byhand::Bytes& bytes) {
        return session.received(bytes) != ConnectionHandler::Taken::refused;
    }
    void play(const byhand::Bytes& bytes) {
        EXPECT_TRUE(feed(bytes));
        hangUp();
    }
    void hangUp() {
        while (session.closed({kOrderlyEnd, true}, false) != ConnectionHandler::Told::all) continue;
    }

    Lines lines;
    Statistics statistics;
    std::unique_ptr<Output> output;
    SessionServices services;
    AgentSession session;
};

byhand::Bytes agentStream() {
    const byhand::Bytes contention = Writer()
                                         .u32(77)
                                         .text("com/shop/Cache")
                                         .u8(4)
                                         .text("report")
                                         .text("statistics")
                                         .u32(78)
                                         .done();
    const byhand::Bytes classLoad = Writer()
                                        .u8(1)
                                        .u32(1)
                                        .text("com/shop/Cache")
                                        .u32(2)
                                        .u32(77)
                                        .text("get")
                                        .text("()V")
                                        .u32(78)
                                        .text("fill")
                                        .text("()V")
                                        .trailer()
                                        .done();
    return byhand::joined(
        {byhand::initPacket("n\xC3\xB6"
                            "de",
                            "tomcat"),
         byhand::packet({
             classLoad,
             byhand::servletStart({7, 1, kNoon, 1000}, "checkout\x1b[2J", "shop", "/shop/\"x\"",
                                  "joe"),
             byhand::sqlStart({7, 1, kNoon + 100, 1500}, "jdbc/main",
                              "select \xED\xA0\xBD\xED\xB8\x80"),
             byhand::timed(10, {7, 1, kNoon + 600, 2500}),
             byhand::timed(120, {7, 1, kNoon + 700, 2600}, contention),
             byhand::timed(121, {7, 1, kNoon + 120700, 2700}),
             byhand::timed(50, {7, 1, kNoon + 150000, 5000000}),
             byhand::timed(5, {9, 1, kNoon + 160000, 0}),
             byhand::dropped(7, {3, 2, 0, 0, 1, 0}),
             Writer().u8(44).text("line\nbreak").trailer().done(),
             Writer().u8(13).u32(1).u32(10).u32(5).trailer().done(),
             Writer().u8(14).u32(1).u32(10).u32(2505).u64(~0ull).u64(64).u64(128).trailer().done(),
             Writer().u8(45).text("Oops").text("C").text("m").text("at x\n\tat y").trailer().done(),
         })});
}

TEST(JsonLines, OneObjectPerFact) {
    Session s(Format::json);
    s.play(agentStream());
    s.output->summary(s.statistics);
    s.output->flush();
    const std::string where = R"("connection":1,"node":"nöde","server":"tomcat")";
    std::istringstream got(s.lines.text);
    std::string line;
    const std::string expected[] = {
        R"({"type":"agent","event":"connected","time":"2024-03-01T12:00:00.123000Z",)" + where +
            R"(,"peer":"10.0.0.7:4711","componentId":"component","cluster":"<NO CLUSTER NAME>",)"
            R"("version":"10.1.2","kind":"applicationServer","adminPort":8080,"platform":3,"agentMillis":1700000000000})",
        R"({"type":"classLoad",)" + where +
            R"(,"sequence":1,"class":"com/shop/Cache","methodCount":2})",
        R"({"type":"call","kind":"sql","time":"2024-03-01T12:00:00.000100Z",)" + where +
            R"(,"name":"select 😀","application":"","url":"jdbc/main","user":"","thread":7,"depth":1,)"
            R"("id":2,"parent":1,"level":1,"wallMs":0.500,"cpuMs":0.001000,"outcome":"ok"})",
        R"({"type":"lock","kind":"lockContention","time":"2024-03-01T12:00:00.000700Z",)" + where +
            R"(,"name":"com/shop/Cache","application":"","url":"","user":"","thread":7,"depth":1,)"
            R"("id":3,"parent":1,"level":1,"wallMs":120.000,"cpuMs":0.000100,"outcome":"ok",)"
            R"("ownerType":4,"ownerName":"report","ownerApplication":"statistics",)"
            R"("ownerMethodId":78,"ownerMethod":"com.shop.Cache.fill","methodId":77,)"
            R"("method":"com.shop.Cache.get","requestName":"checkout\u001b[2J","requestApplication":"shop"})",
        R"({"type":"request","kind":"servlet","time":"2024-03-01T12:00:00.000000Z",)" + where +
            R"(,"name":"checkout\u001b[2J","application":"shop","url":"/shop/\"x\"","user":"joe",)"
            R"("thread":7,"depth":1,"id":1,"parent":0,"level":0,"wallMs":150.000,"cpuMs":4.999000,"outcome":"error"})",
        R"({"type":"request","kind":"servlet","time":"2024-03-01T12:00:00.160000Z",)" + where +
            R"(,"name":"","application":"","url":"","user":"","thread":9,"depth":1,"id":4,"parent":0,)"
            R"("level":0,"wallMs":null,"cpuMs":null,"outcome":"noStart"})",
        R"({"type":"drop",)" + where +
            R"(,"thread":7,"requestStarts":3,"requestEnds":2,"methodStarts":0,"methodEnds":0,"sqlStarts":1,"sqlEnds":0})",
        R"({"type":"status",)" + where + R"(,"status":"line\nbreak"})",
        R"({"type":"gc","time":"1970-01-01T00:00:10.000005Z",)" + where +
            R"(,"thread":1,"pauseMs":2.500,"usedObjects":-1,"usedSpace":64,"totalSpace":128})",
        R"({"type":"exception",)" + where +
            R"(,"exception":"Oops","class":"C","method":"m","stackTrace":"at x\n\tat y"})",
        R"({"type":"agent","event":"disconnected","time":"2024-03-01T12:00:00.123000Z",)" + where +
            R"(,"peer":"10.0.0.7:4711","reason":"closed by the agent","bytes":)" +
            std::to_string(agentStream().size()) +
            R"(,"packets":2,"records":13,"end":"orderly","open":0})",
    };
    for (const std::string& each : expected) {
        ASSERT_TRUE(std::getline(got, line));
        EXPECT_EQ(line, each);
    }
    ASSERT_TRUE(std::getline(got, line));
    const auto summary = JsonObject::parse(line);
    ASSERT_TRUE(summary);
    EXPECT_EQ((*summary)["type"], "summary");
    EXPECT_EQ((*summary)["records"], "13");
    EXPECT_EQ((*summary)["requestsError"], "1");
    EXPECT_EQ((*summary)["requestsNoStart"], "1");
    EXPECT_EQ((*summary)["calls"], "2");
    EXPECT_EQ((*summary)["droppedEvents"], "6");
    EXPECT_FALSE(std::getline(got, line));
}

TEST(Table, RowsAndSentences) {
    Session s(Format::table);
    s.play(agentStream());
    EXPECT_EQ(
        s.lines.with("servlet")[0],
        "2024-03-01T12:00:00.000000Z nöde/tomcat          servlet         "
        "checkout\\x1b[2J                          shop             /shop/\"x\"                "
        "        joe                 7     1      150.000        4.999 error");
    EXPECT_NE(s.lines.with("select")[0].find("sql               select 😀 "), std::string::npos)
        << "indented by two blanks";
    EXPECT_EQ(s.lines.with("lock:")[0],
              "-- 2024-03-01T12:00:00.000700Z nöde/tomcat lock: thread 7 in \"checkout\\x1b[2J\" "
              "waited 120.000 ms for com/shop/Cache in com.shop.Cache.get, held by \"report\" of "
              "\"statistics\" in com.shop.Cache.fill");
    EXPECT_NE(
        s.lines.with("connected from")[0].find("10.0.0.7:4711, admin port 8080, connection 1"),
        std::string::npos);
    EXPECT_EQ(s.lines.with("dropped on")[0],
              "-- nöde/tomcat dropped on thread 7: 3 request starts, 2 request ends, 1 SQL starts");
    EXPECT_EQ(
        s.lines.with("garbage collection")[0],
        "-- 1970-01-01T00:00:10.000005Z nöde/tomcat garbage collection of 2.500 ms, 64 of 128 "
        "bytes in use");
    EXPECT_NE(s.lines.text.find("-- nöde/tomcat exception Oops in C.m\n    at x\n        at y\n"),
              std::string::npos)
        << s.lines.text;
    EXPECT_EQ(s.lines.with("PSSTATUS")[0], "-- nöde/tomcat PSSTATUS status=\"line\\nbreak\"");
}

TEST(Table, ColumnsLineUpWhateverTheTextsHold) {
    Session s(Format::table);
    const std::string longName(200, 'n');
    s.play(byhand::joined(
        {byhand::initPacket(),
         byhand::packet(
             {byhand::servletStart({1, 1, kNoon, 0}, longName, longName, longName, longName),
              byhand::timed(5, {1, 1, kNoon, 0}),
              byhand::servletStart({1, 1, kNoon, 0}, "\xC3\xB6", "", "", ""),
              byhand::timed(5, {1, 1, kNoon, 0})})}));
    const std::vector<std::string> rows = s.lines.with("servlet");
    ASSERT_EQ(rows.size(), 2u);
    const std::string header = s.lines.with("OUTCOME")[0];
    for (const std::string& row : rows)
        EXPECT_EQ(dc2ps::columnsOf(row.substr(0, row.rfind("ok"))), header.find("OUTCOME")) << row;
}

TEST(Session, ShowsTheSameHoweverTheStreamIsCut) {
    Session whole(Format::json);
    whole.play(agentStream());
    for (const std::size_t size : {1, 2, 7, 100}) {
        Session cut(Format::json);
        const byhand::Bytes stream = agentStream();
        for (std::size_t at = 0; at < stream.size(); at += size)
            EXPECT_TRUE(cut.feed(byhand::Bytes(
                stream.begin() + static_cast<std::ptrdiff_t>(at),
                stream.begin() + static_cast<std::ptrdiff_t>(std::min(stream.size(), at + size)))));
        cut.hangUp();
        EXPECT_EQ(cut.lines.text, whole.lines.text) << size;
    }
}

TEST(Session, ClosesAfterGarbageAndKeepsWhatCameBefore) {
    Session s(Format::json);
    EXPECT_FALSE(s.feed(byhand::joined({agentStream(), byhand::hex("FF")})));
    EXPECT_EQ(s.session.closed({"closed because of what it sent", false}, true),
              ConnectionHandler::Told::all);
    EXPECT_EQ(s.lines.with(R"("type":"request")").size(), 2u);
    const std::vector<std::string> garbage = s.lines.with(R"("type":"garbage")");
    ASSERT_EQ(garbage.size(), 1u);
    EXPECT_NE(garbage[0].find(R"("offset":)" + std::to_string(agentStream().size()) +
                              R"(,"reason":"a packet that begins with 0xFF")"),
              std::string::npos)
        << garbage[0];
    EXPECT_EQ(s.statistics.garbageConnections, 1u);
}

TEST(Session, CutsTextsThatAreRepeated) {
    Session s(Format::json);
    const std::string longText(60000, 'x');
    s.play(byhand::joined(
        {byhand::initPacket(longText, std::string(60000, '\1')),
         byhand::packet({Writer().u8(146).u8(7).text(longText).trailer().done(),
                         byhand::servletStart({1, 1, 0, 0}, longText, longText, "u"),
                         byhand::timed(130, {}, {7}), byhand::timed(131, {}),
                         byhand::timed(118, {1, 1, 0, 0}, Writer().u32(1).text("C").done()),
                         byhand::timed(119, {1, 1, 0, 0})})}));
    for (const char* each : {"portalAuthentication", "lockAcquisition"}) {
        const std::vector<std::string> lines = s.lines.with(each);
        ASSERT_EQ(lines.size(), 1u) << each;
        EXPECT_LT(lines[0].size(), 2500u);
        EXPECT_NE(lines[0].find(std::string(252, 'x') + "\u2026\""), std::string::npos);
    }
}

// What is open, or half sent, at the end was not left so on purpose.
TEST(Session, TellsAnOrderlyEndFromACut) {
    Session s(Format::json);
    s.play(byhand::joined({byhand::initPacket(),
                           byhand::packet({byhand::servletStart({1, 1, 0, 0}, "n", "a", "u")})}));
    const std::vector<std::string> end = s.lines.with("disconnected\",");
    ASSERT_FALSE(end.empty());
    EXPECT_NE(end.back().find(R"("reason":"closed by the agent, with work open: 1")"),
              std::string::npos)
        << end.back();
    EXPECT_NE(end.back().find(R"("end":"cut","open":1})"), std::string::npos) << end.back();
}

TEST(Session, TellsOfAConnectionThatWasCutOff) {
    Session s(Format::json);
    const byhand::Bytes stream = agentStream();
    s.play(byhand::Bytes(stream.begin(), stream.end() - 1));
    EXPECT_NE(s.lines.text.find(R"("reason":"closed by the agent, in the middle of a packet")"),
              std::string::npos);
}

TEST(Session, KeepsOpenWorkWhenTheAgentAnnouncesItselfAgain) {
    Session s(Format::json);
    s.play(byhand::joined({byhand::packet({byhand::servletStart({1, 1, 0, 0}, "n", "a", "u")}),
                           byhand::initPacket(), byhand::packet({byhand::timed(5, {1, 1, 9, 0})}),
                           byhand::initPacket()}));
    EXPECT_EQ(s.lines.with(R"("event":"unidentified")").size(), 1u);
    EXPECT_EQ(s.lines.with(R"("event":"connected")").size(), 1u);
    EXPECT_EQ(s.lines.with(R"("event":"reannounced")").size(), 1u);
    EXPECT_EQ(s.lines.with(R"("outcome":"ok")").size(), 1u);
}

// An agent that makes its connection anew ends over the next one what is open on this one.
TEST(Session, IsGoneOnWithByTheNextConnectionOfTheSameAgent) {
    using Told = ConnectionHandler::Told;
    const struct {
        const char* peer;
        const char* node;
        bool whole, goesOn;
    } cases[] = {{"10.0.0.7:99", "node", true, true},
                 {"10.0.0.8:99", "node", true, false},
                 {"10.0.0.7:99", "other", true, false},
                 {"10.0.0.7:99", "node", false, false}};
    for (const auto& each : cases) {
        Session s(Format::json);
        EXPECT_TRUE(s.feed(byhand::joined(
            {byhand::initPacket("node"),
             byhand::packet({byhand::servletStart({1, 1, 0, 0}, "n", "a", "/outer"),
                             byhand::servletStart({1, 2, 1000, 0}, "n", "a", "/inner")}),
             byhand::hex(each.whole ? "" : "00")})));
        EXPECT_EQ(s.session.closed({kOrderlyEnd, true}, true),
                  each.whole ? Told::waits : Told::all);
        AgentSession next(s.services, 2, each.peer);
        EXPECT_EQ(next.received(byhand::joined(
                      {byhand::initPacket(each.node),
                       byhand::packet({byhand::servletStart({2, 1, 0, 0}, "n", "a", "/own"),
                                       byhand::timed(5, {1, 2, 3000, 0}),
                                       byhand::timed(5, {1, 1, 4000, 0})})})),
                  ConnectionHandler::Taken::all);
        if (each.whole) s.hangUp();
        const std::size_t ok = each.goesOn ? 2 : 0;
        EXPECT_EQ(s.lines.with(R"("outcome":"ok")").size(), ok);
        EXPECT_EQ(s.lines.with(R"("why":"disconnected")").size(), 2 - ok);
        EXPECT_EQ(s.lines.with(R"("outcome":"noStart")").size(), 2 - ok);
        EXPECT_EQ(s.lines.with(R"("end":"orderly","open":0})").size(), each.goesOn ? 1u : 0u);
        if (!each.goesOn) continue;
        EXPECT_NE(s.lines.with("/inner")[0].find(R"("id":2,"parent":1,"level":1,"wallMs":2.000)"),
                  std::string::npos)
            << s.lines.text;
        EXPECT_EQ(next.closed({kOrderlyEnd, true}, true), Told::waits) << "its own is open";
    }
}

struct LabelCase {
    const char* name;
    byhand::Bytes start, end;
    const char* shown;
};

class Labels : public testing::TestWithParam<LabelCase> {};

TEST_P(Labels, SayWhatTheWorkIs) {
    Session s(Format::json);
    s.play(byhand::packet({GetParam().start, GetParam().end}));
    const std::vector<std::string> lines = s.lines.with(R"("outcome":"ok")");
    ASSERT_EQ(lines.size(), 1u) << s.lines.text;
    EXPECT_NE(lines[0].find(GetParam().shown), std::string::npos) << lines[0];
}

byhand::Bytes texts(std::initializer_list<const char*> all) {
    Writer fields;
    for (const char* text : all) fields.text(text);
    return fields.done();
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Labels,
    testing::Values(
        LabelCase{"namedByItsUrl",
                  byhand::timed(4, {}, Writer().u8(0).raw(texts({"", "", "/u", "joe"})).done()),
                  byhand::timed(5, {}),
                  R"("name":"/u","application":"/u","url":"/u","user":"joe")"},
        LabelCase{"webServiceNamesTheApplicationFirst",
                  byhand::timed(199, {}, texts({"app", "op", "/u"})), byhand::timed(200, {}),
                  R"("name":"op","application":"app","url":"/u")"},
        LabelCase{"iiop", byhand::timed(150, {}, Writer().text("Cls").u32(0).text("m").done()),
                  byhand::timed(151, {}), R"("kind":"iiopClient",)"},
        LabelCase{"iiopName", byhand::timed(150, {}, Writer().text("Cls").u32(0).text("m").done()),
                  byhand::timed(151, {}), R"("name":"Cls.m")"},
        LabelCase{"token", byhand::timed(51, {}, byhand::hex("0004 00FF1234")),
                  byhand::timed(52, {}), R"("name":"00ff1234")"},
        LabelCase{"jms", byhand::timed(25, {}, texts({"srv", "queue", "sel"})),
                  byhand::timed(26, {}), R"("name":"queue","application":"","url":"srv")"},
        LabelCase{"jmsSelector", byhand::timed(25, {}, texts({"srv", "queue", "sel"})),
                  byhand::timed(26, {}), R"("selector":"sel")"},
        LabelCase{"fault", byhand::timed(203, {}, texts({"app", "Code", "text"})),
                  byhand::timed(204, {}), R"("name":"Code: text","application":"app")"},
        LabelCase{"pageNameIsInTheEnd", byhand::timed(140, {}),
                  byhand::timed(141, {}, texts({"page"})), R"("name":"page")"},
        LabelCase{"methodWithoutAName", byhand::methodStep(true, 1, 12, 0),
                  byhand::methodStep(false, 1, 12, 1), R"("name":"method 12")"},
        LabelCase{"allocation",
                  byhand::timed(124, {}, Writer().u32(3).text("java/lang/String").u32(42).done()),
                  byhand::timed(125, {}), R"("methodId":3,"method":"","line":42)"}),
    [](const auto& c) { return std::string(c.param.name); });

TEST(Names, AreFoundHoweverTheirIdsWereChosen) {
    std::unordered_map<std::uint32_t, int, MixedHash> table;
    table.reserve(1000);
    const std::size_t buckets = table.bucket_count();
    std::size_t longest = 0;
    for (std::uint32_t i = 0; i < 1000; ++i) table[i * static_cast<std::uint32_t>(buckets)] = 1;
    for (std::size_t i = 0; i < table.bucket_count(); ++i)
        longest = std::max(longest, table.bucket_size(i));
    EXPECT_LT(longest, 20u);
}

TEST(Fanout, TellsAllOutputsTheSame) {
    Lines first, second;
    const auto json = makeOutput(Format::json, first);
    const auto alsoJson = makeOutput(Format::json, second);
    Fanout both;
    both.add(*json);
    both.add(*alsoJson);
    Statistics statistics;
    SessionServices services{both, statistics, [] { return std::int64_t{0}; }};
    AgentSession session(services, 1, "peer");
    EXPECT_NE(session.received(agentStream()), ConnectionHandler::Taken::refused);
    EXPECT_NE(session.received(byhand::hex("FF")), ConnectionHandler::Taken::all);
    EXPECT_EQ(session.closed({kOrderlyEnd, true}, true), ConnectionHandler::Told::all);
    both.summary(statistics);
    both.flush();
    EXPECT_EQ(first.with("\"type\"").size(), 13u);
    EXPECT_EQ(first.text, second.text);
}

TEST(Names, OfPortalStepsComeFromAnEarlierRecord) {
    Session s(Format::json);
    s.play(byhand::packet({byhand::hex("92 FE 0005 6C6F67696E 7F7F"),
                           byhand::timed(130, {}, {0xFE}), byhand::timed(131, {})}));
    EXPECT_EQ(s.lines.with(R"("kind":"portalAuthentication")").size(), 1u);
    EXPECT_NE(s.lines.with(R"("type":"call")")[0].find(R"("name":"login")"), std::string::npos);
}

TEST(Names, OfMethodsAreForgottenWithTheirClass) {
    const byhand::Bytes load =
        byhand::hex("01 00000001 0001 43 00000001 00000009 0001 6D 0000 7F7F");
    const byhand::Bytes unload = byhand::hex("0C 00000001 00000000 00000001 00000009 7F7F");
    Session s(Format::json);
    s.play(byhand::packet({load, byhand::methodStep(true, 1, 9, 0),
                           byhand::methodStep(false, 1, 9, 1), unload,
                           byhand::methodStep(true, 1, 9, 2), byhand::methodStep(false, 1, 9, 3)}));
    const std::vector<std::string> lines = s.lines.with(R"("type":"method")");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find(R"("name":"C.m")"), std::string::npos);
    EXPECT_NE(lines[1].find(R"("name":"method 9")"), std::string::npos);
}

// What --show makes of JSON lines is what the table would have shown.
TEST(Show, MakesTheTableOfJsonLines) {
    Session json(Format::json), table(Format::table);
    json.play(agentStream());
    table.play(agentStream());
    // What is no number is no row: it is shown as what it is, made safe.
    const std::string foreign = R"({"type":"request","kind":"ejb","thread":)"
                                "\x1b[2J}\n";
    std::istringstream in(json.lines.text + foreign + "{\"type\":\"request\", broken\n");
    Lines shown;
    std::string wrong;
    EXPECT_TRUE(show(in, shown, wrong));
    EXPECT_EQ(shown.with("servlet"), table.lines.with("servlet"));
    EXPECT_EQ(shown.with("select"), table.lines.with("select"));
    EXPECT_EQ(shown.with("lock: thread"), table.lines.with("lock: thread"));
    EXPECT_EQ(shown.with("exception Oops"), table.lines.with("exception Oops"));
    EXPECT_EQ(shown.with("    at "), table.lines.with("    at "));
    EXPECT_EQ(shown.with("left out: 1 lines").size(), 1u);
    EXPECT_EQ(shown.with("-- request kind=ejb thread=\\x1b[2J").size(), 1u);
    EXPECT_EQ(shown.with("PSSTATUS").size() + shown.with("status=line\\nbreak").size(), 1u);
}

}  // namespace
