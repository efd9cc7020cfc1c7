// Opens JVMTI environments and answers what phase and thread we are in.
#include "jvmpi/Jvmti.h"

#include <algorithm>
#include <atomic>

namespace adapter {
namespace {

std::atomic<jvmtiEnv*> environment{nullptr};
std::atomic<JavaVM*> theVm{nullptr};

jvmtiEnv* openEnvironment(JavaVM* vm) noexcept {
    void* env = nullptr;
    return vm->GetEnv(&env, JVMTI_VERSION_11) == JNI_OK ? static_cast<jvmtiEnv*>(env) : nullptr;
}

}  // namespace

bool openVm(JavaVM* vm) {
    jvmtiEnv* opened = openEnvironment(vm);
    if (opened == nullptr) return false;
    theVm.store(vm, std::memory_order_release);
    environment.store(opened, std::memory_order_release);
    return true;
}

jvmtiEnv* vmti() noexcept {
    return environment.load(std::memory_order_acquire);
}

JavaVM* realVm() noexcept {
    return theVm.load(std::memory_order_acquire);
}

jvmtiEnv* openTaggingEnvironment() noexcept {
    jvmtiEnv* opened = openEnvironment(realVm());
    if (opened == nullptr) return nullptr;
    jvmtiCapabilities wanted{};
    wanted.can_tag_objects = 1;
    if (opened->AddCapabilities(&wanted) == JVMTI_ERROR_NONE) return opened;
    opened->DisposeEnvironment();
    return nullptr;
}

JNIEnv* currentEnv() noexcept {
    JavaVM* vm = realVm();
    void* env = nullptr;
    if (vm == nullptr || vm->GetEnv(&env, JNI_VERSION_1_8) != JNI_OK) return nullptr;
    return static_cast<JNIEnv*>(env);
}

bool isLive() noexcept {
    jvmtiPhase phase{};
    return vmti() != nullptr && vmti()->GetPhase(&phase) == JVMTI_ERROR_NONE &&
           phase == JVMTI_PHASE_LIVE;
}

void announceLocals(JNIEnv* env, jint count) noexcept {
    constexpr jint kMost = 65000;
    if (env->EnsureLocalCapacity(std::min(count, kMost - 256) + 256) != JNI_OK)
        env->ExceptionClear();
}

bool setNotified(jvmtiEvent event, bool on) noexcept {
    return vmti()->SetEventNotificationMode(on ? JVMTI_ENABLE : JVMTI_DISABLE, event, nullptr) ==
           JVMTI_ERROR_NONE;
}

}  // namespace adapter
