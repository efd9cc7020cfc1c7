#include "server/receive/AgentSession.h"

#include <algorithm>

#include "dc2ps/Text.h"
#include "server/join/CutText.h"
#include "server/join/RowMaker.h"
#include "server/receive/StreamRecorder.h"

namespace server {

using dc2ps::FeedResult;
using dc2ps::Record;
using dc2ps::Timed;

namespace {

constexpr std::size_t kWrittenPerTurn = 256u << 10;  // bytes
constexpr std::size_t kToldPerTurn = 256;            // pieces of work that are given up
constexpr std::size_t kMaxWaiting = 64;              // as many as an agent has connections
constexpr std::int32_t kMaxMqiCalls = 256;           // as many as there are types of calls

}  // namespace

AgentSession::AgentSession(SessionServices& services, std::uint64_t connection, std::string peer)
    : services_(services), decoder_(services.decodeLimits), joiner_(*this, services.joinLimits) {
    agent_.connection = connection;
    agent_.peer = std::move(peer);
    ++services_.statistics.connections;
    if (services_.recorder) recorded_ = services_.recorder->streamOf(connection);
}

AgentSession::~AgentSession() {
    waitNoLonger();
}

AgentSession::Taken AgentSession::received(dc2ps::Bytes untrusted) {
    if (recorded_) recorded_->write(untrusted);
    agent_.bytes += untrusted.size();
    services_.statistics.bytes += untrusted.size();
    const FeedResult result = decoder_.feed(untrusted, *this);
    const bool sound = result.status != FeedResult::Status::error;
    if (sound) {
        const auto undecoded = static_cast<std::size_t>(agent_.bytes - result.offset);
        mostUndecoded_ = undecoded == 0 ? 0 : std::max(mostUndecoded_, undecoded);
    } else {
        ++services_.statistics.garbageConnections;
        services_.output.garbage(agent_, result.offset, result.reason, services_.nowMillis());
    }
    const std::size_t written = services_.output.flush();
    if (!sound) return Taken::refused;
    return written > kWrittenPerTurn ? Taken::enough : Taken::all;
}

AgentSession::Told AgentSession::closed(const Ending& ending, bool mayWait) {
    if (endMillis_ == 0) endMillis_ = services_.nowMillis();
    if (mayWait && waits(ending)) return Told::waits;
    waitNoLonger();
    if (!ending_) {
        agent_.openAtEnd = joiner_.openCount();
        agent_.ending = ending.byPeer ? AgentEnding::orderly : AgentEnding::byServer;
        endReason_ = describe(ending);
        ending_ = true;
    }
    const bool all = joiner_.close(kToldPerTurn);
    if (all) services_.output.agent(agent_, AgentEvent::disconnected, endReason_, endMillis_);
    services_.output.flush();
    return all ? Told::all : Told::some;
}

bool AgentSession::betweenPackets() {
    return decoder_.feed({}, *this).status != FeedResult::Status::needMore;
}

// What tells one agent process from another, as far as it tells. The port of its end is another one
// each time.
std::string AgentSession::identity() const {
    std::string identity = agent_.peer.substr(0, agent_.peer.rfind(':'));
    for (const std::string* text :
         {&agent_.node, &agent_.server, &agent_.componentId, &agent_.cluster}) {
        identity += '\0';
        identity += *text;
    }
    identity += '\0';
    dc2ps::appendNumber(identity, std::int64_t{agent_.adminPort});
    return identity += agent_.standalone ? 's' : 'a';
}

// An agent that makes its connection anew ends what is open here over its next one.
bool AgentSession::waits(const Ending& ending) {
    if (ending_ || !agent_.known || !ending.byPeer || ending.reason != kOrderlyEnd ||
        joiner_.openCount() == 0 || !betweenPackets())
        return false;
    if (waiting_) return true;
    const std::string key = identity();
    if (services_.waiting.count(key) >= kMaxWaiting) return false;
    services_.waiting.emplace(key, this);
    return waiting_ = true;
}

void AgentSession::waitNoLonger() {
    if (waiting_)
        std::erase_if(services_.waiting,
                      [this](const auto& entry) { return entry.second == this; });
    waiting_ = false;
}

void AgentSession::takeOver() {
    const auto [from, to] = services_.waiting.equal_range(identity());
    for (auto each = from; each != to; ++each) joiner_.takeOver(each->second->joiner_);
}

// A peer that has something under way does not leave of its own accord.
std::string AgentSession::describe(const Ending& ending) {
    std::string reason = ending.reason;
    if (!betweenPackets() && agent_.bytes > 0) {
        reason += ", in the middle of a packet";
    } else if (agent_.openAtEnd > 0 && ending.byPeer) {
        reason += ", with work open: ";
        dc2ps::appendNumber(reason, std::uint64_t{agent_.openAtEnd});
    }
    if (ending.byPeer && reason != kOrderlyEnd) agent_.ending = AgentEnding::cut;
    return reason;
}

std::size_t AgentSession::heldBytes() const {
    // A buffer that grows has twice the room.
    return sizeof *this + 2 * mostUndecoded_ + joiner_.heldBytes() + names_.heldBytes();
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
                        names_.add(r);
                    if constexpr (std::is_same_v<R, dc2ps::ClassUnload>) names_.remove(r);
                    if constexpr (std::is_same_v<R, dc2ps::Mqi>) return note(r);
                    services_.output.note(agent_, record);
                }
            }
        },
        record);
}

// An honest one has at most a line for each type of call.
void AgentSession::note(dc2ps::Mqi mqi) {
    mqi.elementCount = std::min(mqi.elementCount, kMaxMqiCalls);
    services_.output.note(agent_, mqi);
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
    agent_.componentId = cutText(init.componentId, kMaxIdentity);
    agent_.cluster = cutText(init.cluster, kMaxIdentity);
    agent_.node = cutText(init.node, kMaxIdentity);
    agent_.server = cutText(init.server, kMaxIdentity);
    agent_.version = init.version;
    agent_.adminPort = init.adminPort;
    services_.output.agent(agent_, again ? AgentEvent::reannounced : AgentEvent::connected, {},
                           services_.nowMillis());
    takeOver();
}

void AgentSession::onSpan(const Span& span) {
    auto& outcomes =
        isRequest(span.kind) ? services_.statistics.requests : services_.statistics.calls;
    outcomes.count(span.outcome);
    fillRow(agent_, names_, span, row_);
    services_.output.span(agent_, row_);
}

void AgentSession::onGc(const GcPause& pause) {
    services_.output.gc(agent_, pause);
}

}  // namespace server
