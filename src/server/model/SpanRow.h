// A finished piece of work as it is shown and kept: owned, so that it outlives the records it was
// made of and can wait for a slow output.
//
// Texts are untrusted, as from the wire. fields(row, f) calls f("name", field) for every field in
// the order in which rows are written: whoever writes, reads or keeps a row goes by it. A duration
// without a value is not known; "why" and the details are left out where there is none.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "server/model/SpanKind.h"

namespace server {

enum class Outcome : std::uint8_t {
    ok,          // start and end arrived
    error,       // start and end arrived, and the end tells of an error
    unfinished,  // the end did not arrive; "why" tells why it is no longer awaited
    noStart      // an end whose start did not arrive
};

enum class GivenUp : std::uint8_t {
    no,
    replaced,  // other work began or ended at its place: its end was lost, or it was cancelled
    enclosingEnded,  // the work around it ended
    dropped,         // the agent dropped records of its thread
    tooMany,         // a limit on unfinished work was reached
    disconnected     // the connection ended
};

const char* outcomeName(Outcome outcome);
const char* givenUpName(GivenUp why);  // empty for no

using MicroTime = std::chrono::sys_time<std::chrono::microseconds>;
using Micros = std::optional<std::chrono::microseconds>;
using Nanos = std::optional<std::chrono::nanoseconds>;

// What a piece of work is called; join/SpanLabels.h tells which kind has what.
struct SpanLabels {
    std::string name, application, url, user;
};

struct SpanRow {
    // What only some kinds have.
    struct Details {
        std::optional<std::int8_t> ownerType;  // who holds what a thread waits for
        std::optional<std::string> ownerName, ownerApplication;
        std::optional<std::uint32_t> ownerMethodId;
        std::optional<std::string> ownerMethod;
        std::optional<std::uint32_t> methodId;  // where it happens
        std::optional<std::string> method;
        std::optional<std::int32_t> line;
        std::optional<std::string> selector, arguments;
        std::optional<std::uint8_t> action;
        std::optional<std::string> token;                            // in hex
        std::optional<std::string> requestName, requestApplication;  // around a lock step
    };

    SpanKind kind{};
    MicroTime time;                // when it began; when it ended, for noStart
    std::uint64_t connection = 0;  // counted from 1
    std::string node, server;
    SpanLabels labels;
    std::uint32_t thread = 0;
    std::uint8_t depth = 0;    // as on the wire; 0 for a method
    std::uint64_t id = 0;      // counted from 1 within the connection
    std::uint64_t parent = 0;  // the id of the work around it; 0: none
    std::int32_t level = 0;    // how many pieces of work are open around it
    Micros wall;               // none unless start and end arrived
    Nanos cpu;
    Outcome outcome = Outcome::ok;
    GivenUp why = GivenUp::no;
    Details details;

    template <class Row, class F>
    static void fields(Row& r, F&& f) {
        f("kind", r.kind);
        f("time", r.time);
        f("connection", r.connection);
        f("node", r.node);
        f("server", r.server);
        f("name", r.labels.name);
        f("application", r.labels.application);
        f("url", r.labels.url);
        f("user", r.labels.user);
        f("thread", r.thread);
        f("depth", r.depth);
        f("id", r.id);
        f("parent", r.parent);
        f("level", r.level);
        f("wallMs", r.wall);
        f("cpuMs", r.cpu);
        f("outcome", r.outcome);
        f("why", r.why);
        f("ownerType", r.details.ownerType);
        f("ownerName", r.details.ownerName);
        f("ownerApplication", r.details.ownerApplication);
        f("ownerMethodId", r.details.ownerMethodId);
        f("ownerMethod", r.details.ownerMethod);
        f("methodId", r.details.methodId);
        f("method", r.details.method);
        f("line", r.details.line);
        f("selector", r.details.selector);
        f("arguments", r.details.arguments);
        f("action", r.details.action);
        f("token", r.details.token);
        f("requestName", r.details.requestName);
        f("requestApplication", r.details.requestApplication);
    }
};

}  // namespace server
