// Writes the records of a heap dump. Layouts, tag byte included, all integers in machine order:
//
//   class      1 tag, 8 id, 8 super, 8 loader, 8 signers, 8 protection domain, 8 name, 8 reserved,
//   4 instance size,
//              8 per interface, 2 constants (none), static values
//   instance   1 tag, 8 id, 8 class, 4 length, field values
//   objects    1 tag, 8 id, 4 count, 8 element class, 8 per element
//   primitives 1 tag, 8 id, 4 count, 1 type, elements
//   level 0    1 type, 8 id
#include "jvmpi/HeapWalk.h"

#include <algorithm>

#include "jvmpi/ThreadMap.h"

namespace adapter {
namespace {

constexpr std::uint64_t kBareBytes = 1 + 8;
constexpr std::uint64_t kInstanceHead = 1 + 8 + 8 + 4;
constexpr std::uint64_t kObjectArrayHead = 1 + 8 + 4 + 8;
constexpr std::uint64_t kPrimitiveArrayHead = 1 + 8 + 4 + 1;
constexpr std::uint64_t kClassHead = 1 + 7 * 8 + 4;  // up to the interfaces
constexpr std::uint64_t kClassLoaderAt = 17;
constexpr std::uint64_t kClassSignersAt = 25;
constexpr std::uint64_t kClassDomainAt = 33;

// What the VM spends on one tagged object, rounded up from what was measured.
constexpr std::uint64_t kBytesPerTag = 72;

constexpr std::uint64_t kNowhere = UINT64_MAX;
constexpr jint kNoFrame = -1;

bool isClassTag(jlong tag) {
    return tag < kFirstSingleId;
}
bool isSingleTag(jlong tag) {
    return tag >= kFirstSingleId && tag < kFirstDumpId;
}

std::uint64_t staticsAt(const ClassLayout& layout) {
    return layout.recordAt + kClassHead + 8 * layout.interfaceIds.size() + 2;
}

bool isThreadBound(jint rootTag) {
    return rootTag == JVMPI_GC_ROOT_JNI_LOCAL || rootTag == JVMPI_GC_ROOT_JAVA_FRAME;
}

std::uint64_t rootBytes(jint tag) {
    if (isThreadBound(tag)) return 1 + 8 + 8 + 4;
    const bool hasSecondPointer =
        tag == JVMPI_GC_ROOT_JNI_GLOBAL || tag == JVMPI_GC_ROOT_THREAD_BLOCK;
    return hasSecondPointer ? 1 + 8 + 8 : 1 + 8;
}

}  // namespace

bool HeapWalk::take(std::uint64_t bytes, std::uint64_t& at) {
    at = records_.size();
    used_ += bytes;
    if (used_ <= memoryLimit_ && records_.extend(bytes)) return true;
    failed_ = true;
    return false;
}

bool HeapWalk::recordOf(jlong id, std::uint64_t& at) const {
    if (id >= firstId_) {
        at = static_cast<std::uint64_t>(id - firstId_);
        return true;
    }
    const auto found = singles_.find(id);
    if (found == singles_.end() || found->second == kNowhere) return false;
    at = found->second;
    return true;
}

// Lays down the record of an object that is met for the first time. An id of 0 means: name it after
// its place.
bool HeapWalk::layDown(const ClassLayout& layout, jint length, jlong id, std::uint64_t& at) {
    const auto count = static_cast<std::uint64_t>(length < 0 ? 0 : length);
    const bool isArray = layout.kind == ClassKind::kArray;
    const bool isObjectArray = isArray && layout.elementType == JVMPI_CLASS;
    std::uint64_t bytes = kBareBytes;
    if (level_ > 0) {
        bytes = isObjectArray ? kObjectArrayHead : isArray ? kPrimitiveArrayHead : kInstanceHead;
        bytes += isArray ? count * layout.elementBytes : layout.instanceBytes;
    }
    if (!take(bytes, at)) return false;
    if (id == 0) id = firstId_ + static_cast<jlong>(at);
    records_.put(at + 1, id);
    if (level_ == 0) {
        records_.put(at,
                     static_cast<std::uint8_t>(isArray ? layout.elementType : JVMPI_NORMAL_OBJECT));
    } else if (!isArray) {
        records_.put(at, std::uint8_t{JVMPI_GC_INSTANCE_DUMP});
        records_.put(at + 9, layout.id);
        records_.put(at + 17, layout.instanceBytes);
    } else {
        const bool references = isObjectArray;
        records_.put(at, static_cast<std::uint8_t>(references ? JVMPI_GC_OBJ_ARRAY_DUMP
                                                              : JVMPI_GC_PRIM_ARRAY_DUMP));
        records_.put(at + 9, static_cast<std::uint32_t>(count));
        if (references) {
            records_.put(at + 13, layout.elementClassId);
        } else {
            records_.put(at + 13, static_cast<std::uint8_t>(layout.elementType));
        }
    }
    return true;
}

// Gives an object its record and tag when it is first met. Objects of classes that the snapshot
// does not know (loaded since, or not linked), and mirrors of such classes, get none: references to
// them become null.
bool HeapWalk::admit(jlong classTag, jint length, jlong* tag) {
    if (*tag != 0 && !isSingleTag(*tag)) return true;
    std::uint64_t at = 0;
    if (*tag != 0 && recordOf(*tag, at)) return true;
    const ClassLayout* layout = classTag == 0 ? nullptr : classes_.find(classTag);
    if (layout == nullptr || layout->isJavaLangClass ||
        (layout->kind != ClassKind::kOrdinary && layout->kind != ClassKind::kArray)) {
        return true;
    }
    if (!layDown(*layout, length, *tag, at)) return false;
    if (*tag != 0) {
        singles_[*tag] = at;
    } else {
        used_ += kBytesPerTag;
        *tag = firstId_ + static_cast<jlong>(at);
    }
    return true;
}

void HeapWalk::store(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* info,
                     jlong referrerClassTag, jlong referrer, jlong referee) {
    if (referrer == 0 || referee == 0) return;
    std::uint64_t at = 0;
    switch (kind) {
        case JVMTI_HEAP_REFERENCE_FIELD: {
            // A mirror's own fields are reported as well; a class-dump record has no place for
            // them.
            const ClassLayout* layout = isClassTag(referrer) || referrerClassTag == 0
                                            ? nullptr
                                            : classes_.find(referrerClassTag);
            const auto index = static_cast<std::size_t>(info->field.index);
            if (layout == nullptr || index >= layout->slots.size() ||
                !layout->slots[index].takesInstance('L') || !recordOf(referrer, at)) {
                return;
            }
            records_.put(at + kInstanceHead + layout->slots[index].offset(), referee);
            return;
        }
        case JVMTI_HEAP_REFERENCE_ARRAY_ELEMENT:
            if (isClassTag(referrer) || !recordOf(referrer, at)) return;
            records_.put(at + kObjectArrayHead + 8 * static_cast<std::uint64_t>(info->array.index),
                         referee);
            return;
        default:
            break;
    }
    ClassLayout* layout = isClassTag(referrer) ? classes_.find(referrer) : nullptr;
    if (layout == nullptr || layout->kind != ClassKind::kOrdinary) return;
    switch (kind) {
        case JVMTI_HEAP_REFERENCE_STATIC_FIELD: {
            const auto index = static_cast<std::size_t>(info->field.index);
            if (index >= layout->slots.size() || !layout->slots[index].takesStatic('L')) return;
            records_.put(staticsAt(*layout) + layout->slots[index].offset(), referee);
            return;
        }
        case JVMTI_HEAP_REFERENCE_CLASS_LOADER:
            records_.put(layout->recordAt + kClassLoaderAt, referee);
            return;
        case JVMTI_HEAP_REFERENCE_SIGNERS:
            records_.put(layout->recordAt + kClassSignersAt, referee);
            return;
        case JVMTI_HEAP_REFERENCE_PROTECTION_DOMAIN:
            records_.put(layout->recordAt + kClassDomainAt, referee);
            return;
        default:
            return;
    }
}

JNIEnv* HeapWalk::envOfThread(jlong threadTag) const {
    const auto found = threads_.find(threadTag);
    return found == threads_.end() ? nullptr : found->second;
}

// False: kind is no root.
bool HeapWalk::noteRoot(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* info,
                        jlong object) {
    Root root{JVMPI_GC_ROOT_UNKNOWN, object, nullptr, kNoFrame};
    switch (kind) {
        case JVMTI_HEAP_REFERENCE_JNI_GLOBAL:
            root.tag = JVMPI_GC_ROOT_JNI_GLOBAL;
            break;
        case JVMTI_HEAP_REFERENCE_SYSTEM_CLASS:  // some VMs report other objects under this kind
            if (isClassTag(object)) root.tag = JVMPI_GC_ROOT_STICKY_CLASS;
            break;
        case JVMTI_HEAP_REFERENCE_MONITOR:
            root.tag = JVMPI_GC_ROOT_MONITOR_USED;
            break;
        case JVMTI_HEAP_REFERENCE_STACK_LOCAL:
            root.tag = JVMPI_GC_ROOT_JAVA_FRAME;
            root.thread = envOfThread(info->stack_local.thread_tag);
            root.frame = info->stack_local.depth;
            break;
        case JVMTI_HEAP_REFERENCE_JNI_LOCAL:
            // The native that asked for the dump: its references are mostly ours.
            if (info->jni_local.thread_tag == requester_ && info->jni_local.depth == 0) return true;
            root.tag = JVMPI_GC_ROOT_JNI_LOCAL;
            root.thread = envOfThread(info->jni_local.thread_tag);
            root.frame = info->jni_local.depth;
            break;
        case JVMTI_HEAP_REFERENCE_THREAD:
            root.tag = JVMPI_GC_ROOT_THREAD_BLOCK;
            root.thread = envOfThread(object);
            break;
        case JVMTI_HEAP_REFERENCE_OTHER:
            break;
        default:
            return false;
    }
    used_ += sizeof root;
    roots_.push_back(root);
    return true;
}

jint JNICALL HeapWalk::onReference(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* info,
                                   jlong classTag, jlong referrerClassTag, jlong, jlong* tag,
                                   jlong* referrerTag, jint length, void* self) {
    auto& walk = *static_cast<HeapWalk*>(self);
    try {
        if (!walk.admit(classTag, length, tag)) return JVMTI_VISIT_ABORT;
        if (walk.level_ == 0) return JVMTI_VISIT_OBJECTS;
        if (referrerTag != nullptr) {
            walk.store(kind, info, referrerClassTag, *referrerTag, *tag);
        } else if (*tag != 0) {
            walk.noteRoot(kind, info, *tag);
        }
        return JVMTI_VISIT_OBJECTS;
    } catch (...) {  // memory
        walk.failed_ = true;
        return JVMTI_VISIT_ABORT;
    }
}

jint JNICALL HeapWalk::onPrimitiveField(jvmtiHeapReferenceKind kind,
                                        const jvmtiHeapReferenceInfo* info, jlong classTag,
                                        jlong* tag, jvalue value, jvmtiPrimitiveType type,
                                        void* self) {
    auto& walk = *static_cast<HeapWalk*>(self);
    if (*tag == 0) return 0;
    const bool isStatic = kind == JVMTI_HEAP_REFERENCE_STATIC_FIELD;
    if (isStatic != isClassTag(*tag)) return 0;  // a mirror's own field
    const jlong classId = isStatic ? *tag : classTag;
    const ClassLayout* layout = classId == 0 ? nullptr : walk.classes_.find(classId);
    const auto index = static_cast<std::size_t>(info->field.index);
    if (layout == nullptr || layout->kind != ClassKind::kOrdinary || index >= layout->slots.size())
        return 0;
    const Slot slot = layout->slots[index];
    std::uint64_t at = 0;
    if (isStatic) {
        if (!slot.takesStatic(static_cast<char>(type))) return 0;
        at = staticsAt(*layout) + slot.offset();
    } else {
        if (!slot.takesInstance(static_cast<char>(type)) || !walk.recordOf(*tag, at)) return 0;
        at += kInstanceHead + slot.offset();
    }
    switch (widthOf(static_cast<char>(type))) {
        case 1:
            walk.records_.put(at, value.b);
            break;
        case 2:
            walk.records_.put(at, value.s);
            break;
        case 4:
            walk.records_.put(at, value.i);
            break;
        case 8:
            walk.records_.put(at, value.j);
            break;
        default:
            break;
    }
    return 0;
}

jint JNICALL HeapWalk::onPrimitiveArray(jlong, jlong, jlong* tag, jint count,
                                        jvmtiPrimitiveType type, const void* elements, void* self) {
    auto& walk = *static_cast<HeapWalk*>(self);
    std::uint64_t at = 0;
    if (*tag == 0 || isClassTag(*tag) || count <= 0 || !walk.recordOf(*tag, at)) return 0;
    memcpy(walk.records_.at(at + kPrimitiveArrayHead), elements,
           static_cast<std::size_t>(count) * widthOf(static_cast<char>(type)));
    return 0;
}

// Objects that the agent knows by an id already keep it, threads among them.
void HeapWalk::tagSingles(JNIEnv* env) {
    jint count = 0;
    VmMemory<jthread> threads;
    if (vmti()->GetAllThreads(&count, threads.out()) == JVMTI_ERROR_NONE) {
        for (jint i = 0; i < count; ++i) {
            const LocalRef<jthread> thread(env, threads[i]);
            threads_[toTag(idOfObject(env, thread.get()))] = envOf(env, thread.get());
        }
    }
    LocalRef<jthread> self(env);
    if (vmti()->GetCurrentThread(self.out()) == JVMTI_ERROR_NONE) {
        requester_ = toTag(idOfObject(env, self.get()));
    }
    for (const auto& [tag, weak] : livingSingles(env)) {
        const LocalRef<> object = weak->get(env);
        if (object && tags_->SetTag(object.get(), tag) == JVMTI_ERROR_NONE)
            singles_[tag] = kNowhere;
    }
}

// The VM does not follow the fields of java.lang.Class objects, behind which reflection data,
// annotations and the data of hidden classes hang. Held as local references they are roots, and
// what they reach gets into the picture.
void HeapWalk::reachThroughMirrors(JNIEnv* env, LocalFrames& frames) {
    const LocalRef<jclass> classClass(env, env->FindClass("java/lang/Class"));
    jint count = 0;
    VmMemory<jfieldID> fields;
    std::vector<FieldInfo> kinds;
    if (!classClass || !fieldsOf(classClass.get(), kinds) ||
        vmti()->GetClassFields(classClass.get(), &count, fields.out()) != JVMTI_ERROR_NONE) {
        return;
    }
    std::vector<jfieldID> references;
    for (jint i = 0; i < count; ++i) {
        const FieldInfo& field = kinds[static_cast<std::size_t>(i)];
        if (!field.isStatic && typeCodeOf(field.kind) == JVMPI_CLASS)
            references.push_back(fields[i]);
    }
    const auto perFrame = std::max<std::size_t>(1, 16384 / (references.size() + 1));
    const auto& mirrors = classes_.mirrors();
    for (std::size_t i = 0; i < mirrors.size(); ++i) {
        if (i % perFrame == 0 && !frames.push(16384)) return;
        for (const jfieldID field : references) env->GetObjectField(mirrors[i], field);
    }
}

bool HeapWalk::writeClassRecords() {
    for (ClassLayout& layout : classes_.all()) {
        used_ += kBytesPerTag;
        std::uint64_t at = 0;
        if (level_ == 0) {
            if (!take(kBareBytes, at)) return false;
            records_.put(at, std::uint8_t{JVMPI_NORMAL_OBJECT});
            records_.put(at + 1, layout.id);
            continue;
        }
        if (layout.kind != ClassKind::kOrdinary) continue;
        if (!take(kClassHead + 8 * layout.interfaceIds.size() + 2 + layout.staticBytes, at))
            return false;
        layout.recordAt = at;
        records_.put(at, std::uint8_t{JVMPI_GC_CLASS_DUMP});
        records_.put(at + 1, layout.id);
        records_.put(at + 9, layout.superId);
        records_.put(at + kClassHead - 4, layout.instanceBytes);
        at += kClassHead;
        for (const jlong id : layout.interfaceIds) {
            records_.put(at, id);
            at += 8;
        }
    }
    return true;
}

bool HeapWalk::writeRoots() {
    for (const Root& root : roots_) {
        std::uint64_t at = 0;
        if (!take(rootBytes(root.tag), at)) return false;
        records_.put(at, static_cast<std::uint8_t>(root.tag));
        records_.put(at + 1, root.object);
        if (root.tag == JVMPI_GC_ROOT_THREAD_BLOCK || isThreadBound(root.tag)) {
            records_.put(at + 9, root.thread);
        }
        if (isThreadBound(root.tag)) records_.put(at + 17, root.frame);
    }
    return true;
}

bool HeapWalk::run(JNIEnv* env, LocalFrames& frames) {
    if (!classes_.load(env, tags_, level_)) return false;
    tagSingles(env);
    reachThroughMirrors(env, frames);
    if (!writeClassRecords()) return false;
    jvmtiHeapCallbacks callbacks{};
    callbacks.heap_reference_callback = onReference;
    if (level_ >= 2) {
        callbacks.primitive_field_callback = onPrimitiveField;
        callbacks.array_primitive_value_callback = onPrimitiveArray;
    }
    const jvmtiError error = tags_->FollowReferences(0, nullptr, nullptr, &callbacks, this);
    return error == JVMTI_ERROR_NONE && !failed_ && writeRoots();
}

}  // namespace adapter
