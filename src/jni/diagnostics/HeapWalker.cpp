#include "diagnostics/HeapWalker.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"

std::uint32_t InstanceCount = 0;
std::uint32_t InstanceSize = 0;
std::uint32_t ObjectArrayCount = 0;
std::uint32_t ObjectArraySize = 0;
std::uint32_t PrimitiveArrayCount = 0;
std::uint32_t PrimitiveArraySize = 0;
std::uint32_t TotalObjectCount = 0;
std::uint32_t TotalObjectSize = 0;

ClassTableEntry ClassTable[kMaxClasses];
int ClassTableCount = 0;

namespace {

constexpr std::uint64_t kIdSize = 8;
constexpr int kBucketBits = 16;  // as many buckets as a large server has classes

std::array<ClassLoadRecordChain*, std::size_t{1} << kBucketBits> buckets{};

// Finds the entry of a class name without walking the table; the views point into the table's
// names.
std::unordered_map<std::string_view, int>& tableIndexByName() {
    // Never destroyed: a snapshot may still run at exit.
    static auto* const index = new std::unordered_map<std::string_view, int>;
    return *index;
}

std::size_t bucketOf(jobjectID id) {
    // Ids are multiples of 8 or addresses: multiply so that the high bits depend on all of them.
    const auto bits = reinterpret_cast<std::uintptr_t>(id);
    return static_cast<std::size_t>((bits * 0x9E3779B97F4A7C15U) >> (64 - kBucketBits));
}

// Reads from untrusted bytes: every step is checked against what is left, and the first one that
// does not fit makes all later ones fail.
class DumpReader {
public:
    DumpReader(const char* begin, const char* end) : at_(begin), end_(end) {}

    bool atEnd() const { return at_ >= end_; }

    // NOLINTBEGIN(bugprone-sizeof-expression): an id is read as a pointer, not what it points to
    template <typename T>
    bool read(T& value) {
        if (!has(sizeof(T))) return false;
        std::memcpy(&value, at_, sizeof(T));
        at_ += sizeof(T);
        return true;
    }
    // NOLINTEND(bugprone-sizeof-expression)

    bool skip(std::uint64_t bytes) {
        if (!has(bytes)) return false;
        at_ += bytes;
        return true;
    }

private:
    bool has(std::uint64_t bytes) {
        if (bytes <= static_cast<std::uint64_t>(end_ - at_)) return true;
        at_ = end_;
        return false;
    }

    const char* at_;
    const char* end_;
};

// The entry that counts a class, made when its name is new; null once the table is full.
ClassTableEntry* tableEntry(ClassLoadRecordChain& record) {
    if (record.tableIndex >= 0) [[likely]]
        return &ClassTable[record.tableIndex];
    if (record.tableIndex == ClassLoadRecordChain::kDropped) return nullptr;
    auto& byName = tableIndexByName();
    if (const auto known = byName.find(record.class_name); known != byName.end()) {
        record.tableIndex = known->second;
        return &ClassTable[record.tableIndex];
    }
    if (ClassTableCount >= kMaxClasses) {
        record.tableIndex = ClassLoadRecordChain::kDropped;
        return nullptr;
    }
    char* const name = Utils::cstrdup(record.class_name);
    ClassTable[ClassTableCount] = {record.key, name, 0, 0};
    record.tableIndex = ClassTableCount++;
    byName.emplace(name, record.tableIndex);
    return &ClassTable[record.tableIndex];
}

bool walkClassDump(DumpReader& in) {
    jobjectID id;
    if (!in.read(id)) return false;
    const ClassLoadRecordChain* const record = getClassData(id);
    if (record == nullptr) return true;  // intended: nothing more is consumed
    std::uint32_t instanceSize;
    if (!in.skip(6 * kIdSize) || !in.read(instanceSize)) return false;
    VEL_DEBUG_MIN("readHeapDump", "Class [%s] size=%d", record->class_name, instanceSize);
    const auto interfaces = static_cast<std::uint32_t>(record->num_interfaces);
    std::uint16_t poolEntries;
    return in.skip(interfaces * kIdSize) && in.read(poolEntries) &&
           in.skip(std::uint64_t{poolEntries} * 11) && in.skip(record->static_fields_size);
}

bool walkInstance(DumpReader& in) {
    jobjectID object;
    jobjectID classId;
    std::uint32_t size;
    if (!in.read(object) || !in.read(classId) || !in.read(size)) return false;
    ++InstanceCount;
    InstanceSize += size;
    ClassLoadRecordChain* const record = getClassData(classId);
    if (record == nullptr) return true;  // intended: its values are taken for records
    if (ClassTableEntry* const entry = tableEntry(*record); entry != nullptr) {
        ++entry->count;
        entry->size += size;
    }
    return in.skip(size);
}

bool walkObjectArray(DumpReader& in) {
    jobjectID array;
    std::uint32_t elements;
    if (!in.read(array) || !in.read(elements)) return false;
    ++ObjectArrayCount;
    ObjectArraySize += static_cast<std::uint32_t>(kIdSize * elements);
    return in.skip(kIdSize + kIdSize * elements);
}

bool walkPrimitiveArray(DumpReader& in) {
    jobjectID array;
    std::uint32_t elements;
    std::uint8_t type;
    if (!in.read(array) || !in.read(elements) || !in.read(type)) return false;
    std::uint64_t width;    // bytes an element takes in the dump
    std::uint64_t counted;  // bytes an element counts
    switch (type) {
        case JVMPI_BOOLEAN:
        case JVMPI_BYTE:
            width = counted = 1;
            break;
        case JVMPI_CHAR:
        case JVMPI_SHORT:
            width = counted = 2;
            break;
        case JVMPI_FLOAT:
        case JVMPI_INT:
            width = counted = 4;
            break;
        case JVMPI_DOUBLE:
        case JVMPI_LONG:
            width = 8;
            counted = 4;  // intended: readers of the summary rely on this count
            break;
        default:
            return true;
    }
    ++PrimitiveArrayCount;
    PrimitiveArraySize += static_cast<std::uint32_t>(counted * elements);
    return in.skip(width * elements);
}

// False at the first record that is not completely there.
bool walkRecord(DumpReader& in) {
    std::uint8_t tag;
    if (!in.read(tag)) return false;
    switch (tag) {
        case JVMPI_GC_INSTANCE_DUMP:
            return walkInstance(in);
        case JVMPI_GC_PRIM_ARRAY_DUMP:
            return walkPrimitiveArray(in);
        case JVMPI_GC_OBJ_ARRAY_DUMP:
            return walkObjectArray(in);
        case JVMPI_GC_CLASS_DUMP:
            return walkClassDump(in);
        case JVMPI_GC_ROOT_UNKNOWN:
        case JVMPI_GC_ROOT_STICKY_CLASS:
        case JVMPI_GC_ROOT_MONITOR_USED:
            return in.skip(kIdSize);
        case JVMPI_GC_ROOT_JNI_GLOBAL:
        case JVMPI_GC_ROOT_NATIVE_STACK:
        case JVMPI_GC_ROOT_THREAD_BLOCK:
            return in.skip(2 * kIdSize);
        case JVMPI_GC_ROOT_JNI_LOCAL:
        case JVMPI_GC_ROOT_JAVA_FRAME:
            return in.skip(2 * kIdSize + 4);
        default:
            return true;  // skipped as a single byte
    }
}

void resetCounters() {
    for (std::uint32_t* counter :
         {&InstanceCount, &InstanceSize, &ObjectArrayCount, &ObjectArraySize, &PrimitiveArrayCount,
          &PrimitiveArraySize, &TotalObjectCount, &TotalObjectSize})
        *counter = 0;
}

void formTotals() {
    TotalObjectCount = InstanceCount + ObjectArrayCount + PrimitiveArrayCount;
    TotalObjectSize = InstanceSize + ObjectArraySize + PrimitiveArraySize;
    VEL_DEBUG_MIN("readHeapDump", "Instance count=%d size=%d", InstanceCount, InstanceSize);
    VEL_DEBUG_MIN("readHeapDump", "Object Array count=%d size=%d", ObjectArrayCount,
                  ObjectArraySize);
    VEL_DEBUG_MIN("readHeapDump", "Primitive Array count=%d size=%d", PrimitiveArrayCount,
                  PrimitiveArraySize);
    VEL_DEBUG_MIN("readHeapDump", "Total Objects count=%d size=%d", TotalObjectCount,
                  TotalObjectSize);
}

// Intended: the difference as a signed 32-bit number, so that sizes 2 GB apart compare the wrong
// way round. The C library's sort stands that, a template sort need not.
int compareSizes(const void* first, const void* second) {
    return static_cast<int>(static_cast<const ClassTableEntry*>(first)->size -
                            static_cast<const ClassTableEntry*>(second)->size);
}

}  // namespace

