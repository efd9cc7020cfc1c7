#include "server/join/MixedHash.h"

#include <random>

namespace server {

namespace {

std::uint64_t drawOdd() {
    std::random_device system;
    return std::uint64_t{system()} << 32 | system() | 1;
}

}  // namespace

const std::uint64_t MixedHash::odd = drawOdd();

}  // namespace server
