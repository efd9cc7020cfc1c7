// Puts a Java class file together byte by byte, for tests and for the fuzzer's seeds: a constant
// pool whose entries are numbered in the order they are added, then whatever members the caller
// spells out.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

// Hexadecimal digits in pairs, blanks anywhere.
inline Bytes hex(std::string_view digits) {
    Bytes bytes;
    int high = -1;
    for (const char c : digits) {
        if (c == ' ') continue;
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

inline Bytes u2(unsigned value) {
    return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}
inline Bytes u4(unsigned value) {
    return u2(value >> 16) + u2(value & 0xFFFF);
}

class ClassFileBuilder {
public:
    using Slot = unsigned;

    Slot utf8(std::string_view text) {
        return add(hex("01") + u2(static_cast<unsigned>(text.size())) + bytesOf(text));
    }
    Slot clazz(std::string_view name) { return add(hex("07") + u2(utf8(name))); }
    Slot nameAndType(std::string_view name, std::string_view descriptor) {
        const Slot nameSlot = utf8(name);
        const Slot descriptorSlot = utf8(descriptor);
        return add(hex("0C") + u2(nameSlot) + u2(descriptorSlot));
    }
    Slot methodref(std::string_view className, std::string_view name, std::string_view descriptor) {
        const Slot classSlot = clazz(className);
        const Slot nameAndTypeSlot = nameAndType(name, descriptor);
        return add(hex("0A") + u2(classSlot) + u2(nameAndTypeSlot));
    }
    Slot longConstant() {
        const Slot slot = add(hex("05 0000000000000007"));
        ++count_;
        return slot;
    }
    // Any entry, tag first; takes one slot.
    Slot add(const Bytes& entry) {
        pool_ = pool_ + entry;
        return count_++;
    }

    ClassFileBuilder& version(unsigned major, unsigned minor = 0) {
        major_ = major;
        minor_ = minor;
        return *this;
    }
    ClassFileBuilder& access(unsigned flags) {
        access_ = flags;
        return *this;
    }
    ClassFileBuilder& name(std::string_view thisName) {
        this_ = clazz(thisName);
        super_ = clazz("java/lang/Object");
        return *this;
    }
    ClassFileBuilder& interfaces(std::initializer_list<Slot> slots) {
        interfaces_ = slots;
        return *this;
    }
    // field_info and method_info without attributes, or with attributes already in bytes.
    ClassFileBuilder& field(unsigned flags, Slot name, Slot descriptor) {
        fields_ = fields_ + u2(flags) + u2(name) + u2(descriptor) + u2(0);
        ++fieldCount_;
        return *this;
    }
    ClassFileBuilder& method(unsigned flags, Slot name, Slot descriptor, unsigned attributes = 0,
                             const Bytes& attributeBytes = {}) {
        methods_ =
            methods_ + u2(flags) + u2(name) + u2(descriptor) + u2(attributes) + attributeBytes;
        ++methodCount_;
        return *this;
    }
    ClassFileBuilder& attribute(Slot name, const Bytes& content) {
        attributes_ = attributes_ + u2(name) + u4(static_cast<unsigned>(content.size())) + content;
        ++attributeCount_;
        return *this;
    }

    [[nodiscard]] unsigned poolCount() const { return count_; }
    [[nodiscard]] Slot thisSlot() const { return this_; }
    [[nodiscard]] Bytes pool() const { return u2(count_) + pool_; }

    [[nodiscard]] Bytes build() const {
        Bytes all = hex("CAFEBABE") + u2(minor_) + u2(major_) + pool() + u2(access_) + u2(this_) +
                    u2(super_) + u2(static_cast<unsigned>(interfaces_.size()));
        for (const Slot slot : interfaces_) all = all + u2(slot);
        return all + u2(fieldCount_) + fields_ + u2(methodCount_) + methods_ + u2(attributeCount_) +
               attributes_;
    }

private:
    Bytes pool_, fields_, methods_, attributes_;
    std::vector<Slot> interfaces_;
    unsigned count_ = 1, major_ = 46, minor_ = 0, access_ = 0x21;
    unsigned fieldCount_ = 0, methodCount_ = 0, attributeCount_ = 0;
    Slot this_ = 0, super_ = 0;
};
