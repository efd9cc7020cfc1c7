// Who is at the other end of a connection.
//
// All strings are as they came from the wire: untrusted, in modified UTF-8.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace server {

enum class AgentEnding : std::uint8_t {
    orderly,  // the peer hung up between two packets, with nothing open
    cut,      // the peer hung up, or was lost, with something under way
    byServer
};

struct Agent {
    std::uint64_t connection = 0;  // counted from 1
    std::string peer;              // "address:port"
    bool known = false;            // an init packet has arrived; what follows is empty before
    bool standalone = false;       // not an application server
    std::string componentId, cluster, node, server;
    std::array<std::uint8_t, 3> version{};
    std::int32_t adminPort = 0;
    std::uint8_t platform = 0;
    std::int64_t agentMillis = 0;  // its clock when it sent the init packet, ms since 1970

    std::uint64_t bytes = 0, packets = 0, records = 0;  // received on this connection

    AgentEnding ending = AgentEnding::orderly;  // once it is disconnected
    std::uint64_t openAtEnd = 0;                // pieces of work that were open then
};

}  // namespace server
