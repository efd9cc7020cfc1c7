// Reads big-endian fields from bytes that nobody has checked yet.
//
// Once a field does not fit, ran short is remembered, and everything read from then on is 0 or
// empty: a caller reads a whole record and asks once. Nothing outside the given bytes is ever
// touched.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "dc2ps/Records.h"

namespace dc2ps {

class ByteReader {
public:
    explicit ByteReader(Bytes untrusted)
        : begin_(untrusted.data()), at_(begin_), end_(begin_ + untrusted.size()) {}

    // Goes on at a place that an earlier reader of the same bytes had reached.
    void seek(std::size_t position) { at_ = begin_ + position; }

    std::uint8_t u8() { return static_cast<std::uint8_t>(bigEndian<1>()); }
    std::uint16_t u16() { return static_cast<std::uint16_t>(bigEndian<2>()); }
    std::uint32_t u32() { return static_cast<std::uint32_t>(bigEndian<4>()); }
    std::uint64_t u64() { return bigEndian<8>(); }
    std::int32_t i32() { return static_cast<std::int32_t>(u32()); }
    std::int64_t i64() { return static_cast<std::int64_t>(u64()); }

    // A two-byte length, and as many bytes.
    std::string_view text() {
        const std::size_t length = u16();
        const Bytes bytes = take(length);
        return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    }

    Bytes take(std::size_t count) {
        if (static_cast<std::size_t>(end_ - at_) < count) {
            runShort();
            return {};
        }
        const Bytes taken(at_, count);
        at_ += count;
        return taken;
    }

    // What has been read since an earlier position.
    Bytes since(std::size_t position) const { return {begin_ + position, at_}; }

    bool ranShort() const { return short_; }
    std::size_t position() const { return static_cast<std::size_t>(at_ - begin_); }

private:
    template <std::size_t N>
    std::uint64_t bigEndian() {
        if (static_cast<std::size_t>(end_ - at_) < N) {
            runShort();
            return 0;
        }
        const std::uint64_t value = load<N>(at_);
        at_ += N;
        return value;
    }

    // Written out for the optimiser, which makes one load and one byte swap of each.
    template <std::size_t N>
    static std::uint64_t load(const std::uint8_t* p) {
        if constexpr (N == 1) return p[0];
        if constexpr (N == 2) return std::uint64_t{p[0]} << 8 | p[1];
        if constexpr (N == 4)
            return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 |
                   std::uint32_t{p[2]} << 8 | p[3];
        if constexpr (N == 8) return load<4>(p) << 32 | load<4>(p + 4);
    }

    // The end moves to the cursor, so that a smaller field behind the missing one cannot fit
    // either.
    void runShort() {
        short_ = true;
        end_ = at_;
    }

    const std::uint8_t* begin_;
    const std::uint8_t* at_;
    const std::uint8_t* end_;
    bool short_ = false;
};

}  // namespace dc2ps
