#include "instrument/classfile.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/Log.h"

const USHORT CONSTANT_POOL_SIZES[kConstantPoolTags] = {0, 0, 0, 5, 5, 9, 9, 3, 3, 5, 5, 5, 5};

namespace {

enum Opcode : BYTE {
    kIconst0 = 3,
    kIload = 21,
    kLload = 22,
    kFload = 23,
    kDload = 24,
    kAload = 25,
    kIstore = 54,
    kLstore = 55,
    kFstore = 56,
    kDstore = 57,
    kAstore = 58,
    kAreturn = 176,
    kInvokevirtual = 182,
    kInvokespecial = 183,
    kInvokestatic = 184,
    kArraylength = 190,
    kAthrow = 191,
    kWide = 196,
    kIfnull = 198,
};

// Bytes of the pool entry at `at`, 0 for an unknown tag or when it takes more than room bytes.
std::size_t entrySize(const BYTE* at, std::size_t room) {
    if (room == 0) return 0;
    std::size_t size = 0;
    if (*at == kUtf8) {
        if (room < 3) return 0;
        size = std::size_t{3} + readUSHORT(at + 1);
    } else if (*at < kConstantPoolTags) {
        size = CONSTANT_POOL_SIZES[*at];
    }
    return size <= room ? size : 0;
}

bool isKnown(BYTE tag) {
    return tag == kUtf8 || (tag < kConstantPoolTags && CONSTANT_POOL_SIZES[tag] != 0);
}

// offset: of the entry from the first one.
void logBadEntry(const BYTE* entry, std::size_t room, int slot, std::ptrdiff_t offset) {
    constexpr char kSignature[] = "parseConstantPool(BYTE*)";
    const int at = static_cast<int>(offset);
    if (room == 0 || isKnown(*entry)) {
        VEL_DEBUG_MIN(kSignature, "Constant pool ends within slot %i at %i", slot, at);
        return;
    }
    char tag[4];
    std::snprintf(tag, sizeof tag, "%d", *entry);
    VEL_DEBUG_MIN(kSignature, "Unknown constant pool tag %s %i %i", tag, slot, at);
}

// Fills pool->entries from at most room bytes; false at the first entry that is unknown or too
// long.
bool indexEntries(ConstantPool* pool, std::size_t room) {
    BYTE* cursor = pool->start;
    for (int slot = 1; slot < pool->count; ++slot) {
        const std::size_t size = entrySize(cursor, room);
        if (size == 0) {
            logBadEntry(cursor, room, slot, cursor - pool->start);
            return false;
        }
        pool->entries[slot] = cursor;
        if (isWide(*cursor) && ++slot < pool->count) pool->entries[slot] = nullptr;
        cursor += size;
        room -= size;
    }
    pool->end = cursor;
    return true;
}

// room: bytes that may be read from data on.
ConstantPool* parsePool(BYTE* data, std::size_t room) {
    if (room < 2) return nullptr;
    auto* const pool = static_cast<ConstantPool*>(std::malloc(sizeof(ConstantPool)));
    if (pool == nullptr) {
        VEL_DEBUG_MIN("parseConstantPool(BYTE*)", "malloc failed");
        return nullptr;
    }
    pool->count = readUSHORT(data);
    pool->start = data + 2;
    pool->end = pool->start;
    pool->entries = static_cast<BYTE**>(std::calloc(std::max<int>(pool->count, 1), sizeof(BYTE*)));
    if (pool->entries == nullptr) {
        VEL_DEBUG_MIN("parseConstantPool(BYTE*)", "malloc failed");
        std::free(pool);
        return nullptr;
    }
    if (!indexEntries(pool, room - 2)) {
        freeConstantPool(pool);
        return nullptr;
    }
    return pool;
}

// A cursor that never passes the end: each step says whether the bytes were there.
class BoundedCursor {
public:
    BoundedCursor(const BYTE* at, const BYTE* end) : at_(at), end_(end) {}

