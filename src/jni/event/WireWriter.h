// The primitives of the wire format, big-endian, inline: the innermost loop of the event agents.
#pragma once

#include <cstdint>
#include <cstring>

// Writes at a position that the caller has reserved room at. Made on the stack of one encoding
// function and handed back with done(), so that the position lives in a register meanwhile.
class WireWriter {
public:
    explicit WireWriter(char** position) : at_(*position), position_(position) {}

    void putByte(int value) { *at_++ = static_cast<char>(value); }  // low 8 bits
    void putShort(std::uint16_t value) { put(__builtin_bswap16(value)); }
    void putInt(std::uint32_t value) { put(__builtin_bswap32(value)); }
    void putLong(std::int64_t value) { put(__builtin_bswap64(static_cast<std::uint64_t>(value))); }

    // A length and that many bytes, no terminator.
    void writeUTF(const char* text, std::uint16_t length) {
        putShort(length);
        std::memcpy(at_, text, length);
        at_ += length;
    }
    // Intended: null writes nothing at all, not even a length. Builders leave no text null that is
    // sent.
    void writeString(const char* text) {
        if (text == nullptr) return;
        std::size_t length = std::strlen(text);
        if (length > kMaxText) [[unlikely]]
            length = cutLength(text);
        writeUTF(text, static_cast<std::uint16_t>(length));
    }
    void putTrailer() { putShort(kTrailer); }

    // The caller's position moves only now: a record is there completely or not at all.
    bool done() {
        *position_ = at_;
        return true;
    }

    static constexpr std::size_t kMaxText = 65535;
    static constexpr std::uint16_t kTrailer = 0x7F7F;

private:
    template <typename T>
    void put(T value) {
        std::memcpy(at_, &value, sizeof value);
        at_ += sizeof value;
    }

    // kMaxText or a little less, so that no character (up to 3 bytes in modified UTF-8) is split.
    static std::size_t cutLength(const char* text) {
        std::size_t length = kMaxText;
        while (length > kMaxText - 3 && (text[length] & 0xC0) == 0x80) --length;
        return length;
    }

    char* at_;
    char** position_;
};
