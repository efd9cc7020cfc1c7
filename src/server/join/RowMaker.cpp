#include "server/join/RowMaker.h"

#include <type_traits>

#include "server/join/CutText.h"
#include "server/join/SpanLabels.h"

namespace server {

namespace {

void fillDetails(const AgentNames& names, const Span& span, SpanRow::Details& details) {
    std::visit(
        [&](const auto& r) {
            using R = std::decay_t<decltype(r)>;
            if constexpr (std::is_same_v<R, dc2ps::LockContention>) {
                details.ownerType = r.ownerType;
                details.ownerName = r.ownerName;
                details.ownerApplication = r.ownerApplication;
                details.ownerMethodId = r.ownerMethodId;
                details.ownerMethod = names.method(r.ownerMethodId);
            }
            if constexpr (requires { r.methodId; } && !std::is_same_v<R, dc2ps::PortalStep>) {
                details.methodId = r.methodId;
                details.method = names.method(r.methodId);
            }
            if constexpr (std::is_same_v<R, dc2ps::HeapAllocation>) details.line = r.line;
            if constexpr (std::is_same_v<R, dc2ps::JmsCall>)
                if (r.hasSelector()) details.selector = r.selector;
            if constexpr (std::is_same_v<R, dc2ps::JdoCall>) details.arguments = r.arguments;
            if constexpr (std::is_same_v<R, dc2ps::MqCall>) details.action = r.action;
            if constexpr (std::is_same_v<R, dc2ps::GpsMqCall>)
                appendHex(details.token.emplace(), r.token.bytes);
        },
        *span.start);
    if (groupOf(span.kind) != SpanGroup::lock || !span.request) return;
    SpanLabels request;
    labelRecord(*span.request, names, request);
    details.requestName = cutText(request.name, kMaxRepeated);
    details.requestApplication = cutText(request.application, kMaxRepeated);
}

}  // namespace

void fillRow(const Agent& agent, const AgentNames& names, const Span& span, SpanRow& row) {
    row.kind = span.kind;
    row.time = timeOf(span);
    row.connection = agent.connection;
    row.node = agent.node;
    row.server = agent.server;
    labelSpan(span, names, row.labels);
    row.thread = span.threadId;
    row.depth = span.depth;
    row.id = span.id;
    row.parent = span.parentId;
    row.level = span.level;
    row.wall = span.wall;
    row.cpu = span.cpu;
    row.outcome = span.outcome;
    row.why = span.why;
    row.details = {};
    if (span.start) fillDetails(names, span, row.details);
}

}  // namespace server