    bool skip(std::uint64_t bytes) {
        if (static_cast<std::uint64_t>(end_ - at_) < bytes) return false;
        at_ += bytes;
        return true;
    }
    bool take(USHORT* value) {
        if (end_ - at_ < 2) return false;
        *value = readUSHORT(at_);
        at_ += 2;
        return true;
    }
    bool skipAttributes() {
        USHORT count = 0;
        if (!take(&count)) return false;
        for (; count > 0; --count)
            if (end_ - at_ < 6 || !skip(std::uint64_t{6} + readULONG(at_ + 2))) return false;
        return true;
    }
    bool skipMembers() {
        USHORT count = 0;
        if (!take(&count)) return false;
        for (; count > 0; --count)
            if (!skip(6) || !skipAttributes()) return false;  // 6: flags, name, descriptor
        return true;
    }

private:
    const BYTE* at_;
    const BYTE* end_;
};

bool hasTag(const ConstantPool& pool, USHORT slot, BYTE tag) {
    return slot > 0 && slot < pool.count && pool.entries[slot] != nullptr &&
           *pool.entries[slot] == tag;
}

// Whether the entry refers to entries of the right kind, as far as this code follows them.
bool refersWell(const ConstantPool& pool, const BYTE* entry) {
    switch (*entry) {
        case kClass:
            return hasTag(pool, readUSHORT(entry + 1), kUtf8);
        case kMethodref:
            return hasTag(pool, readUSHORT(entry + 1), kClass) &&
                   hasTag(pool, readUSHORT(entry + 3), kNameAndType);
        case kNameAndType:
            return hasTag(pool, readUSHORT(entry + 1), kUtf8) &&
                   hasTag(pool, readUSHORT(entry + 3), kUtf8);
        default:
            return true;
    }
}

// Past one field type; null when there is none before end.
const BYTE* skipFieldType(const BYTE* at, const BYTE* end) {
    while (at != end && *at == '[') ++at;
    if (at == end) return nullptr;
    if (*at == 'L') {
        const BYTE* const semicolon = std::find(at, end, BYTE{';'});
        return semicolon == end || semicolon == at + 1 ? nullptr : semicolon + 1;
    }
    return std::strchr("BCDFIJSZ", *at) != nullptr && *at != '\0' ? at + 1 : nullptr;
}

void replaceAll(char* name, char from, char to) {
    if (name != nullptr) std::replace(name, name + std::strlen(name), from, to);
}

// One opcode, then the operand.
void instruction(BYTE** buffer, BYTE opcode, USHORT operand) {
    appendBYTE(buffer, opcode);
    appendUSHORT(buffer, operand);
}

// A load or store. The wide prefix goes where the opcode then overwrites it, so none is left in the
// output: kept so on purpose, nothing here generates indexes above 255. A letter that is none of
// the five leaves the opcode's byte as it was.
void localAccess(BYTE** buffer, char type, USHORT index, BYTE integer) {
    if (index > 255) **buffer = kWide;
    switch (type) {
        case 'I':
            **buffer = integer;
            break;
        case 'L':
            **buffer = static_cast<BYTE>(integer + 1);
            break;
        case 'F':
            **buffer = static_cast<BYTE>(integer + 2);
            break;
        case 'D':
            **buffer = static_cast<BYTE>(integer + 3);
            break;
        case 'A':
            **buffer = static_cast<BYTE>(integer + 4);
            break;
        default:
            break;
    }
    ++*buffer;
    if (index > 255) {
        appendUSHORT(buffer, index);
    } else {
        appendBYTE(buffer, static_cast<BYTE>(index));
    }
}

}  // namespace

static_assert(kLload == kIload + 1 && kFload == kIload + 2 && kDload == kIload + 3 &&
              kAload == kIload + 4);
static_assert(kLstore == kIstore + 1 && kFstore == kIstore + 2 && kDstore == kIstore + 3 &&
              kAstore == kIstore + 4);

ConstantPool* parseConstantPool(BYTE* data) {
    VEL_TRACE("parseConstantPool(BYTE*)");
    return parsePool(data, SIZE_MAX);
}

ConstantPool* parseConstantPool(BYTE* data, const BYTE* limit) {
    VEL_TRACE("parseConstantPool(BYTE*, const BYTE*)");
    return parsePool(data, static_cast<std::size_t>(limit - data));
}

void freeConstantPool(ConstantPool* pool) {
    VEL_TRACE("freeConstantPool(ConstantPool*)");
    if (pool == nullptr) return;
    std::free(pool->entries);
    std::free(pool);
}

bool isWellFormed(const BYTE* data, int length, const ConstantPool& pool) {
    VEL_TRACE("isWellFormed(const BYTE*, int, const ConstantPool&)");
    for (int slot = 1; slot < pool.count; ++slot)
        if (pool.entries[slot] != nullptr && !refersWell(pool, pool.entries[slot])) return false;
    BoundedCursor rest(pool.end, data + length);
    USHORT thisClass = 0;
    USHORT interfaces = 0;
    return rest.skip(2) && rest.take(&thisClass) && hasTag(pool, thisClass, kClass) &&
           rest.skip(2) && rest.take(&interfaces) && rest.skip(std::uint64_t{2} * interfaces) &&
           rest.skipMembers() && rest.skipMembers() && rest.skipAttributes();
}

