#include "server/receive/AgentSession.h"

#include "server/receive/StreamRecorder.h"

namespace server {

using dc2ps::FeedResult;
using dc2ps::Record;
using dc2ps::Timed;

AgentSession::AgentSession(SessionServices& services, std::uint64_t connection, std::string peer)
    : services_(services), decoder_(services.decodeLimits), joiner_(*this, services.joinLimits) {
    agent_.connection = connection;
    agent_.peer = std::move(peer);
    ++services_.statistics.connections;
    if (services_.recorder) recorded_ = services_.recorder->streamOf(connection);
}

AgentSession::~AgentSession() = default;

bool AgentSession::received(dc2ps::Bytes untrusted) {
    if (recorded_) recorded_->write(untrusted);
    agent_.bytes += untrusted.size();
    services_.statistics.bytes += untrusted.size();
    const FeedResult result = decoder_.feed(untrusted, *this);
    if (result.status == FeedResult::Status::error) {
        ++services_.statistics.garbageConnections;
        services_.output.garbage(agent_, result.offset, result.reason, services_.nowMillis());
    }
    services_.output.flush();
    return result.status != FeedResult::Status::error;
}

void AgentSession::closed(const std::string& reason) {
    joiner_.close();
    const FeedResult last = decoder_.feed({}, *this);
    const bool cutOff = last.status == FeedResult::Status::needMore && agent_.bytes > 0;
    services_.output.agent(agent_, AgentEvent::disconnected,
                           cutOff ? reason + ", in the middle of a packet" : reason,
                           services_.nowMillis());
    services_.output.flush();
}

void AgentSession::onRecord(std::uint64_t, const Record& record) {
    std::visit(
        [&](const auto& r) {
            using R = std::decay_t<decltype(r)>;
            ++services_.statistics.recordsByType[static_cast<std::size_t>(r.type)];
            if constexpr (std::is_same_v<R, dc2ps::AgentInit> ||
                          std::is_same_v<R, dc2ps::ServerInit>) {
                return take(r);
            } else if constexpr (std::is_same_v<R, dc2ps::PacketHeader>) {
                return takePacket();
            } else {
                ++agent_.records;
                ++services_.statistics.records;
                if constexpr (std::is_base_of_v<Timed, R>) {
                    joiner_.timed(record, r);
                } else if constexpr (std::is_same_v<R, dc2ps::MethodStep>) {
                    joiner_.method(record, r);
                } else if constexpr (std::is_same_v<R, dc2ps::Gc>) {
                    joiner_.gc(r);
                } else {
                    if constexpr (std::is_same_v<R, dc2ps::Dropped>) {
                        services_.statistics.count(r);
                        services_.output.note(agent_, record);
                        return joiner_.dropped(r);
                    }
                    if constexpr (std::is_same_v<R, dc2ps::ClassLoad> ||
                                  std::is_same_v<R, dc2ps::PortalMethodName>)
                        agent_.names.add(r);
                    if constexpr (std::is_same_v<R, dc2ps::ClassUnload>) agent_.names.remove(r);
                    services_.output.note(agent_, record);
                }
            }
        },
        record);
}

void AgentSession::takePacket() {
    ++agent_.packets;
    ++services_.statistics.packets;
    if (agent_.known || toldUnidentified_) return;
    toldUnidentified_ = true;
    services_.output.agent(agent_, AgentEvent::unidentified, {}, services_.nowMillis());
}

void AgentSession::take(const dc2ps::AgentInit& init) {
    agent_.platform = init.platform;
    agent_.agentMillis = init.wallMillis;
}

// The second half of an init packet. Open work stays open: when another connection of the same
// collector was made anew, this one did not lose anything.
void AgentSession::take(const dc2ps::ServerInit& init) {
    const bool again = agent_.known;
    ++agent_.packets;
    ++services_.statistics.packets;
    agent_.known = true;
    agent_.standalone = init.type == dc2ps::RecordType::standaloneInit;
    agent_.componentId = init.componentId;
    agent_.cluster = init.cluster;
    agent_.node = init.node;
    agent_.server = init.server;
    agent_.version = init.version;
    agent_.adminPort = init.adminPort;
    services_.output.agent(agent_, again ? AgentEvent::reannounced : AgentEvent::connected, {},
                           services_.nowMillis());
}

void AgentSession::onSpan(const Span& span) {
    auto& outcomes =
        isRequest(span.kind) ? services_.statistics.requests : services_.statistics.calls;
    outcomes.count(span.outcome);
    services_.output.span(agent_, span);
}

void AgentSession::onGc(const GcPause& pause) {
    services_.output.gc(agent_, pause);
}

}  // namespace server
