// Names of methods, learned from class-load records and from portal method records.
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

}  // namespace server
