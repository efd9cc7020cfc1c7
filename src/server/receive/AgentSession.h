// One connection from its first byte to its last: decodes what arrives, joins it, shows it, counts
// it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "dc2ps/StreamDecoder.h"
#include "server/join/AgentNames.h"
#include "server/join/SpanJoiner.h"
#include "server/model/Agent.h"
#include "server/model/Output.h"
#include "server/model/Statistics.h"
#include "server/receive/ConnectionHandler.h"

namespace server {

class AgentSession;
class StreamRecorder;

// What all sessions share; outlives them.
struct SessionServices {
    Output& output;
    Statistics& statistics;
    std::function<std::int64_t()> nowMillis;  // ms since 1970
    StreamRecorder* recorder = nullptr;       // null: nothing is recorded
    dc2ps::Limits decodeLimits{};
    JoinLimits joinLimits{};
    // Those whose connection has ended with work open, by who they were.
    std::multimap<std::string, AgentSession*> waiting{};
};

class AgentSession final : public ConnectionHandler, dc2ps::RecordSink, SpanSink {
public:
    AgentSession(SessionServices& services, std::uint64_t connection, std::string peer);
    ~AgentSession() override;

    Taken received(dc2ps::Bytes untrusted) override;
    Told closed(const Ending& ending, bool mayWait) override;
    bool identified() const override { return agent_.known; }
    std::size_t heldBytes() const override;

private:
    void onRecord(std::uint64_t offset, const dc2ps::Record& record) override;
    void onSpan(const Span& span) override;
    void onGc(const GcPause& pause) override;
    void take(const dc2ps::AgentInit& init);
    void take(const dc2ps::ServerInit& init);
    void takePacket();
    void note(dc2ps::Mqi mqi);
    std::string describe(const Ending& ending);
    bool betweenPackets();
    std::string identity() const;
    bool waits(const Ending& ending);
    void waitNoLonger();
    void takeOver();

    SessionServices& services_;
    Agent agent_;
    AgentNames names_;
    bool toldUnidentified_ = false;
    bool ending_ = false;
    bool waiting_ = false;
    std::int64_t endMillis_ = 0;  // 0: it has not ended
    std::string endReason_;
    dc2ps::StreamDecoder decoder_;
    std::size_t mostUndecoded_ = 0;  // bytes kept by the decoder at a time, since it kept none
    SpanJoiner joiner_;
    SpanRow row_;  // the one in hand
    std::unique_ptr<class RecordedStream> recorded_;
};

}  // namespace server
