#include "server/print/LockSentence.h"

#include "dc2ps/Text.h"
#include "server/model/SpanKind.h"

namespace server {

using dc2ps::Escape;

namespace {

void appendQuoted(std::string& out, std::string_view untrusted) {
    out += '"';
    dc2ps::appendText(out, untrusted, Escape::quoted);
    out += '"';
}

void appendMethod(std::string& out, std::string_view method) {
    if (method.empty()) return;
    out += " in ";
    dc2ps::appendText(out, method, Escape::terminal);
}

void appendOwner(std::string& out, const LockSentence& step) {
    if (step.owner.empty() && step.ownerMethod.empty()) return;
    out += ", held by ";
    appendQuoted(out, step.owner);
    if (!step.ownerApplication.empty()) {
        out += " of ";
        appendQuoted(out, step.ownerApplication);
    }
    appendMethod(out, step.ownerMethod);
}

}  // namespace

void appendLockSentence(std::string& out, const LockSentence& step) {
    const bool contention = step.kind == spanKindName(SpanKind::lockContention);
    const bool release = step.kind == spanKindName(SpanKind::lockRelease);
    const bool whole = !step.wallMs.empty();
    const auto wall = [&] {
        dc2ps::appendText(out, step.wallMs, Escape::terminal);
        out += " ms";
    };
    out += "thread ";
    dc2ps::appendText(out, step.thread, Escape::terminal);
    if (step.inRequest) {
        out += " in ";
        appendQuoted(out, step.request);
    }
    if (!step.began) {
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
    dc2ps::appendText(out, step.lock.empty() ? "a lock" : step.lock, Escape::terminal);
    appendMethod(out, step.method);
    if (contention) {
        appendOwner(out, step);
    } else if (whole) {
        out += " after ";
        wall();
    }
    if (step.givenUp.empty()) return;
    out += "; its end did not arrive (";
    dc2ps::appendText(out, step.givenUp, Escape::terminal);
    out += ')';
}

}  // namespace server
