// Measures where a thread's JNIEnv lies relative to its native half.
#include "jvmpi/NativeThreadField.h"

#include <atomic>

namespace adapter {
namespace {

enum : jlong { kUnmeasured = 0, kUnusable = -1 };
std::atomic<jlong> distance{kUnmeasured};  // bytes; every measurement of one VM gives the same
std::atomic<jfieldID> eetop{nullptr};      // java.lang.Thread is never unloaded

// Null with a pending exception cleared when the field is not there.
jfieldID findField(JNIEnv* env) noexcept {
    const ExceptionAside aside(env);
    const LocalRef<jclass> type(env, env->FindClass("java/lang/Thread"));
    return type ? env->GetFieldID(type.get(), "eetop", "J") : nullptr;
}

// On the calling thread; a virtual thread has no native half of its own, and the measurement waits
// for the next caller.
void measure(JNIEnv* env) noexcept {
    const jfieldID field = findField(env);
    if (field == nullptr) {
        distance.store(kUnusable, std::memory_order_release);
        return;
    }
    LocalRef<jthread> self(env);
    if (vmti()->GetCurrentThread(self.out()) != JVMTI_ERROR_NONE || !self) return;
    const jlong half = env->GetLongField(self.get(), field);
    const jlong measured = reinterpret_cast<jlong>(env) - half;
    // The native half is one object of a few kilobytes; anything else is not what we take it for.
    constexpr jlong kFarthest = 1 << 16;
    if (half == 0 || measured <= 0 || measured > kFarthest) return;
    eetop.store(field, std::memory_order_relaxed);
    distance.store(measured, std::memory_order_release);
}

}  // namespace

JNIEnv* nativeEnvOf(JNIEnv* caller, jthread thread) noexcept {
    if (distance.load(std::memory_order_acquire) == kUnmeasured) measure(caller);
    const jlong known = distance.load(std::memory_order_acquire);
    if (known <= 0) return nullptr;
    const jlong half = caller->GetLongField(thread, eetop.load(std::memory_order_relaxed));
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a Java field holds the address
    return half == 0 ? nullptr : reinterpret_cast<JNIEnv*>(half + known);
}

void confirmNativeEnv(JNIEnv* env, jthread thread) noexcept {
    if (distance.load(std::memory_order_acquire) <= 0) return;
    const JNIEnv* believed = nativeEnvOf(env, thread);
    if (believed != nullptr && believed != env)
        distance.store(kUnusable, std::memory_order_release);
}

}  // namespace adapter
