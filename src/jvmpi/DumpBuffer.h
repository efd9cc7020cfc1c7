// Where a heap dump's records are written: one contiguous range that grows inside the stopped
// world.
//
// Fresh pages of the kernel are used as they come, zero-filled, and growing moves page tables
// instead of bytes. Grown in steps, so that what is asked for stays close to what is needed. Not
// thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace adapter {

class DumpBuffer {
public:
    DumpBuffer() = default;
    ~DumpBuffer();
    DumpBuffer(const DumpBuffer&) = delete;
    DumpBuffer& operator=(const DumpBuffer&) = delete;

    // Makes room for so many zero bytes at the end; false when memory for them cannot be had.
    // Growing moves the buffer: use offsets.
    [[nodiscard]] bool extend(std::uint64_t bytes) {
        if (bytes > capacity_ - size_ && !grow(bytes)) return false;
        size_ += bytes;
        return true;
    }

    std::uint64_t size() const { return size_; }
    char* begin() { return memory_; }
    char* end() { return memory_ + size_; }
    char* at(std::uint64_t offset) { return memory_ + offset; }

    // Writes a value in machine order, at any alignment.
    template <typename T>
    void put(std::uint64_t offset, T value) {
        // NOLINTNEXTLINE(bugprone-sizeof-expression): pointers are written as such
        std::memcpy(memory_ + offset, &value, sizeof(T));
    }

private:
    bool grow(std::uint64_t bytes);

    char* memory_ = nullptr;
    std::uint64_t size_ = 0;
    std::uint64_t capacity_ = 0;
};

}  // namespace adapter
