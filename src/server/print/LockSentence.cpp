#include "server/print/LockSentence.h"

#include <string_view>

#include "dc2ps/Text.h"

namespace server {

using dc2ps::Escape;

namespace {

using Text = std::optional<std::string>;

bool holds(const Text& text) {
    return text && !text->empty();
}

void appendQuoted(std::string& out, const Text& untrusted) {
    out += '"';
    if (untrusted) dc2ps::appendText(out, *untrusted, Escape::quoted);
    out += '"';
}

void appendMethod(std::string& out, const Text& method) {
    if (!holds(method)) return;
    out += " in ";
    dc2ps::appendText(out, *method, Escape::terminal);
}

void appendOwner(std::string& out, const SpanRow::Details& step) {
    if (!holds(step.ownerName) && !holds(step.ownerMethod)) return;
    out += ", held by ";
    appendQuoted(out, step.ownerName);
    if (holds(step.ownerApplication)) {
        out += " of ";
        appendQuoted(out, step.ownerApplication);
    }
    appendMethod(out, step.ownerMethod);
}

}  // namespace

void appendLockSentence(std::string& out, const SpanRow& step) {
    const bool contention = step.kind == SpanKind::lockContention;
    const bool release = step.kind == SpanKind::lockRelease;
    const bool whole = step.wall.has_value();
    const auto wall = [&] {
        dc2ps::appendDecimal(out, step.wall->count(), 3);
        out += " ms";
    };
    out += "thread ";
    dc2ps::appendNumber(out, std::uint64_t{step.thread});
    if (step.details.requestName) {
        out += " in ";
        appendQuoted(out, step.details.requestName);
    }
    if (step.outcome == Outcome::noStart) {
        out += contention ? " stopped waiting for a lock"
               : release  ? " released a lock"
                          : " acquired a lock";
        out += ", the beginning of which is not known";
        return;
    }
    if (contention && whole) {
        out += " waited ";
        wall();
        out += " for ";
    } else if (contention) {
        out += " waits for ";
    } else if (release) {
        out += whole ? " released " : " releases ";
    } else {
        out += whole ? " acquired " : " acquires ";
    }
    const std::string& lock = step.labels.name;
    dc2ps::appendText(out, lock.empty() ? "a lock" : std::string_view(lock), Escape::terminal);
    appendMethod(out, step.details.method);
    if (contention) {
        appendOwner(out, step.details);
    } else if (whole) {
        out += " after ";
        wall();
    }
    if (step.why == GivenUp::no) return;
    out.append("; its end did not arrive (").append(givenUpName(step.why)).append(")");
}

}  // namespace server
