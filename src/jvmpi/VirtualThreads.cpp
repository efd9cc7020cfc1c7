// What a thread is, and the VM's events about virtual threads.
#include "jvmpi/VirtualThreads.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "jvmpi/Edge.h"
#include "jvmpi/Jvmti.h"
#include "jvmpi/jvmpi.h"

namespace adapter {
namespace {

// The names that headers before Java 21 lack.
constexpr jint kJni21 = 0x00150000;
constexpr std::size_t kIsVirtualThreadSlot = 234;  // in JNI's function table
constexpr int kSupportVirtualThreadsBit = 44;      // of the capabilities
constexpr jint kVirtualThreadEnd = 88;             // the event; callbacks are numbered from 50
constexpr std::size_t kCallbacks = kVirtualThreadEnd - JVMTI_MIN_EVENT_TYPE_VAL + 1;

// Their own environment, opened when an agent begins to follow virtual threads: until then, and in
// a process that never does, the VM pays nothing for them. Never disposed of.
std::atomic<jvmtiEnv*> environment{nullptr};
std::mutex followLock;                 // guards the first call of follow; held across JVMTI calls
JVMPI_VirtualThreadHandlers handlers;  // set before the first event can come
jint followed = JVMPI_FOLLOWS_NOTHING;

jvmtiEnv* ours() {
    return environment.load(std::memory_order_acquire);
}

void* storedHere(jvmtiEnv* vmti) {
    void* stored = nullptr;
    // Null means the thread that runs here, a virtual one before its carrier, and costs no change
    // into the VM.
    vmti->GetThreadLocalStorage(nullptr, &stored);
    return stored;
}

JNIEnv* carrierIn(va_list arguments) {
    return va_arg(arguments, JNIEnv*);
}

void JNICALL onMount(jvmtiEnv* vmti, ...) {
    va_list arguments;
    va_start(arguments, vmti);
    handlers.mounted(carrierIn(arguments), storedHere(vmti));
    va_end(arguments);
}

void JNICALL onUnmount(jvmtiEnv* vmti, ...) {
    va_list arguments;
    va_start(arguments, vmti);
    handlers.unmounted(carrierIn(arguments));
    va_end(arguments);
}

void JNICALL onEnd(jvmtiEnv* vmti, JNIEnv* env, jthread) {
    handlers.ended(env, storedHere(vmti));
}

jvmtiEnv* openEnvironmentForThreads() {
    void* opened = nullptr;
    if (realVm()->GetEnv(&opened, JVMTI_VERSION_11) != JNI_OK) return nullptr;
    auto* const vmti = static_cast<jvmtiEnv*>(opened);
    jvmtiCapabilities wanted{};
    const std::uint64_t bit = std::uint64_t{1} << kSupportVirtualThreadsBit;
    static_assert(sizeof wanted >= sizeof bit);
    std::memcpy(&wanted, &bit, sizeof bit);
    if (vmti->AddCapabilities(&wanted) == JVMTI_ERROR_NONE) return vmti;
    vmti->DisposeEnvironment();
    return nullptr;
}

bool followEnds(jvmtiEnv* vmti) {
    std::array<void*, kCallbacks> callbacks{};
    callbacks.back() = reinterpret_cast<void*>(onEnd);
    const auto* const known = reinterpret_cast<const jvmtiEventCallbacks*>(callbacks.data());
    return vmti->SetEventCallbacks(known, static_cast<jint>(sizeof callbacks)) ==
               JVMTI_ERROR_NONE &&
           vmti->SetEventNotificationMode(JVMTI_ENABLE, static_cast<jvmtiEvent>(kVirtualThreadEnd),
                                          nullptr) == JVMTI_ERROR_NONE;
}

// HotSpot's own events; their index differs between releases.
class MountEvents {
public:
    explicit MountEvents(jvmtiEnv* vmti) : vmti_(vmti) {
        jint count = 0;
        jvmtiExtensionEventInfo* events = nullptr;
        if (vmti->GetExtensionEvents(&count, &events) != JVMTI_ERROR_NONE) return;
        for (jint i = 0; i < count; ++i) note(events[i]);
        release(events);
    }

    bool enable() const {
        return mount_ >= 0 && unmount_ >= 0 && turnOn(unmount_, onUnmount) &&
               turnOn(mount_, onMount);
    }

private:
    void note(const jvmtiExtensionEventInfo& event) {
        if (std::strcmp(event.id, "com.sun.hotspot.events.VirtualThreadMount") == 0)
            mount_ = event.extension_event_index;
        else if (std::strcmp(event.id, "com.sun.hotspot.events.VirtualThreadUnmount") == 0)
            unmount_ = event.extension_event_index;
        for (jint p = 0; p < event.param_count; ++p) release(event.params[p].name);
        release(event.params);
        release(event.short_description);
        release(event.id);
    }

    void release(void* memory) const { vmti_->Deallocate(static_cast<unsigned char*>(memory)); }

