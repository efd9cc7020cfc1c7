// Maps and remaps the dump's memory.
#include "jvmpi/DumpBuffer.h"

#include <sys/mman.h>

#include <algorithm>

namespace adapter {
namespace {

constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kFirst = std::uint64_t{8} << 20;

std::uint64_t wholePages(std::uint64_t bytes) {
    return (bytes + kPage - 1) / kPage * kPage;
}

}  // namespace

DumpBuffer::~DumpBuffer() {
    if (memory_ != nullptr) munmap(memory_, capacity_);
}

bool DumpBuffer::grow(std::uint64_t bytes) {
    constexpr std::uint64_t kLargest = std::uint64_t{1} << 46;  // the address space
    if (bytes > kLargest - size_) return false;
    const std::uint64_t needed = wholePages(size_ + bytes);
    const std::uint64_t wanted = std::max({needed, kFirst, wholePages(capacity_ + capacity_ / 2)});
    void* grown = MAP_FAILED;
    std::uint64_t capacity = wanted;
    // What is needed just now will do when a larger step cannot be had.
    for (const std::uint64_t tried : {wanted, needed}) {
        capacity = tried;
        grown = memory_ == nullptr ? mmap(nullptr, tried, PROT_READ | PROT_WRITE,
                                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                                   : mremap(memory_, capacity_, tried, MREMAP_MAYMOVE);
        if (grown != MAP_FAILED) break;
    }
    if (grown == MAP_FAILED) return false;
    memory_ = static_cast<char*>(grown);
    capacity_ = capacity;
    return true;
}

}  // namespace adapter
