// A hash for tables whose keys agents choose: multiplied by an odd number that is drawn once in
// each process and that nobody outside knows, so that no set of keys makes long chains.
#pragma once

#include <cstddef>
#include <cstdint>

namespace server {

struct MixedHash {
    std::size_t operator()(std::uint32_t key) const noexcept {
        return static_cast<std::size_t>((key + std::uint64_t{1}) * odd >> 32);
    }
    static const std::uint64_t odd;
};

}  // namespace server