    bool turnOn(jint index, jvmtiExtensionEvent callback) const {
        return vmti_->SetExtensionEventCallback(index, callback) == JVMTI_ERROR_NONE &&
               vmti_->SetEventNotificationMode(JVMTI_ENABLE, static_cast<jvmtiEvent>(index),
                                               nullptr) == JVMTI_ERROR_NONE;
    }

    jvmtiEnv* vmti_;
    jint mount_ = -1;
    jint unmount_ = -1;
};

jint follow(const JVMPI_VirtualThreadHandlers* wanted, jboolean mounts) {
    const std::lock_guard guard(followLock);
    if (ours() != nullptr) return followed;
    jvmtiEnv* const vmti = openEnvironmentForThreads();
    if (vmti == nullptr) return JVMPI_FOLLOWS_NOTHING;
    handlers = *wanted;
    // Ends first: what is stored at a mount is let go of at an end.
    if (!followEnds(vmti)) {
        vmti->DisposeEnvironment();
        return JVMPI_FOLLOWS_NOTHING;
    }
    const bool all = mounts == JNI_TRUE && MountEvents(vmti).enable();
    followed = all ? JVMPI_FOLLOWS_MOUNTS : JVMPI_FOLLOWS_ENDS;
    environment.store(vmti, std::memory_order_release);
    return followed;
}

bool isVirtual(JNIEnv* env, jthread thread) {
    using IsVirtualThread = jboolean(JNICALL*)(JNIEnv*, jobject);
    const auto* const table = reinterpret_cast<void* const*>(env->functions);
    const auto ask = reinterpret_cast<IsVirtualThread>(table[kIsVirtualThreadSlot]);
    return ask(env, thread) == JNI_TRUE;
}

// A class of the VM's own, or null where it is built otherwise. Looked up once.
class VmClass {
public:
    explicit constexpr VmClass(const char* name) : name_(name) {}

    // missing: the answer where there is no such class.
    bool isOf(JNIEnv* env, jobject object, bool missing) {
        if (!known_.load(std::memory_order_acquire)) find(env);
        const auto type = static_cast<jclass>(type_.load(std::memory_order_relaxed));
        return type == nullptr ? missing : env->IsInstanceOf(object, type) == JNI_TRUE;
    }

private:
    // Two threads that find it at the same time keep one reference too many.
    void find(JNIEnv* env) {
        const LocalRef<jclass> type(env, env->FindClass(name_));
        env->ExceptionClear();
        if (type) type_.store(env->NewGlobalRef(type.get()), std::memory_order_relaxed);
        known_.store(true, std::memory_order_release);
    }

    const char* name_;
    std::atomic<jobject> type_{nullptr};
    std::atomic<bool> known_{false};
};

constinit VmClass carrierClass("jdk/internal/misc/CarrierThread");
constinit VmClass boundClass("java/lang/ThreadBuilders$BoundVirtualThread");

// A VM without continuations gives each virtual thread a thread of the system of its own, and with
// it an environment and a CPU clock: it is a platform thread by another name. Where the class of
// carriers is not known every thread may be one.
jint kindOf(JNIEnv* env, jthread thread) {
    if (!isVirtual(env, thread))
        return carrierClass.isOf(env, thread, true) ? JVMPI_CARRIER_THREAD : JVMPI_PLATFORM_THREAD;
    return boundClass.isOf(env, thread, false) ? JVMPI_PLATFORM_THREAD : JVMPI_VIRTUAL_THREAD;
}

jint getCurrentThread(JNIEnv** env, void** stored) {
    *env = currentEnv();
    *stored = nullptr;
    if (*env == nullptr) return JVMPI_FAIL;
    if (jvmtiEnv* const vmti = ours(); vmti != nullptr) {
        *stored = storedHere(vmti);
        if (*stored != nullptr) return JVMPI_VIRTUAL_THREAD;  // nothing is stored with others
    }
    if (!isLive()) return JVMPI_FAIL;
    return atEdge(jint{JVMPI_FAIL}, [&]() -> jint {
        const ExceptionAside aside(*env);
        LocalRef<jthread> self(*env);
        vmti()->GetCurrentThread(self.out());
        return self ? kindOf(*env, self.get()) : jint{JVMPI_FAIL};
    });
}

jint store(void* pointer) {
    jvmtiEnv* const vmti = ours();
    const bool done =
        vmti != nullptr && vmti->SetThreadLocalStorage(nullptr, pointer) == JVMTI_ERROR_NONE;
    return done ? JVMPI_SUCCESS : JVMPI_FAIL;
}

}  // namespace

JVMPI_VirtualThreads* virtualThreadTable() noexcept {
    static JVMPI_VirtualThreads table = {
        .GetCurrentThread = getCurrentThread,
        .Follow = follow,
        .Store = store,
    };
    JNIEnv* const env = currentEnv();
    return env != nullptr && env->GetVersion() >= kJni21 ? &table : nullptr;
}

}  // namespace adapter
