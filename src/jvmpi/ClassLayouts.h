// How the objects of every loaded class lie in a heap dump: for each field that JVMTI reports by
// index, the place of its value in the object's record.
#pragma once

#include <cstdint>
#include <vector>

#include "jvmpi/ClassDescription.h"
#include "jvmpi/Jvmti.h"
#include "jvmpi/ObjectIds.h"
#include "jvmpi/jvmpi.h"

namespace adapter {

// Where a field's value goes: an offset within the instance's field values, or within the class's
// static ones. A field that the dump's level leaves out, or that is not reported for this class,
// has no place.
class Slot {
public:
    Slot() = default;
    Slot(const FieldInfo& field, std::uint32_t offset)
        : place_(field.isStatic ? Place::kStatic : Place::kInstance),
          kind_(field.kind == '[' ? 'L' : field.kind),
          offset_(offset) {}

    // Whether such a value belongs here. The kind is asked for because a VM that numbered fields
    // otherwise than we believe would have us write into the middle of other values. kind: 'L' for
    // references, else the primitive's letter.
    bool takesInstance(char kind) const { return place_ == Place::kInstance && kind_ == kind; }
    bool takesStatic(char kind) const { return place_ == Place::kStatic && kind_ == kind; }

    std::uint32_t offset() const { return offset_; }

    // The same field in an heir, whose own values come first. Statics are their class's alone.
    Slot inherited(std::uint32_t heirsOwnBytes) const {
        if (place_ != Place::kInstance) return Slot();
        Slot moved = *this;
        moved.offset_ += heirsOwnBytes;
        return moved;
    }

private:
    enum class Place : char { kNone, kInstance, kStatic };
    Place place_ = Place::kNone;
    char kind_ = 0;
    std::uint32_t offset_ = 0;
};

struct ClassLayout {
    ClassKind kind =
        ClassKind::kUnprepared;  // an ordinary class that cannot be laid out counts as unprepared
    jlong id = 0;
    bool isJavaLangClass = false;

    // Ordinary classes.
    jlong superId = 0;
    std::vector<jlong> interfaceIds;  // direct ones
    std::uint32_t instanceBytes = 0;  // of field values in a record, inherited ones included
    std::uint32_t staticBytes = 0;
    std::vector<Slot> slots;     // by JVMTI field index
    std::uint64_t recordAt = 0;  // offset of the class-dump record, once written

    // Arrays.
    jint elementType = 0;            // JVMPI_INT and so on, JVMPI_CLASS for references
    std::uint32_t elementBytes = 0;  // in a record; 0 when the level leaves the elements out
    jlong elementClassId = 0;        // of arrays of references; 0: unknown
};

// A snapshot of all loaded classes. The caller provides a local frame and keeps it open: while the
// references in it live, no class that the dump names can be unloaded.
class ClassLayouts {
public:
    // Tags each class's mirror in `tags` with its class id. level: which values the dump wants (0
    // none, 1 references, 2 all). False when the VM refuses.
    bool load(JNIEnv* env, jvmtiEnv* tags, int level);

    // Null: not in the snapshot.
    ClassLayout* find(jlong classId) {
        const auto index = static_cast<std::uint64_t>(classId - kFirstClassId) / kIdStep;
        if (index >= byId_.size() || byId_[index] == 0) return nullptr;
        return &layouts_[byId_[index] - 1];
    }
    std::vector<ClassLayout>& all() { return layouts_; }

    // The classes themselves; valid in the caller's local frame.
    const std::vector<jclass>& mirrors() const { return mirrors_; }

private:
    struct Source;  // what is needed of a class only while layouts are made

    bool wants(char signature) const;
    void add(JNIEnv* env, jvmtiEnv* tags, jclass mirror);
    void readMembers(JNIEnv* env, Source& source);
    void readElements(JNIEnv* env, jclass mirror, ClassLayout& layout);
    void layOut(std::vector<Source>& sources, std::size_t index);

    int level_ = 2;
    std::vector<ClassLayout> layouts_;
    std::vector<jclass> mirrors_;      // parallel to layouts_
    std::vector<std::uint32_t> byId_;  // position in layouts_ plus 1; 0: none
};

}  // namespace adapter
