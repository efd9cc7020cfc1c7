// A lock step as a sentence: who did what to which lock. The same text for a live connection and
// for JSON lines of an earlier run.
#pragma once

#include <string>
#include <string_view>

namespace server {

// Untrusted texts; an empty one is left out of the sentence.
struct LockSentence {
    std::string_view kind;  // as spanKindName() has it
    std::string_view thread;
    bool inRequest = false;
    std::string_view request;
    std::string_view lock;
    std::string_view method;
    std::string_view wallMs;   // empty: begin and end did not both arrive
    bool began = true;         // the begin arrived
    std::string_view givenUp;  // why the end is no longer awaited
    std::string_view owner;    // contention: the request that holds the lock
    std::string_view ownerApplication;
    std::string_view ownerMethod;
};

//   thread 7 in "checkout" waited 120.000 ms for com.shop.Cache in com.shop.Cache.get,
//   held by "report" of "statistics" in com.shop.Report.run
void appendLockSentence(std::string& out, const LockSentence& step);

}  // namespace server
