// Builds streams of the wire format by hand: independent of the collector's encoder, so that a
// mistake there is not repeated here. Field by field, or from bytes typed as hex.
#pragma once

#include <cctype>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

namespace byhand {

using Bytes = std::vector<std::uint8_t>;

// "0A 7F7F" to bytes; everything but hex digits only separates.
inline Bytes hex(std::string_view digits) {
    Bytes bytes;
    int high = -1;
    for (const char c : digits) {
        if (!std::isxdigit(static_cast<unsigned char>(c))) continue;
        const int value = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high << 4 | value));
            high = -1;
        }
    }
    return bytes;
}

class Writer {
public:
    Writer& u8(unsigned value) { return number(value, 1); }
    Writer& u16(unsigned value) { return number(value, 2); }
    Writer& u32(std::uint32_t value) { return number(value, 4); }
    Writer& u64(std::uint64_t value) { return number(value, 8); }
    Writer& text(std::string_view value) {
        u16(static_cast<unsigned>(value.size()));
        bytes_.insert(bytes_.end(), value.begin(), value.end());
        return *this;
    }
    Writer& raw(const Bytes& bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return *this;
    }
    Writer& trailer() { return u16(0x7F7F); }
    Bytes done() const { return bytes_; }

private:
    Writer& number(std::uint64_t value, int size) {
        for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
            bytes_.push_back(static_cast<std::uint8_t>(value >> shift));
        return *this;
    }
    Bytes bytes_;
};

// Where and when a timed record was made.
struct At {
    std::uint32_t thread = 1;
    unsigned depth = 1;
    std::uint64_t micros = 0;  // since 1970
    std::uint64_t cpuNanos = 0;
};

inline Writer frame(unsigned type, const At& at) {
    Writer record;
    record.u8(type).u32(at.thread).u8(at.depth);
    record.u32(static_cast<std::uint32_t>(at.micros / 1000000));
    record.u32(static_cast<std::uint32_t>(at.micros % 1000000)).u64(at.cpuNanos);
    return record;
}

// A timed record with its fields, probe level 2 behind them.
inline Bytes timed(unsigned type, const At& at, const Bytes& fields = {}) {
    return frame(type, at).raw(fields).u8(2).trailer().done();
}

inline Bytes servletStart(const At& at, std::string_view name, std::string_view application,
                          std::string_view url, std::string_view user = "") {
    return timed(4, at, Writer().u8(1).text(name).text(application).text(url).text(user).done());
}

inline Bytes sqlStart(const At& at, std::string_view dataSource, std::string_view sql) {
    return frame(9, at).u8(2).text(dataSource).text(sql).trailer().done();
}

inline Bytes methodStep(bool entry, std::uint32_t thread, std::uint32_t method,
                        std::uint64_t micros) {
    return Writer()
        .u8(entry ? 2 : 3)
        .u32(thread)
        .u32(method)
        .u32(static_cast<std::uint32_t>(micros / 1000000))
        .u32(static_cast<std::uint32_t>(micros % 1000000))
        .u64(0)
        .trailer()
        .done();
}

// The six counts in the order of the wire.
inline Bytes dropped(std::uint32_t thread, const std::initializer_list<std::int32_t>& counts) {
    Writer record;
    record.u8(11).u32(thread);
    for (const std::int32_t count : counts) record.u32(static_cast<std::uint32_t>(count));
    return record.trailer().done();
}

inline Bytes initPacket(std::string_view node = "node", std::string_view server = "server") {
    return Writer()
        .u32(2000)
        .u8(100)
        .u8(3)
        .u8(1)
        .u64(1700000000000)
        .trailer()
        .u8(101)
        .u8(200)
        .u8(10)
        .u8(1)
        .u8(2)
        .text("component")
        .text("<NO CLUSTER NAME>")
        .text(node)
        .text(server)
        .u32(8080)
        .trailer()
        .done();
}

inline Bytes packet(std::initializer_list<Bytes> records) {
    Writer whole;
    whole.u8(0).u32(static_cast<std::uint32_t>(records.size())).trailer();
    for (const Bytes& record : records) whole.raw(record);
    return whole.done();
}

inline Bytes joined(std::initializer_list<Bytes> parts) {
    Writer whole;
    for (const Bytes& part : parts) whole.raw(part);
    return whole.done();
}

}  // namespace byhand
