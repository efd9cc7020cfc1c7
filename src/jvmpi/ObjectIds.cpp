// Ids of single objects, and from any id back to its object.
#include "jvmpi/ObjectIds.h"

#include <atomic>
#include <mutex>

#include "jvmpi/ClassIds.h"

namespace adapter {
namespace {

std::mutex idLock;  // orders look and set, so that an object gets one id
std::atomic<jvmtiEnv*> singleIds{nullptr};
std::atomic<jvmtiEnv*> dumpIds{nullptr};

// Caller holds idLock.
jvmtiEnv* openSingleIdsLocked() {
    if (singleIds.load(std::memory_order_relaxed) == nullptr) {
        singleIds.store(openTaggingEnvironment(), std::memory_order_release);
    }
    return singleIds.load(std::memory_order_relaxed);
}

bool isClass(JNIEnv* env, jobject object) {
    static const auto type = static_cast<jclass>(
        env->NewGlobalRef(LocalRef<jclass>(env, env->FindClass("java/lang/Class")).get()));
    return type != nullptr && env->IsInstanceOf(object, type);
}

jlong tagIn(jvmtiEnv* tags, jobject object) {
    jlong tag = 0;
    return tags != nullptr && tags->GetTag(object, &tag) == JVMTI_ERROR_NONE ? tag : 0;
}

// The one object that carries the tag in that environment.
jobject taggedObject(JNIEnv* env, jvmtiEnv* tags, jlong tag) {
    jint count = 0;
    VmMemory<jobject> found;
    if (tags == nullptr ||
        tags->GetObjectsWithTags(1, &tag, &count, found.out(), nullptr) != JVMTI_ERROR_NONE) {
        return nullptr;
    }
    for (jint i = 1; i < count; ++i) env->DeleteLocalRef(found[i]);
    return count > 0 ? found[0] : nullptr;
}

}  // namespace

jobjectID idOfObject(JNIEnv* env, jobject object) {
    if (env == nullptr || object == nullptr) return nullptr;
    if (isClass(env, object)) return idOfClass(env, static_cast<jclass>(object));
    if (const jlong known = tagIn(singleIdEnvironment(), object)) return toObjectId(known);
    const std::lock_guard guard(idLock);
    jvmtiEnv* tags = openSingleIdsLocked();
    if (tags == nullptr) return nullptr;
    if (const jlong known = tagIn(tags, object)) return toObjectId(known);
    static jlong next = kFirstSingleId;
    if (tags->SetTag(object, next) != JVMTI_ERROR_NONE) return nullptr;
    return toObjectId(std::exchange(next, next + kIdStep));
}

jobject objectOfId(JNIEnv* env, jobjectID id) {
    const jlong tag = toTag(id);
    if (env == nullptr || tag < kFirstClassId) return nullptr;
    if (tag >= kFirstDumpId) return taggedObject(env, dumpIds.load(std::memory_order_acquire), tag);
    if (tag >= kFirstSingleId) return taggedObject(env, singleIdEnvironment(), tag);
    return classOfId(env, id).release();
}

jvmtiEnv* singleIdEnvironment() {
    return singleIds.load(std::memory_order_acquire);
}

void setDumpEnvironment(jvmtiEnv* environment) {
    dumpIds.store(environment, std::memory_order_release);
}

}  // namespace adapter
