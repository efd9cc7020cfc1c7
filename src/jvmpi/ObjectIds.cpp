// Ids of single objects, and from any id back to its object.
#include "jvmpi/ObjectIds.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <unordered_map>

#include "jvmpi/ClassIds.h"

namespace adapter {
namespace {

// Never destroyed: exit handlers may still ask.
struct Table {
    std::mutex
        lock;  // guards what follows; also orders look and set, so that an object gets one id
    jvmtiEnv* tags = nullptr;  // written once
    jlong next = kFirstSingleId;
    std::unordered_map<jlong, SharedWeakRef> objects;
    std::size_t sweepAt =
        1024;  // entries of dead objects are dropped when the table has grown to this
};

Table& table() {
    static Table& instance = *new Table;
    return instance;
}

std::atomic<jvmtiEnv*> singleIds{nullptr};  // table().tags, for a look without the lock
std::atomic<jvmtiEnv*> dumpIds{nullptr};

// Caller holds the lock.
jvmtiEnv* openTagsLocked() {
    if (table().tags == nullptr) {
        table().tags = openTaggingEnvironment();
        singleIds.store(table().tags, std::memory_order_release);
    }
    return table().tags;
}

// Forgets the ids of collected objects; what lives comes back. The lock is held for the copy and
// the erasing only: the references are looked at, and given up, outside.
IdsAndObjects sweep(JNIEnv* env) {
    IdsAndObjects living;
    {
        const std::lock_guard guard(table().lock);
        living.assign(table().objects.begin(), table().objects.end());
    }
    const auto dead = std::stable_partition(living.begin(), living.end(), [&](const auto& entry) {
        return static_cast<bool>(entry.second->get(env));
    });
    {
        const std::lock_guard guard(table().lock);
        for (auto entry = dead; entry != living.end(); ++entry) table().objects.erase(entry->first);
        table().sweepAt = std::max<std::size_t>(1024, 2 * table().objects.size());
    }
    living.erase(dead, living.end());
    return living;
}

void sweepIfDue(JNIEnv* env) {
    {
        const std::lock_guard guard(table().lock);
        if (table().objects.size() < table().sweepAt) return;
        table().sweepAt *= 2;  // one thread sweeps; without memory for it the next one tries later
    }
    sweep(env);
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
    if (const jlong known = tagIn(singleIds.load(std::memory_order_acquire), object)) {
        return toObjectId(known);
    }
    sweepIfDue(env);
    auto weak = std::make_shared<const WeakRef>(env, object);
    const std::lock_guard guard(table().lock);
    jvmtiEnv* tags = openTagsLocked();
    if (tags == nullptr) return nullptr;
    if (const jlong known = tagIn(tags, object)) return toObjectId(known);
    const jlong tag = table().next;
    table().objects.emplace(tag, std::move(weak));
    if (tags->SetTag(object, tag) != JVMTI_ERROR_NONE) {
        table().objects.erase(tag);
        return nullptr;
    }
    table().next += kIdStep;
    return toObjectId(tag);
}

jobject objectOfId(JNIEnv* env, jobjectID id) {
    const jlong tag = toTag(id);
    if (env == nullptr || tag < kFirstClassId) return nullptr;
    if (tag >= kFirstDumpId) return taggedObject(env, dumpIds.load(std::memory_order_acquire), tag);
    if (tag < kFirstSingleId) return classOfId(env, id).release();
    SharedWeakRef weak;
    {
        const std::lock_guard guard(table().lock);
        const auto at = table().objects.find(tag);
        if (at != table().objects.end()) weak = at->second;
    }
    return weak == nullptr ? nullptr : weak->get(env).release();
}

IdsAndObjects livingSingles(JNIEnv* env) {
    return sweep(env);
}

void setDumpEnvironment(jvmtiEnv* environment) {
    dumpIds.store(environment, std::memory_order_release);
}

}  // namespace adapter