int getAttributeLength(const BYTE* attribute) {
    return static_cast<int>(6 + readULONG(attribute + 2));
}

int getMemberLength(const BYTE* member) {
    int length = 8;
    for (USHORT count = readUSHORT(member + 6); count > 0; --count)
        length += getAttributeLength(member + length);
    return length;
}

char getOperandType(const BYTE* descriptor) {
    switch (*descriptor) {
        case '[':
        case 'L':
            return 'A';
        case 'J':
            return 'L';
        case 'F':
        case 'D':
        case 'V':
            return static_cast<char>(*descriptor);
        default:
            return 'I';
    }
}

USHORT getOperandTypeSize(char operandType) {
    return operandType == 'D' || operandType == 'L' ? 2 : 1;
}

char* parseDescriptor(const BYTE* descriptor, USHORT descriptor_len) {
    VEL_TRACE("parseDescriptor(BYTE*, USHORT)");
    auto* const letters = static_cast<char*>(std::malloc(std::max<int>(descriptor_len, 1)));
    if (letters == nullptr) {
        VEL_DEBUG_MIN("parseDescriptor(BYTE*, USHORT)", "malloc failed");
        return nullptr;
    }
    char* out = letters;
    const BYTE* at = descriptor + 1;
    for (; *at != ')'; ++at) {
        *out++ = getOperandType(at);
        while (*at == '[') ++at;
        if (*at == 'L')
            while (*at != ';') ++at;
    }
    *out++ = getOperandType(at + 1);
    *out = '\0';
    return letters;
}

bool isMethodDescriptor(const BYTE* descriptor, USHORT descriptor_len) {
    const BYTE* const end = descriptor + descriptor_len;
    const BYTE* at = descriptor;
    if (at == end || *at++ != '(') return false;
    while (at != end && *at != ')')
        if ((at = skipFieldType(at, end)) == nullptr) return false;
    if (at == end) return false;
    ++at;
    if (at != end && *at == 'V') return at + 1 == end;
    return skipFieldType(at, end) == end;
}

char* dotToSlash(char* name) {
    replaceAll(name, '.', '/');
    return name;
}

char* slashToDot(char* name) {
    replaceAll(name, '/', '.');
    return name;
}

void appendBYTE(BYTE** buffer, BYTE data) {
    *(*buffer)++ = data;
}

void appendUSHORT(BYTE** buffer, USHORT data) {
    appendBYTE(buffer, static_cast<BYTE>(data >> 8));
    appendBYTE(buffer, static_cast<BYTE>(data));
}

void appendULONG(BYTE** buffer, ULONG data) {
    appendUSHORT(buffer, static_cast<USHORT>(data >> 16));
    appendUSHORT(buffer, static_cast<USHORT>(data));
}

void appendBuffer(BYTE** buffer, const BYTE* srcBuffer, int len) {
    std::memcpy(*buffer, srcBuffer, static_cast<std::size_t>(len));
    *buffer += len;
}

void xload(BYTE** buffer, char type, USHORT index) {
    localAccess(buffer, type, index, kIload);
}
void aload(BYTE** buffer, USHORT index) {
    xload(buffer, 'A', index);
}
void iload(BYTE** buffer, USHORT index) {
    xload(buffer, 'I', index);
}
void xstore(BYTE** buffer, char type, USHORT index) {
    localAccess(buffer, type, index, kIstore);
}
void astore(BYTE** buffer, USHORT index) {
    xstore(buffer, 'A', index);
}
void istore(BYTE** buffer, USHORT index) {
    xstore(buffer, 'I', index);
}
void areturn(BYTE** buffer) {
    appendBYTE(buffer, kAreturn);
}
void athrow(BYTE** buffer) {
    appendBYTE(buffer, kAthrow);
}
void invokestatic(BYTE** buffer, USHORT index) {
    instruction(buffer, kInvokestatic, index);
}
void invokespecial(BYTE** buffer, USHORT index) {
    instruction(buffer, kInvokespecial, index);
}
void invokevirtual(BYTE** buffer, USHORT index) {
    instruction(buffer, kInvokevirtual, index);
}
void ifnull(BYTE** buffer, USHORT offset) {
    instruction(buffer, kIfnull, offset);
}
void arraylength(BYTE** buffer) {
    appendBYTE(buffer, kArraylength);
}
void iconst_0(BYTE** buffer) {
    appendBYTE(buffer, kIconst0);
}
