// Exchanges the process's environment for a scope.
#include "launch/EnvironmentOverlay.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <new>

namespace launch {
namespace {

// Keeps what must outlive its overlay within reach, so that a leak checker knows that it is meant.
template <typename T>
T* keep(T* memory) {
    if (memory == nullptr) throw std::bad_alloc();  // a null would end the environment early
    static auto& kept = *new std::vector<void*>;
    kept.push_back(memory);
    return memory;
}

}  // namespace

EnvironmentOverlay::EnvironmentOverlay(
    const std::vector<std::pair<std::string, std::string>>& variables)
    : before_(environ) {
    std::size_t inherited = 0;
    while (before_ != nullptr && before_[inherited] != nullptr) ++inherited;
    overlaid_ = keep(new char*[variables.size() + inherited + 1]);
    std::size_t n = 0;
    for (const auto& [name, value] : variables) {
        const char* old = getenv(name.c_str());
        hidden_.push_back({name, old == nullptr ? std::nullopt : std::optional<std::string>(old)});
        std::string entry = name;
        entry.append("=").append(value);
        overlaid_[n++] = keep(strdup(entry.c_str()));
    }
    // Ours come first and getenv takes the first.
    for (std::size_t i = 0; i < inherited; ++i) overlaid_[n++] = before_[i];
    overlaid_[n] = nullptr;
    __atomic_store_n(&environ, overlaid_, __ATOMIC_RELEASE);
}

EnvironmentOverlay::~EnvironmentOverlay() {
    if (environ == overlaid_) {
        __atomic_store_n(&environ, before_, __ATOMIC_RELEASE);
        return;
    }
    // Somebody called setenv meanwhile and got an array of its own: take only ours out of it.
    for (const Hidden& hidden : hidden_) {
        unsetenv(hidden.name.c_str());
        if (hidden.value) setenv(hidden.name.c_str(), hidden.value->c_str(), 1);
    }
}

}  // namespace launch
