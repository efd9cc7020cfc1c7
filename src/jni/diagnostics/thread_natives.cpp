#include "diagnostics/thread_natives.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <vector>

#include "diagnostics/threaddump.h"
#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "foundation/Globals.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/ProbeState.h"
#include "foundation/Utils.h"
#include "instrument/class.h"
#include "instrument/method.h"

std::atomic<jclass> javastring{nullptr};

namespace {

constexpr jint kDeepestTrace = 32768;  // frames; keeps an absurd request off the Java heap
constexpr jint kStringsPerFrame = 3;

enum ThreadStatus : jint {
    kUnknownThread = -1,
    kEndedOrCancelled = 4,
    kResume = 0x2000,
    kSuspend = JVMPI_THREAD_SUSPENDED,
};

constexpr jint kNoThreadDump = -1;
constexpr std::size_t kFileNameSize = 256;

// A local reference that goes with its scope.
class LocalRef {
public:
    LocalRef(JNIEnv* env, jobject object) : env_(env), object_(object) {}
    ~LocalRef() {
        if (object_ != nullptr) env_->DeleteLocalRef(object_);
    }
    LocalRef(const LocalRef&) = delete;
    LocalRef& operator=(const LocalRef&) = delete;

    jobject get() const { return object_; }
    jobject release() {
        jobject const object = object_;
        object_ = nullptr;
        return object;
    }

private:
    JNIEnv* env_;
    jobject object_;
};

jclass stringClass(JNIEnv* env) {
    if (jclass known = javastring.load(std::memory_order_acquire); known != nullptr) return known;
    VEL_DEBUG_MIN("getStackTrace", "javastring is null");
    const LocalRef found(env, env->FindClass("java/lang/String"));
    jclass made =
        found.get() == nullptr ? nullptr : static_cast<jclass>(env->NewGlobalRef(found.get()));
    if (handleJavaException(env) || made == nullptr) return nullptr;
    jclass first = nullptr;
    if (javastring.compare_exchange_strong(first, made, std::memory_order_acq_rel)) return made;
    env->DeleteGlobalRef(made);  // another thread was quicker
    return first;
}

struct Target {
    JNIEnv* env = nullptr;
    ThreadData* thread = nullptr;
};

// The thread of that id; thread is null when it is not known.
Target findThread(jint threadId) {
    Target target;
    ThreadMgr* const threads = thrMgr_.load(std::memory_order_acquire);
    if (threads == nullptr) return target;
    target.env = threads->findJNIEnv(static_cast<unsigned>(threadId));
    if (target.env != nullptr) target.thread = threads->getThreadDataIfPresent(target.env);
    return target;
}

// The record of a method. An unknown one is registered by asking the VM for its class: the
// class-load event comes in, on this thread, before the request returns.
jmethod_t* findMethod(const JVMPI_Interface& vm, jmethodID id) {
    if (jmethod_t* const known = getMethod(id); known != nullptr) return known;
    const jobjectID classId = id == nullptr ? nullptr : vm.GetMethodClass(id);
    if (classId == nullptr) return nullptr;
    vm.RequestEvent(JVMPI_EVENT_CLASS_LOAD, classId);
    return getMethod(id);
}

bool isComplete(const jmethod_t* method) {
    return method != nullptr && method->clazz != nullptr && method->clazz->class_name != nullptr &&
           method->method_name != nullptr && method->method_signature != nullptr;
}

bool storeText(JNIEnv* env, jobjectArray array, jsize slot, const char* text) {
    const LocalRef element(env, env->NewStringUTF(text));
    if (element.get() != nullptr) env->SetObjectArrayElement(array, slot, element.get());
    return !handleJavaException(env) && element.get() != nullptr;
}

bool storeFrame(JNIEnv* env, jobjectArray array, jsize slot, const jmethod_t& method) {
    return storeText(env, array, slot, method.clazz->class_name) &&
           storeText(env, array, slot + 1, method.method_name) &&
           storeText(env, array, slot + 2, method.method_signature);
}

// Fills the array up to the first frame that is not known.
void fillTrace(JNIEnv* env, const JVMPI_Interface& vm, JNIEnv* target, jint depth,
               jobjectArray array) {
    std::vector<JVMPI_CallFrame> frames(static_cast<std::size_t>(depth));
    JVMPI_CallTrace trace{target, 0, frames.data()};
    vm.GetCallTrace(&trace, depth);
    const jint count = std::min(trace.num_frames, depth);
    for (jint i = 0; i < count; ++i) {
        const jmethod_t* const method =
            findMethod(vm, frames[static_cast<std::size_t>(i)].method_id);
        if (!isComplete(method) || !storeFrame(env, array, i * kStringsPerFrame, *method)) return;
    }
    if (count > 0) return;
    const jobjectID threadObject = vm.GetThreadObject(target);
    readJavaCore(env, reinterpret_cast<std::uintptr_t>(threadObject), array);
}

jobjectArray stackTrace(JNIEnv* env, jint threadId, jint maxDepth) {
    if (ProbeState::isDisabled()) {
        logMessage(msg::kStackTraceDisabled);
        return nullptr;
    }
    if (maxDepth <= 0) return nullptr;
    jclass const string = stringClass(env);
    if (string == nullptr) return nullptr;
    const jint depth = std::min(maxDepth, kDeepestTrace);
    LocalRef array(env, env->NewObjectArray(depth * kStringsPerFrame, string, nullptr));
    if (handleJavaException(env) || array.get() == nullptr) return nullptr;
    const JVMPI_Interface* const vm = jvmpi.load(std::memory_order_acquire);
    if (vm == nullptr) return nullptr;
    const Target target = findThread(threadId);
    if (target.thread == nullptr || !target.thread->isAlive() || target.thread->isCancelled())
        return nullptr;
    fillTrace(env, *vm, target.env, depth, static_cast<jobjectArray>(array.get()));
    return static_cast<jobjectArray>(array.release());
}

// The VM's status word without what Java does not know.
jint normalised(jint status) {
    constexpr jint kBits = JVMPI_THREAD_SUSPENDED | JVMPI_THREAD_INTERRUPTED;
    const jint base = status & ~kBits;
    const bool known = base == JVMPI_THREAD_RUNNABLE || base == JVMPI_THREAD_MONITOR_WAIT ||
                       base == JVMPI_THREAD_CONDVAR_WAIT;
    return (status & kBits) | (known ? base : 0);
}

jint threadStatus(jint threadId) {
    const JVMPI_Interface* const vm = jvmpi.load(std::memory_order_acquire);
    if (vm == nullptr) return kUnknownThread;
    const Target target = findThread(threadId);
    if (target.thread == nullptr) return kUnknownThread;
    if (!target.thread->isAlive() || target.thread->isCancelled()) return kEndedOrCancelled;
    jint status = normalised(vm->GetThreadStatus(target.env));
    if (target.thread->isSuspended()) status |= JVMPI_THREAD_SUSPENDED;
    VEL_DEBUG_MIN("getNativeThreadStatus", "Thread %d status is %d", threadId, status);
    return status;
}

void changeThreadStatus(jint threadId, jint status) {
    ThreadData* const thread = findThread(threadId).thread;
    if (thread == nullptr || !thread->isAlive()) return;
    switch (status) {
        case kEndedOrCancelled:
            thread->setCancelled(true);
            thread->setSuspended(false);
            break;
        case kResume:
            thread->setSuspended(false);
            break;
        case kSuspend:
            thread->setSuspended(true);
            break;
        default:
            break;
    }
}

// The method, or null with a debug line.
jmethodID findSetter(JNIEnv* env, jclass type, const char* name, const char* signature,
                     const char* noteWhenMissing) {
    const jmethodID setter = env->GetMethodID(type, name, signature);
    if (handleJavaException(env) || setter == nullptr) {
        VEL_DEBUG_MIN("generateThreadDump", "%s", noteWhenMissing);
        return nullptr;
    }
    return setter;
}

jint tellDump(JNIEnv* env, jobject info, const char* fileName, long offset) {
    const LocalRef type(env, env->GetObjectClass(info));
    if (handleJavaException(env) || type.get() == nullptr) {
        VEL_DEBUG_MIN("generateThreadDump", "Can't get ThreadDumpInfo class");
        return kNoThreadDump;
    }
    auto* const clazz = static_cast<jclass>(type.get());
    const jmethodID setFileName = findSetter(env, clazz, "setFileName", "(Ljava/lang/String;)V",
                                             "Can't find method setFileName(String)");
    if (setFileName == nullptr) return kNoThreadDump;
    const jmethodID setOffSet =
        findSetter(env, clazz, "setOffSet", "(J)V", "Can't find method setOffSet(long)");
    if (setOffSet == nullptr) return kNoThreadDump;
    const LocalRef name(env, env->NewStringUTF(fileName));
    if (handleJavaException(env) || name.get() == nullptr) {
        VEL_DEBUG_MIN("generateThreadDump", "Can't construct a String object");
        return kNoThreadDump;
    }
    VEL_DEBUG_MIN("generateThreadDump", "offset of %s is %d", fileName, offset);
    env->CallVoidMethod(info, setFileName, name.get());
    handleJavaException(env);
    env->CallVoidMethod(info, setOffSet, static_cast<jlong>(offset));
    handleJavaException(env);
    return 0;
}

}  // namespace

