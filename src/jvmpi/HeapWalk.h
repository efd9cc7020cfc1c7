// One walk through the heap that writes the dump's records.
//
// All objects are visited by one FollowReferences, which is one stop of the VM: an atomic picture.
// An object's record is laid down, zero-filled, when it is first met, and its tag then says where;
// references and primitive values are written into their places as the VM reports them. Nothing
// inside the stop calls the VM or Java; memory is taken from the kernel only.
#pragma once

#include <unordered_map>
#include <vector>

#include "jvmpi/ClassLayouts.h"
#include "jvmpi/DumpBuffer.h"
#include "jvmpi/Jvmti.h"

namespace adapter {

class HeapWalk {
public:
    // tags: an environment of the dump's own. level: 0 to 2. memoryLimit: bytes that records and
    // the VM's tags may take together. firstId: what the first record's object is called; the id of
    // a record is firstId plus its offset.
    HeapWalk(jvmtiEnv* tags, int level, std::uint64_t memoryLimit, jlong firstId)
        : tags_(tags), level_(level), memoryLimit_(memoryLimit), firstId_(firstId) {}
    HeapWalk(const HeapWalk&) = delete;
    HeapWalk& operator=(const HeapWalk&) = delete;

    // False: refused by the VM, or memory ran out. What the dump names stays loaded while the
    // frames stand.
    bool run(JNIEnv* env, LocalFrames& frames);

    DumpBuffer& records() { return records_; }

private:
    struct Root {
        jint tag;        // JVMPI_GC_ROOT_*
        jlong object;    // its id
        JNIEnv* thread;  // of thread-bound roots; null: unknown
        jint frame;      // -1: none
    };

    static jint JNICALL onReference(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* info,
                                    jlong classTag, jlong referrerClassTag, jlong size, jlong* tag,
                                    jlong* referrerTag, jint length, void* self);
    static jint JNICALL onPrimitiveField(jvmtiHeapReferenceKind kind,
                                         const jvmtiHeapReferenceInfo* info, jlong classTag,
                                         jlong* tag, jvalue value, jvmtiPrimitiveType type,
                                         void* self);
    static jint JNICALL onPrimitiveArray(jlong classTag, jlong size, jlong* tag, jint count,
                                         jvmtiPrimitiveType type, const void* elements, void* self);

    void tagSingles(JNIEnv* env);
    void reachThroughMirrors(JNIEnv* env, LocalFrames& frames);
    bool writeClassRecords();
    bool writeRoots();

    // Room for a record, charged to the limit; false ends the walk.
    bool take(std::uint64_t bytes, std::uint64_t& at);
    bool admit(jlong classTag, jint length, jlong* tag);
    bool layDown(const ClassLayout& layout, jint length, jlong id, std::uint64_t& at);
    void store(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* info,
               jlong referrerClassTag, jlong referrer, jlong referee);
    bool noteRoot(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* info, jlong object);
    JNIEnv* envOfThread(jlong threadTag) const;
    bool recordOf(jlong id, std::uint64_t& at) const;

    jvmtiEnv* tags_;
    const int level_;
    const std::uint64_t memoryLimit_;
    const jlong firstId_;

    ClassLayouts classes_;
    DumpBuffer records_;
    std::uint64_t used_ = 0;  // bytes of records and, estimated, of tags
    std::vector<Root> roots_;
    std::unordered_map<jlong, std::uint64_t>
        singles_;  // objects that had an id before: where their record is, kNowhere: not met yet
    std::unordered_map<jlong, JNIEnv*> threads_;  // by the thread object's id
    jlong requester_ = 0;                         // id of the thread that asked for the dump
    bool failed_ = false;
};

}  // namespace adapter
