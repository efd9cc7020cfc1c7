// A lock step as a sentence: who did what to which lock. The same text for a live connection and
// for JSON lines of an earlier run.
#pragma once

#include <string>

#include "server/model/SpanRow.h"

namespace server {

//   thread 7 in "checkout" waited 120.000 ms for com.shop.Cache in com.shop.Cache.get,
//   held by "report" of "statistics" in com.shop.Report.run
void appendLockSentence(std::string& out, const SpanRow& step);

}  // namespace server
