// Names of methods, learned from class-load records and from portal method records.
//
// All strings are as they came from the wire: untrusted, in modified UTF-8. They stand in many
// lines, so a longer one is cut.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "dc2ps/Records.h"
#include "server/join/MixedHash.h"

namespace server {

// Memory: at most kMaxBytes of names; methods that come after that keep their numbers only.
class AgentNames {
public:
    static constexpr std::size_t kMaxBytes = 64u << 20;  // an entry's own 96 bytes included
    // Of one class: what the VM allows. A record with more is not worth the time of the others.
    static constexpr std::size_t kMaxMethods = 65535;

    void add(const dc2ps::ClassLoad& loaded);
    void remove(const dc2ps::ClassUnload& unloaded);
    void add(const dc2ps::PortalMethodName& named);

    // "package.Class.method"; empty when unknown. Valid until the next change.
    std::string_view method(std::uint32_t methodId) const;
    std::string_view portalMethod(std::int8_t methodId) const;

    std::size_t heldBytes() const;

private:
    std::unordered_map<std::uint32_t, std::string, MixedHash> methods_;
    std::size_t bytes_ = 0;
    std::array<std::string, 256> portalMethods_;
    std::size_t portalBytes_ = 0;
};

}  // namespace server
