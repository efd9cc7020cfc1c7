// Writes records, and tells beforehand how long they are. Both go by the layouts' lists of fields.
//
// Inline and without state of its own: the innermost loop of who sends records. A writer checks no
// room: measure first. Nothing is allocated; nothing but the C++ library is needed.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "dc2ps/RecordFrame.h"

namespace dc2ps {

constexpr std::size_t kMaxText = 65535;  // what a text's length can say, bytes

// Bytes that stand in a record as they are, without a length.
struct Verbatim {
    std::string_view bytes;
};

// How much of a text that is too long is written: kMaxText or a little less, so that no character
// (up to 3 bytes in modified UTF-8) is split. Apart, so that it costs the usual text no registers.
[[gnu::noinline, gnu::cold]] constexpr std::size_t cutBytes(std::string_view text) {
    std::size_t length = kMaxText;
    while (length > kMaxText - 3 && (text[length] & 0xC0) == 0x80) --length;
    return length;
}

constexpr std::size_t writtenBytes(std::string_view text) {
    return text.size() <= kMaxText ? text.size() : cutBytes(text);
}

// Null stays a text without data.
inline std::string_view text(const char* value) {
    return value == nullptr ? std::string_view() : std::string_view(value);
}

// Intended, here and in FieldSize: a text without data (not an empty one) takes no bytes at all,
// not even a length. Whoever fills a record leaves no text without data that is sent.
class FieldWriter {
public:
    explicit FieldWriter(char* room) : at_(room) {}

    char* at() const { return at_; }

    void operator()(const char*, RecordType type) { byte(static_cast<std::uint8_t>(type)); }
    void operator()(const char*, std::uint8_t value) { byte(value); }
    void operator()(const char*, std::int8_t value) { byte(static_cast<std::uint8_t>(value)); }
    void operator()(const char*, std::uint16_t value) { put(__builtin_bswap16(value)); }
    void operator()(const char*, std::uint32_t value) { put(__builtin_bswap32(value)); }
    void operator()(const char*, std::int32_t value) {
        put(__builtin_bswap32(static_cast<std::uint32_t>(value)));
    }
    void operator()(const char*, std::int64_t value) {
        put(__builtin_bswap64(static_cast<std::uint64_t>(value)));
    }
    void operator()(const char* name, WallTime time) {
        (*this)(name, time.seconds);
        (*this)(name, time.microseconds);
    }
    void operator()(const char* name, CountAndAverage pair) {
        (*this)(name, pair.count);
        (*this)(name, pair.averageTime);
    }
    void operator()(const char*, std::string_view text) {
        if (text.data() != nullptr) sized(text.data(), writtenBytes(text));
    }
    void operator()(const char*, const RawBytes& raw) {
        if (raw.bytes.data() != nullptr)
            sized(raw.bytes.data(), std::min(raw.bytes.size(), kMaxText));
    }
    void operator()(const char*, Verbatim more) {
        if (!more.bytes.empty()) copy(more.bytes.data(), more.bytes.size());
    }

private:
    void byte(std::uint8_t value) { *at_++ = static_cast<char>(value); }
    template <class Integer>
    void put(Integer value) {
        std::memcpy(at_, &value, sizeof value);
        at_ += sizeof value;
    }
    void copy(const char* bytes, std::size_t count) {
        std::memcpy(at_, bytes, count);
        at_ += count;
    }
    void sized(const char* bytes, std::size_t count) {
        put(__builtin_bswap16(static_cast<std::uint16_t>(count)));
        copy(bytes, count);
    }

    char* at_;
};

// Adds up what a FieldWriter would write.
class FieldSize {
public:
    constexpr std::size_t bytes() const { return bytes_; }

    template <class Number>
    constexpr void operator()(const char*, Number) {
        static_assert(std::is_integral_v<Number> || std::is_same_v<Number, RecordType>);
        bytes_ += sizeof(Number);
    }
    constexpr void operator()(const char*, WallTime) { bytes_ += 4 + 4; }
    constexpr void operator()(const char*, CountAndAverage) { bytes_ += 4 + 8; }
    constexpr void operator()(const char*, std::string_view text) {
        if (text.data() != nullptr) bytes_ += 2 + writtenBytes(text);
    }
    constexpr void operator()(const char*, RawBytes raw) {
        if (raw.bytes.data() != nullptr) bytes_ += 2 + std::min(raw.bytes.size(), kMaxText);
    }
    constexpr void operator()(const char* name, Token token) {
        (*this)(name, static_cast<RawBytes>(token));
    }
    constexpr void operator()(const char*, Verbatim more) { bytes_ += more.bytes.size(); }

private:
    std::size_t bytes_ = 0;
};

// Gives a FieldWriter or a FieldSize everything of a record: its frame and fields, what elements(f)
// gives of a list behind the fields, the trailer.
template <class F, class Layout, class Elements>
constexpr void putRecord(F& f, const Layout& r, Elements&& elements) {
    onWire(r, f);
    elements(f);
    f("trailer", kTrailer);
}

template <class F, class Layout>
constexpr void putRecord(F& f, const Layout& r) {
    putRecord(f, r, [](F&) {});
}

}  // namespace dc2ps
