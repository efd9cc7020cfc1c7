// Walks the records of a level-2 heap dump once and sums the objects up by class name.
//
// A record is a tag byte and its fields, without alignment, padding or a count in front; ids are 8
// bytes, integers in the machine's order:
//
// clang-format off
//     FF 05 07     id                                                 roots: unknown, sticky class, monitor
//     01 04 06     id, pointer                                        roots: JNI global, native stack, thread
//     02 03        id, pointer, u4 frame                              roots: JNI local, Java frame
//     20           id, six ids, u4 instance size, i ids, u2 n, n x 11 bytes, static values    class
//     21           id object, id class, u4 length, values             instance
//     22           id array, u4 n, id class, n ids                    object array
//     23           id array, u4 n, u1 type, n values                  primitive array
// clang-format on
//
// A class dump and an instance can only be stepped over when their class is known, so each class id
// is resolved by asking the VM for its class-load event, once per analysis.
//
// Everything here is a single global instance without a lock: one analysis at a time.
#pragma once

#include <cstdint>

#include "instrument/class_load.h"

// 32 bits by contract: sizes of larger heaps wrap.
extern std::uint32_t InstanceCount;
extern std::uint32_t InstanceSize;  // bytes, like every size here
extern std::uint32_t ObjectArrayCount;
extern std::uint32_t ObjectArraySize;
extern std::uint32_t PrimitiveArrayCount;
extern std::uint32_t PrimitiveArraySize;
extern std::uint32_t TotalObjectCount;
extern std::uint32_t TotalObjectSize;

struct ClassTableEntry {
    jobjectID class_id;  // of the first instance seen
    char* class_name;    // owned (array new)
    std::uint32_t count;
    std::uint32_t size;
};

constexpr int kMaxClasses = 20000;  // further classes are dropped silently
extern ClassTableEntry ClassTable[kMaxClasses];
extern int ClassTableCount;

// A class record in the cache of one analysis.
struct ClassLoadRecordChain : ClassLoadRecord {
    // The slot of an id, made when new.
    static ClassLoadRecordChain& lookup(jobjectID id);
    static void init();
    static void clear();

    enum TableIndex : int { kNotYet = -1, kDropped = -2 };

    ClassLoadRecordChain* next = nullptr;
    jobjectID key = nullptr;
    bool asked = false;        // the VM has been asked
    bool resolved = false;     // and has answered
    int tableIndex = kNotYet;  // entry of ClassTable that counts this class
};

// The record of a class, from the cache or from the VM; null when the VM does not know the id.
// Valid until the analysis ends.
ClassLoadRecordChain* getClassData(jobjectID id);

// Resets everything, walks [begin, end), forms the totals and sorts the class table by size. Stops
// at the first record that is not completely there.
void walkHeapDump(const char* begin, const char* end);
void releaseHeapTables();  // frees the class table and the cache
