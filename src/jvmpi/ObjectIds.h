// Object ids: opaque, never null, never reused, the same for as long as the object lives and
// however often the collector of garbage moves it. They are kept as JVMTI tags, so an id costs
// nothing once its object is gone.
//
// Three ranges tell who gave an id: classes (ClassIds.h), single objects (here), and objects met by
// a heap dump, whose ids hold until the dump's event has been handled.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "jvmpi/Jvmti.h"
#include "jvmpi/jvmpi.h"

namespace adapter {

constexpr jlong kFirstClassId = jlong{1} << 20;
constexpr jlong kFirstSingleId = jlong{1} << 40;
constexpr jlong kFirstDumpId = jlong{1} << 44;
constexpr jlong kIdStep = 8;  // ids look like the addresses that they once were

inline jobjectID toObjectId(jlong tag) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an id is a number in the shape of a pointer
    return reinterpret_cast<jobjectID>(tag);
}
inline jlong toTag(jobjectID id) {
    return reinterpret_cast<jlong>(id);
}

// The id of any object, made on first use; for a java.lang.Class the id of that class. Null for a
// null object and while the VM is not up.
jobjectID idOfObject(JNIEnv* env, jobject object);

// A new local reference to the object; null when it is gone or was never known.
jobject objectOfId(JNIEnv* env, jobjectID id);

using IdsAndObjects = std::vector<std::pair<jlong, SharedWeakRef>>;

// All objects of this file's range that are alive. A heap dump takes these ids over.
IdsAndObjects livingSingles(JNIEnv* env);

// While a dump's event is being handled its objects can be found through the environment that
// tagged them. Null: no longer.
void setDumpEnvironment(jvmtiEnv* environment);

}  // namespace adapter
