// Who is at the other end of a connection.
//
// All strings are as they came from the wire: untrusted, in modified UTF-8.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "server/join/AgentNames.h"

namespace server {

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
    AgentNames names;

    std::uint64_t bytes = 0, packets = 0, records = 0;  // received on this connection
};

}  // namespace server
