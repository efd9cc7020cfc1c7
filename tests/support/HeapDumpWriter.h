// Writes heap-dump records as a VM does, in the machine's order, for walkers to be tested on.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "jvmpi/jvmpi.h"

class HeapDumpWriter {
public:
    template <typename T>
    HeapDumpWriter& put(T value) {
        char raw[sizeof value];
        std::memcpy(raw, &value, sizeof value);
        bytes_.append(raw, sizeof raw);
        return *this;
    }
    HeapDumpWriter& tag(int tag) { return put(static_cast<std::uint8_t>(tag)); }
    HeapDumpWriter& id(std::uint64_t id) { return put(id); }
    HeapDumpWriter& fill(std::size_t count, char value = 0x21) {
        bytes_.append(count, value);  // by default bytes that would be taken for instances
        return *this;
    }

    HeapDumpWriter& instance(std::uint64_t object, std::uint64_t type, std::uint32_t size) {
        return tag(JVMPI_GC_INSTANCE_DUMP).id(object).id(type).put(size).fill(size);
    }
    HeapDumpWriter& objectArray(std::uint64_t object, std::uint32_t length) {
        return tag(JVMPI_GC_OBJ_ARRAY_DUMP).id(object).put(length).id(0).fill(8UL * length);
    }
    // width: bytes an element takes in the dump.
    HeapDumpWriter& primitiveArray(std::uint64_t object, std::uint32_t length, int type,
                                   std::size_t width) {
        return tag(JVMPI_GC_PRIM_ARRAY_DUMP)
            .id(object)
            .put(length)
            .put(static_cast<std::uint8_t>(type))
            .fill(width * length);
    }
    HeapDumpWriter& classDump(std::uint64_t type, std::uint32_t instanceSize, int interfaces,
                              std::uint16_t poolEntries, std::size_t statics) {
        return tag(JVMPI_GC_CLASS_DUMP)
            .id(type)
            .fill(6 * 8)
            .put(instanceSize)
            .fill(8UL * static_cast<std::size_t>(interfaces))
            .put(poolEntries)
            .fill(11UL * poolEntries)
            .fill(statics);
    }
    HeapDumpWriter& root(int kind, std::size_t bytes) { return tag(kind).fill(bytes); }

    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};
