// Makes rows of spans.
#pragma once

#include "server/join/AgentNames.h"
#include "server/join/SpanJoiner.h"
#include "server/model/Agent.h"
#include "server/model/SpanRow.h"

namespace server {

// Fills all of row, whose strings keep their memory from one span to the next.
void fillRow(const Agent& agent, const AgentNames& names, const Span& span, SpanRow& row);

}  // namespace server
