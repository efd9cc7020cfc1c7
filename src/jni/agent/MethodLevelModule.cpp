#include "agent/MethodLevelModule.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "agent/ProbeMgr.h"
#include "agent/velora.h"
#include "capture/CaptureEdge.h"
#include "capture/EventUtils.h"
#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "event/VmEvents.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/JniScope.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"
#include "instrument/class.h"
#include "instrument/classfile.h"
#include "instrument/classfilter.h"
#include "transport/MemoryMonitor.h"

namespace {

// The classes declared by Java, by Java's class id. The class table cannot answer for them: its
// look-ups never find the oldest class. The records belong to the class table; an entry leaves the
// map before its record is retired. lock guards the map; it is held for memory work and table
// registration only.
struct Declared {
    std::mutex lock;
    std::unordered_map<jint, jclass_t*> classes;
};

Declared& declared() {
    static auto* const all = new Declared;  // never destroyed: natives may still run at exit
    return *all;
}

template <typename Id>
Id idFromJava(jint id) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): ids travel through Java as ints
    return reinterpret_cast<Id>(static_cast<std::intptr_t>(id));
}

ThreadData* callersRecord(JNIEnv* env) {
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    return threads == nullptr ? nullptr : threads->getThreadData(env);
}

// Never null: a record without one of its texts could not be read.
char* textOf(JNIEnv* env, jobjectArray texts, jint index) {
    const LocalRef text(env, static_cast<jstring>(env->GetObjectArrayElement(texts, index)));
    char* const copy = Utils::java2c_string(env, text.get());
    return copy != nullptr ? copy : Utils::cstrdup("");
}

// A class record from Java's description; null when the arrays do not fit together.
jclass_t* buildClass(JNIEnv* env, jint classId, jstring className, jintArray methodIds,
                     jobjectArray names, jobjectArray signatures) {
    if (methodIds == nullptr || names == nullptr || signatures == nullptr) return nullptr;
    const jint count = env->GetArrayLength(methodIds);
    if (env->GetArrayLength(names) != count || env->GetArrayLength(signatures) != count)
        return nullptr;
    char* const name = dotToSlash(Utils::java2c_string(env, className));
    if (name == nullptr) return nullptr;
    auto* const built = new jclass_t;
    built->class_name = name;
    built->class_id.store(idFromJava<jobjectID>(classId), std::memory_order_relaxed);
    built->is_filtered.store(isClassFiltered(built->class_name), std::memory_order_relaxed);
    built->allocateMethods(count);
    std::vector<jint> ids(static_cast<std::size_t>(count));
    env->GetIntArrayRegion(methodIds, 0, count, ids.data());
    for (jint i = 0; i < count; ++i) {
        jmethod_t& method = built->methods[i];
        method.method_name = textOf(env, names, i);
        method.method_signature = textOf(env, signatures, i);
        method.method_id.store(idFromJava<jmethodID>(ids[static_cast<std::size_t>(i)]),
                               std::memory_order_relaxed);
        method.clazz = built;
        method.type = 0;
    }
    handleJavaException(env);
    return built;
}

bool sendClassEvent(JNIEnv* env, EventSubType phase, jclass_t* description) {
    ThreadData* const thread = callersRecord(env);
    auto* const event = new ClassEvent(phase);
    event->classData = description;
    if (thread != nullptr) event->threadId_ = thread->getThreadIntId();
    return EventUtils::appendRequestEvent(env, thread, event);
}

// The registered record of that class id, built and registered when it is new; a copy of it for the
// event. Null when the description is unusable.
jclass_t* registerAndCopy(JNIEnv* env, jint classId, jstring className, jintArray methodIds,
                          jobjectArray names, jobjectArray signatures) {
    Declared& all = declared();
    {
        const std::lock_guard guard(all.lock);
        if (const auto known = all.classes.find(classId); known != all.classes.end())
            return known->second->clone();
    }
    std::unique_ptr<jclass_t> built(
        buildClass(env, classId, className, methodIds, names, signatures));
    if (built == nullptr) return nullptr;
    const std::lock_guard guard(all.lock);
    jclass_t*& known = all.classes[classId];
    if (known == nullptr) {  // else another thread was faster
        known = built.release();
        known->sequenceID = getNextClassSequence();
        known->doRegister();
    }
    return known->clone();
}