jint dumpThreads(JNIEnv* env, jobject info, ThreadDumpGenerator generate) {
    if (info == nullptr) {
        logMessage(msg::kThreadDumpInfoNull);
        return kNoThreadDump;
    }
    char fileName[kFileNameSize] = {};
    long offset = 0;
    const int result = generate(env, fileName, &offset);
    return result != 0 ? result : tellDump(env, info, fileName, offset);
}

jobjectArray Java_com_velora_probe_ThreadManager_getStackTrace(JNIEnv* env, jobject, jint threadId,
                                                               jint maxDepth, jint) {
    VEL_TRACE(
        "Java_com_velora_probe_ThreadManager_getStackTrace(JNIEnv*, jobject, jint, jint, jint)");
    return atJniEdge("getStackTrace", jobjectArray{},
                     [&] { return stackTrace(env, threadId, maxDepth); });
}

jint Java_com_velora_probe_ThreadManager_getNativeThreadStatus(JNIEnv*, jobject, jint threadId) {
    VEL_TRACE("Java_com_velora_probe_ThreadManager_getNativeThreadStatus(JNIEnv*, jobject, jint)");
    return atJniEdge("getNativeThreadStatus", jint{kUnknownThread},
                     [&] { return threadStatus(threadId); });
}

void Java_com_velora_probe_ThreadManager_setThreadStatus(JNIEnv*, jobject, jint threadId,
                                                         jint status) {
    VEL_TRACE("Java_com_velora_probe_ThreadManager_setThreadStatus(JNIEnv*, jobject, jint, jint)");
    atJniEdge("setThreadStatus", [&] { changeThreadStatus(threadId, status); });
}

jint Java_com_velora_command_CommandAgent_generateThreadDump(JNIEnv* env, jobject,
                                                             jobject threadDumpInfo) {
    VEL_TRACE("Java_com_velora_command_CommandAgent_generateThreadDump(JNIEnv*, jobject, jobject)");
    return atJniEdge("generateThreadDump", jint{kNoThreadDump},
                     [&] { return dumpThreads(env, threadDumpInfo, generateThreadDump); });
}
