// Builds one JSON object per line in a growing buffer.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "dc2ps/Records.h"
#include "dc2ps/Text.h"

namespace server {

class JsonLine {
public:
    // Opens an object of the given type at the end of out; finish() closes it.
    JsonLine(std::string& out, std::string_view type) : out_(out) {
        out_ += R"({"type":")";
        out_ += type;
        out_ += '"';
    }

    void finish() { out_ += "}\n"; }

    // Untrusted text.
    void text(std::string_view key, std::string_view untrusted) {
        label(key);
        out_ += '"';
        dc2ps::appendText(out_, untrusted, dc2ps::Escape::json);
        out_ += '"';
    }
    template <class Integer>
    requires std::is_integral_v<Integer>
    void number(std::string_view key, Integer value) {
        label(key);
        if constexpr (std::is_signed_v<Integer>)
            dc2ps::appendNumber(out_, static_cast<std::int64_t>(value));
        else
            dc2ps::appendNumber(out_, static_cast<std::uint64_t>(value));
    }
    void decimal(std::string_view key, std::int64_t value, int decimals) {
        label(key);
        dc2ps::appendDecimal(out_, value, decimals);
    }
    void time(std::string_view key, std::int64_t micros) {
        label(key);
        out_ += '"';
        dc2ps::appendIsoTime(out_, micros);
        out_ += '"';
    }
    void null(std::string_view key) {
        label(key);
        out_ += "null";
    }

    void beginArray(std::string_view key) { open(key, '['); }
    void beginObject(std::string_view key) { open(key, '{'); }
    void beginElement() {  // an object inside an array
        if (!first_) out_ += ',';
        out_ += '{';
        first_ = true;
    }
    void end(char bracket) {
        out_ += bracket;
        first_ = false;
    }

    // Fields of a record, called by its fields().
    void operator()(const char* key, std::string_view untrusted) { text(key, untrusted); }
    void operator()(const char* key, const dc2ps::WallTime& at) { time(key, at.micros()); }
    void operator()(const char* key, const dc2ps::CountAndAverage& pair) {
        number(std::string(key) + "Count", pair.count);
        number(std::string(key) + "AverageTime", pair.averageTime);
    }
    void operator()(const char* key, const dc2ps::RawBytes& raw) {
        constexpr char digits[] = "0123456789abcdef";
        label(key);
        out_ += '"';
        for (const char c : raw.bytes) {
            const auto byte = static_cast<unsigned char>(c);
            out_ += digits[byte >> 4];
            out_ += digits[byte & 15];
        }
        out_ += '"';
    }
    template <class Integer>
    requires std::is_integral_v<Integer>
    void operator()(const char* key, Integer value) { number(key, value); }

private:
    void open(std::string_view key, char bracket) {
        label(key);
        out_ += bracket;
        first_ = true;
    }

    void label(std::string_view key) {
        if (!first_) out_ += ',';
        first_ = false;
        out_ += '"';
        out_ += key;
        out_ += "\":";
    }

    std::string& out_;
    bool first_ = false;  // nothing stands before the next key or element
};

}  // namespace server
