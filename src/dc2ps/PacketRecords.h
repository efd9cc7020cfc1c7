// What opens a packet or a connection. Included by Records.h, their document.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "dc2ps/RecordParts.h"

namespace dc2ps {

// 0: opens every packet but an init packet; as many records follow.
struct PacketHeader {
    RecordType type{};
    std::int32_t recordCount = 0;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        f("recordCount", r.recordCount);
    }
};

// The first record of an init packet: int 2000 stands before its type byte 100.
struct AgentInit {
    RecordType type{};
    std::int32_t version = 0;
    std::uint8_t platform = 0;
    std::uint8_t format = 0;      // always 1
    std::int64_t wallMillis = 0;  // the agent's clock, ms since 1970
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        f("version", r.version);
        behindType(r, f);
    }
    template <class R, class F>
    static constexpr void behindType(R& r, F&& f) {
        f("platform", r.platform);
        f("format", r.format);
        f("wallMillis", r.wallMillis);
    }
};

// The second record of an init packet: 101 from an application server, 107 from any other VM. The
// latter has no cluster, and names the server before the node.
struct ServerInit {
    RecordType type{};
    std::uint8_t kind = 0;  // 200 or 204
    std::array<std::uint8_t, 3> version{};
    std::string_view componentId, cluster, node, server;
    std::int32_t adminPort = 0;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        f("kind", r.kind);
        f("major", r.version[0]);
        f("minor", r.version[1]);
        f("micro", r.version[2]);
        f("componentId", r.componentId);
        if (r.type == RecordType::serverInit) {
            f("cluster", r.cluster);
            f("node", r.node);
            f("server", r.server);
        } else {
            f("server", r.server);
            f("node", r.node);
        }
        f("adminPort", r.adminPort);
    }
};

}  // namespace dc2ps