// Class events pass the memory gate: they are few, and without them method events mean nothing.
bool declareClass(JNIEnv* env, jint classId, jstring className, jintArray methodIds,
                  jobjectArray names, jobjectArray signatures) {
    if (ProbeMgr::isProbeDisabled() || classId == 0 || className == nullptr) return false;
    jclass_t* const copy = registerAndCopy(env, classId, className, methodIds, names, signatures);
    if (copy == nullptr) return false;
    copy->delete_flag = 0;
    return sendClassEvent(env, LOAD, copy);
}

bool withdrawClass(JNIEnv* env, jint classId) {
    jclass_t* gone = nullptr;
    {
        const std::lock_guard guard(declared().lock);
        const auto found = declared().classes.find(classId);
        if (found == declared().classes.end()) return false;
        gone = found->second;
        declared().classes.erase(found);
    }
    jclass_t* const copy = gone->clone();
    forgetClass(gone);
    if (ProbeMgr::isProbeDisabled()) {
        delete copy;
        return false;
    }
    return sendClassEvent(env, UNLOAD, copy);
}

bool appendMethodEvent(JNIEnv* env, jbyte phase, jint methodId) {
    if (MemoryMonitor::reachedULimit(env)) return false;
    ThreadData* const thread = callersRecord(env);
    if (thread == nullptr) return false;
    const bool start = phase == 0;
    auto* const event = new MethodEvent(start ? START : END);
    event->threadId_ = thread->getThreadIntId();
    event->method_id = idFromJava<jmethodID>(methodId);
    getClocks(event, start, env);
    return EventUtils::appendRequestEvent(env, thread, event);
}

jboolean toJava(bool answer) {
    return answer ? JNI_TRUE : JNI_FALSE;
}

}  // namespace

void turnOffJitOfApps() {
    VEL_TRACE("turnOffJitOfApps()");
}

extern "C" {

JNIEXPORT void JNICALL Java_com_velora_command_MethodLevelModule_initializeClass(
    JNIEnv* env, jobject, jint classId, jstring className, jintArray methodIds, jobjectArray names,
    jobjectArray signatures) {
    VEL_TRACE("Java_com_velora_command_MethodLevelModule_initializeClass(JNIEnv*, jobject, ...)");
    atJniEdge("initializeClass",
              [&] { declareClass(env, classId, className, methodIds, names, signatures); });
}

JNIEXPORT void JNICALL Java_com_velora_command_MethodLevelModule_unloadClass(JNIEnv* env, jobject,
                                                                             jint classId, jstring,
                                                                             jintArray) {
    VEL_TRACE("Java_com_velora_command_MethodLevelModule_unloadClass(JNIEnv*, jobject, ...)");
    atJniEdge("unloadClass", [&] { withdrawClass(env, classId); });
}

JNIEXPORT jboolean JNICALL Java_com_velora_probe_l3trace_BcmRuntime_appendL3Event(JNIEnv* env,
                                                                                  jclass,
                                                                                  jbyte phase,
                                                                                  jint methodId) {
    VEL_TRACE(
        "Java_com_velora_probe_l3trace_BcmRuntime_appendL3Event(JNIEnv*, jclass, jbyte, jint)");
    return capture::atCaptureEdge("appendL3Event", jboolean{JNI_FALSE},
                                  [&] { return toJava(appendMethodEvent(env, phase, methodId)); });
}

JNIEXPORT jboolean JNICALL Java_com_velora_probe_l3trace_BcmRuntime_sendClassEventNative(
    JNIEnv* env, jclass, jint classId, jstring className, jintArray methodIds, jobjectArray names,
    jobjectArray signatures) {
    VEL_TRACE(
        "Java_com_velora_probe_l3trace_BcmRuntime_sendClassEventNative(JNIEnv*, jclass, ...)");
    return atJniEdge("sendClassEventNative", jboolean{JNI_FALSE}, [&] {
        return toJava(declareClass(env, classId, className, methodIds, names, signatures));
    });
}

JNIEXPORT jboolean JNICALL Java_com_velora_probe_l3trace_BcmRuntime_sendClassUnloadEventNative(
    JNIEnv* env, jclass, jint classId, jstring, jintArray) {
    VEL_TRACE(
        "Java_com_velora_probe_l3trace_BcmRuntime_sendClassUnloadEventNative(JNIEnv*, jclass, "
        "...)");
    return atJniEdge("sendClassUnloadEventNative", jboolean{JNI_FALSE},
                     [&] { return toJava(withdrawClass(env, classId)); });
}

}  // extern "C"
