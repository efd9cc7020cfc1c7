#include "server/join/AgentNames.h"

#include <algorithm>
#include <utility>

#include "server/join/CutText.h"

namespace server {

namespace {

constexpr std::size_t kEntryBytes = 96;  // node, key and string object of a map entry, roughly

}  // namespace

void AgentNames::add(const dc2ps::ClassLoad& loaded) {
    std::string prefix(loaded.className.substr(0, kMaxRepeated));
    std::replace(prefix.begin(), prefix.end(), '/', '.');
    prefix += '.';
    std::size_t taken = 0;
    loaded.forEachMethod([&](const dc2ps::ClassLoad::Method& method) {
        if (++taken > kMaxMethods) return;
        std::string name = prefix;
        name = cutText(name.append(method.name.substr(0, kMaxRepeated)), kMaxRepeated);
        const auto known = methods_.find(method.methodId);
        if (known != methods_.end()) {  // sent again after a reconnect, or the id was reused
            if (bytes_ - known->second.size() + name.size() > kMaxBytes) return;
            bytes_ += name.size() - known->second.size();
            known->second = std::move(name);
        } else if (bytes_ + kEntryBytes + name.size() <= kMaxBytes) {
            bytes_ += kEntryBytes + name.size();
            methods_.emplace(method.methodId, std::move(name));
        }
    });
}

void AgentNames::remove(const dc2ps::ClassUnload& unloaded) {
    const std::size_t count = std::min(static_cast<std::size_t>(unloaded.methodCount), kMaxMethods);
    for (std::size_t i = 0; i < count; ++i) {
        const auto known = methods_.find(unloaded.methodId(i));
        if (known == methods_.end()) continue;
        bytes_ -= kEntryBytes + known->second.size();
        methods_.erase(known);
    }
}

void AgentNames::add(const dc2ps::PortalMethodName& named) {
    std::string& name = portalMethods_[static_cast<std::uint8_t>(named.methodId)];
    portalBytes_ -= name.size();
    name = cutText(named.methodName, kMaxRepeated);
    portalBytes_ += name.size();
}

std::size_t AgentNames::heldBytes() const {
    return bytes_ + methods_.bucket_count() * sizeof(void*) + portalBytes_;
}

std::string_view AgentNames::method(std::uint32_t methodId) const {
    const auto known = methods_.find(methodId);
    return known == methods_.end() ? std::string_view{} : std::string_view(known->second);
}

std::string_view AgentNames::portalMethod(std::int8_t methodId) const {
    return portalMethods_[static_cast<std::uint8_t>(methodId)];
}

}  // namespace server
