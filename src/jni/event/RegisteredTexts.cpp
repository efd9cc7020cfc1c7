#include "event/RegisteredTexts.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include "event/EventText.h"

namespace {

// Texts stand one behind the other in blocks of their own, each at an address that says "kept".
constexpr std::size_t kBlockBytes = 64 << 10;

struct Registry {
    std::mutex lock;  // guards everything but texts
    std::unordered_map<std::string_view, int> numbers;
    char* free = nullptr;  // in the newest block
    std::size_t left = 0;
    std::size_t bytes = 0;  // of all blocks
    int count = 0;
};
Registry& registry = *new Registry;  // never destroyed: threads outlive our destructors

// Published with release once the text is complete.
std::array<std::atomic<char*>, RegisteredTexts::kMaxTexts + 1> texts{};

// Null when the bound is reached or there is no memory.
char* room(std::size_t bytes) {
    const std::size_t needed = bytes + 4;  // up to three bytes to the next address of the kind
    if (needed > kBlockBytes) return nullptr;
    if (needed > registry.left) {
        if (registry.bytes + kBlockBytes > RegisteredTexts::kMaxBytes) return nullptr;
        auto* const block = static_cast<char*>(std::malloc(kBlockBytes));
        if (block == nullptr) return nullptr;
        registry.free = block;
        registry.left = kBlockBytes;
        registry.bytes += kBlockBytes;
    }
    char* at = registry.free;
    while ((reinterpret_cast<std::uintptr_t>(at) & 3) != eventtext::kKept) ++at;
    registry.left -= static_cast<std::size_t>(at + bytes - registry.free);
    registry.free = at + bytes;
    return at;
}

}  // namespace

int RegisteredTexts::add(const char* text) {
    if (text == nullptr) return 0;
    const std::lock_guard hold(registry.lock);
    if (const auto known = registry.numbers.find(text); known != registry.numbers.end())
        return known->second;
    if (registry.count == kMaxTexts) return 0;
    const std::size_t bytes = std::strlen(text) + 1;
    char* const kept = room(bytes);
    if (kept == nullptr) return 0;
    std::memcpy(kept, text, bytes);
    const int number = registry.count + 1;
    registry.numbers.emplace(kept, number);
    registry.count = number;
    texts[static_cast<std::size_t>(number)].store(kept, std::memory_order_release);
    return number;
}

char* RegisteredTexts::get(int number) {
    if (number < 1 || number > kMaxTexts) return emptyText();
    char* const text = texts[static_cast<std::size_t>(number)].load(std::memory_order_acquire);
    return text != nullptr ? text : emptyText();
}
