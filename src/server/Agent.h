// Who is at the other end of a connection, and what the numbers in its records stand for.
//
// All strings are as they came from the wire: untrusted, in modified UTF-8.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "dc2ps/Records.h"

namespace server {

// Names of methods, learned from class-load records and from portal method records.
//
// Memory: at most kMaxBytes of names; methods that come after that keep their numbers only.
class AgentNames {
public:
    static constexpr std::size_t kMaxBytes = 64u << 20;  // an entry's own 96 bytes included

    void add(const dc2ps::ClassLoad& loaded);
    void remove(const dc2ps::ClassUnload& unloaded);
    void add(const dc2ps::PortalMethodName& named);

    // "package.Class.method"; empty when unknown. Valid until the next change.
    std::string_view method(std::uint32_t methodId) const;
    std::string_view portalMethod(std::int8_t methodId) const;

private:
    std::unordered_map<std::uint32_t, std::string> methods_;
    std::size_t bytes_ = 0;
    std::array<std::string, 256> portalMethods_;
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
    AgentNames names;

    std::uint64_t bytes = 0, packets = 0, records = 0;  // received on this connection
};

}  // namespace server