ClassLoadRecordChain& ClassLoadRecordChain::lookup(jobjectID id) {
    ClassLoadRecordChain*& head = buckets[bucketOf(id)];
    for (ClassLoadRecordChain* slot = head; slot != nullptr; slot = slot->next)
        if (slot->key == id) return *slot;
    auto* const slot = new ClassLoadRecordChain;
    slot->key = id;
    slot->next = head;
    head = slot;
    return *slot;
}

void ClassLoadRecordChain::init() {
    clear();
}

void ClassLoadRecordChain::clear() {
    for (ClassLoadRecordChain*& head : buckets) {
        while (head != nullptr) {
            ClassLoadRecordChain* const slot = head;
            head = slot->next;
            delete slot;
        }
    }
}

// No trace here: called once per object of the heap.
ClassLoadRecordChain* getClassData(jobjectID id) {
    if (id == nullptr) return nullptr;
    ClassLoadRecordChain& slot = ClassLoadRecordChain::lookup(id);
    if (!slot.asked) {
        slot.asked = true;
        const JVMPI_Interface* const vm = jvmpi.load(std::memory_order_acquire);
        class_load.class_id = nullptr;  // tells whether the request reached the dispatcher
        if (vm != nullptr && vm->RequestEvent(JVMPI_EVENT_CLASS_LOAD, id) == JVMPI_SUCCESS &&
            class_load.class_id != nullptr) {
            static_cast<ClassLoadRecord&>(slot) = class_load;
            slot.resolved = true;
        }
    }
    return slot.resolved ? &slot : nullptr;
}

void walkHeapDump(const char* begin, const char* end) {
    VEL_TRACE("walkHeapDump(const char*, const char*)");
    releaseHeapTables();
    resetCounters();
    ClassLoadRecordChain::init();
    DumpReader in(begin, begin == nullptr || end < begin ? begin : end);
    while (!in.atEnd() && walkRecord(in)) {
    }
    formTotals();
    tableIndexByName().clear();  // the sort moves the entries
    std::qsort(ClassTable, static_cast<std::size_t>(ClassTableCount), sizeof ClassTable[0],
               compareSizes);
}

void releaseHeapTables() {
    VEL_TRACE("releaseHeapTables()");
    for (int i = 0; i < ClassTableCount; ++i) delete[] ClassTable[i].class_name;
    ClassTableCount = 0;
    tableIndexByName().clear();
    ClassLoadRecordChain::clear();
}
