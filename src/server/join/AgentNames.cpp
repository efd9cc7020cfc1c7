#include "server/join/AgentNames.h"

#include <algorithm>

namespace server {

namespace {

constexpr std::size_t kEntryBytes = 96;  // node, key and string object of a map entry, roughly

}  // namespace

void AgentNames::add(const dc2ps::ClassLoad& loaded) {
    std::string prefix(loaded.className);
    std::replace(prefix.begin(), prefix.end(), '/', '.');
    prefix += '.';
    loaded.forEachMethod([&](const dc2ps::ClassLoad::Method& method) {
        const std::size_t size = prefix.size() + method.name.size();
        const auto known = methods_.find(method.methodId);
        if (known != methods_.end()) {  // sent again after a reconnect, or the id was reused
            if (bytes_ - known->second.size() + size > kMaxBytes) return;
            bytes_ += size - known->second.size();
            known->second.assign(prefix).append(method.name);
        } else if (bytes_ + kEntryBytes + size <= kMaxBytes) {
            bytes_ += kEntryBytes + size;
            methods_.emplace(method.methodId, prefix).first->second.append(method.name);
        }
    });
}

void AgentNames::remove(const dc2ps::ClassUnload& unloaded) {
    for (std::int32_t i = 0; i < unloaded.methodCount; ++i) {
        const auto known = methods_.find(unloaded.methodId(static_cast<std::size_t>(i)));
        if (known == methods_.end()) continue;
        bytes_ -= kEntryBytes + known->second.size();
        methods_.erase(known);
    }
}

void AgentNames::add(const dc2ps::PortalMethodName& named) {
    portalMethods_[static_cast<std::uint8_t>(named.methodId)] = named.methodName;
}

std::string_view AgentNames::method(std::uint32_t methodId) const {
    const auto known = methods_.find(methodId);
    return known == methods_.end() ? std::string_view{} : std::string_view(known->second);
}

std::string_view AgentNames::portalMethod(std::int8_t methodId) const {
    return portalMethods_[static_cast<std::uint8_t>(methodId)];
}

}  // namespace server
