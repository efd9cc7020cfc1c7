// Reading and writing the raw bytes of a Java class file: the constant-pool index, sizes of fields,
// methods and attributes, descriptors reduced to letters, and emitters of big-endian values and
// instructions. Nothing is copied: everything works on pointers into the caller's buffer.
//
// The functions without a length trust their input. Bytes that come from outside go through
// isWellFormed() first, which proves that every step of the others stays inside the buffer.
#pragma once

#include "instrument/types.h"

struct ConstantPool {
    USHORT count;    // the file's constant_pool_count: slots plus one
    BYTE** entries;  // count pointers to tag bytes; [0] is not set, the slot after a Long or Double
                     // is null
    BYTE* start;     // the first entry
    BYTE* end;       // just after the last entry: the class's access_flags
};

enum ConstantPoolTag : BYTE {
    kUtf8 = 1,
    kLong = 5,
    kDouble = 6,
    kClass = 7,
    kMethodref = 10,
    kNameAndType = 12,
};
constexpr int kConstantPoolTags = 13;
extern const USHORT
    CONSTANT_POOL_SIZES[kConstantPoolTags];  // bytes with the tag; 0: unknown or variable

// Takes two slots of the pool.
inline bool isWide(BYTE tag) {
    return tag == kLong || tag == kDouble;
}

// Big-endian reads; the caller knows that the bytes are there.
inline USHORT readUSHORT(const BYTE* at) {
    return static_cast<USHORT>(at[0] << 8 | at[1]);
}
inline ULONG readULONG(const BYTE* at) {
    return static_cast<ULONG>(at[0]) << 24 | static_cast<ULONG>(at[1]) << 16 |
           static_cast<ULONG>(at[2]) << 8 | at[3];
}

// Indexes the pool at data (which points at constant_pool_count); null on an unknown tag or without
// memory. The caller frees it with freeConstantPool.
ConstantPool* parseConstantPool(BYTE* data);
// The same, reading no byte at or behind limit; null also when the pool does not end before it.
ConstantPool* parseConstantPool(BYTE* data, const BYTE* limit);
void freeConstantPool(ConstantPool* pool);

// True when the whole class file lies within its length (interfaces, fields, methods and
// attributes) and every pool index that this code follows is in range and of the right kind. data
// points at the magic.
bool isWellFormed(const BYTE* data, int length, const ConstantPool& pool);

int getAttributeLength(const BYTE* attribute);  // bytes of a whole attribute_info
int getMemberLength(const BYTE* member);        // bytes of a whole field_info or method_info

// 'A' reference, 'I' int and all that the VM keeps as int, 'L' long, 'F' float, 'D' double, 'V'
// void.
char getOperandType(const BYTE* descriptor);
USHORT getOperandTypeSize(char operandType);  // local slots: 2 for 'D' and 'L', else 1
// One letter per parameter, then that of the return type, zero-terminated; the caller frees it with
// free(). Null without memory. The descriptor is one that isMethodDescriptor() accepts.
char* parseDescriptor(const BYTE* descriptor, USHORT descriptor_len);
// True for a complete method descriptor of exactly that length.
bool isMethodDescriptor(const BYTE* descriptor, USHORT descriptor_len);

char* dotToSlash(char* name);  // in place; null is passed through
char* slashToDot(char* name);

// Writers: each moves *buffer past what it wrote. The caller has reserved the room.
void appendBYTE(BYTE** buffer, BYTE data);
void appendUSHORT(BYTE** buffer, USHORT data);
void appendULONG(BYTE** buffer, ULONG data);
void appendBuffer(BYTE** buffer, const BYTE* srcBuffer, int len);

// Loads and stores of a local variable: one-byte index up to 255. A larger index is written as two
// bytes behind the plain opcode, without a wide prefix; intended, see the note in the source.
void xload(BYTE** buffer, char type, USHORT index);
void aload(BYTE** buffer, USHORT index);
void iload(BYTE** buffer, USHORT index);
void xstore(BYTE** buffer, char type, USHORT index);
void astore(BYTE** buffer, USHORT index);
void istore(BYTE** buffer, USHORT index);
void areturn(BYTE** buffer);
void athrow(BYTE** buffer);
void invokestatic(BYTE** buffer, USHORT index);
void invokespecial(BYTE** buffer, USHORT index);
void invokevirtual(BYTE** buffer, USHORT index);
void ifnull(BYTE** buffer, USHORT offset);
void arraylength(BYTE** buffer);
void iconst_0(BYTE** buffer);
