// The adapter's JVMTI environment and the scope objects that keep its memory, references and
// exceptions tidy.
#pragma once

#include <jni.h>
#include <jvmti.h>

#include <memory>
#include <utility>

namespace adapter {

// Opens the adapter's environment; false when the VM offers none. Called once, before anything else
// here.
bool openVm(JavaVM* vm);

// The environment of all events and requests; null before openVm. Valid until the process ends.
// Only class mirrors carry tags in it, so that every freed tag means an unloaded class.
jvmtiEnv* vmti() noexcept;

// The real VM, not the proxy. Null before openVm.
JavaVM* realVm() noexcept;

// A further environment with tags of its own, for as long as the caller needs it; null on failure.
// Ended with DisposeEnvironment.
jvmtiEnv* openTaggingEnvironment() noexcept;

// The calling thread's environment; null when it is not attached or the VM is not up.
JNIEnv* currentEnv() noexcept;

// True between VM initialisation and VM death: when JNI may be used and threads may be asked about.
bool isLive() noexcept;

// Asks for capabilities when they are first needed, each for itself because one that the VM refuses
// spoils the whole request. True when the environment has them.
template <typename Choose>
bool acquire(Choose&& choose) noexcept {
    jvmtiCapabilities wanted{};
    choose(wanted);
    return vmti()->AddCapabilities(&wanted) == JVMTI_ERROR_NONE;
}

bool setNotified(jvmtiEvent event, bool on) noexcept;

// Announces that so many local references will be held at a time. More than some VMs accept to hear
// of are coped with all the same.
void announceLocals(JNIEnv* env, jint count) noexcept;

// Memory that JVMTI handed out.
template <typename T>
class VmMemory {
public:
    VmMemory() = default;
    VmMemory(VmMemory&& other) noexcept : held_(std::exchange(other.held_, nullptr)) {}
    VmMemory& operator=(VmMemory&& other) noexcept {
        std::swap(held_, other.held_);
        return *this;
    }
    explicit VmMemory(T* held) : held_(held) {}
    ~VmMemory() { clear(); }

    T** out() {
        clear();
        return &held_;
    }
    T* get() const { return held_; }
    T& operator[](long index) const { return held_[index]; }
    explicit operator bool() const { return held_ != nullptr; }

private:
    void clear() {
        if (held_ != nullptr) vmti()->Deallocate(reinterpret_cast<unsigned char*>(held_));
        held_ = nullptr;
    }
    T* held_ = nullptr;
};

// A local reference that does not outlive its scope. Agents' worker natives never return, so a
// reference left behind would stay until the process ends.
template <typename Ref = jobject>
class LocalRef {
public:
    explicit LocalRef(JNIEnv* env, Ref ref = nullptr) : env_(env), ref_(ref) {}
    LocalRef(LocalRef&& other) noexcept
        : env_(other.env_), ref_(std::exchange(other.ref_, nullptr)) {}
    LocalRef& operator=(LocalRef&&) = delete;
    ~LocalRef() {
        if (ref_ != nullptr) env_->DeleteLocalRef(ref_);
    }
    Ref get() const { return ref_; }
    Ref* out() { return &ref_; }
    Ref release() { return std::exchange(ref_, nullptr); }
    explicit operator bool() const { return ref_ != nullptr; }

private:
    JNIEnv* env_;
    Ref ref_;
};

// Frames that hold local references until this goes; a new one when the VM is to expect many more.
class LocalFrames {
public:
    explicit LocalFrames(JNIEnv* env) : env_(env) {}
    ~LocalFrames() {
        for (; pushed_ > 0; --pushed_) env_->PopLocalFrame(nullptr);
    }
    LocalFrames(const LocalFrames&) = delete;
    LocalFrames& operator=(const LocalFrames&) = delete;

    bool push(jint capacity) {
        const bool done = env_->PushLocalFrame(capacity) == JNI_OK;
        if (!done) env_->ExceptionClear();
        pushed_ += done ? 1 : 0;
        return done;
    }

private:
    JNIEnv* env_;
    int pushed_ = 0;
};

// A weak global reference, shared by whoever looks at it while its table entry may be dropped.
// Tables hand out copies under their lock and users turn them into local references outside: a
// thread can be suspended inside any JNI call, and must not hold a lock then.
class WeakRef {
public:
    WeakRef(JNIEnv* env, jobject target) : ref_(env->NewWeakGlobalRef(target)) {}
    ~WeakRef() {
        JNIEnv* env = ref_ == nullptr ? nullptr : currentEnv();
        if (env != nullptr) env->DeleteWeakGlobalRef(ref_);
    }
    WeakRef(const WeakRef&) = delete;
    WeakRef& operator=(const WeakRef&) = delete;

    // Empty when the object is gone.
    LocalRef<> get(JNIEnv* env) const {
        return LocalRef<>(env, ref_ == nullptr ? nullptr : env->NewLocalRef(ref_));
    }

private:
    jweak ref_;
};
using SharedWeakRef = std::shared_ptr<const WeakRef>;

// Lays a pending Java exception aside so that JNI can be used, drops what the scope raised itself,
// and puts the first one back.
class ExceptionAside {
public:
    explicit ExceptionAside(JNIEnv* env) : env_(env), pending_(env->ExceptionOccurred()) {
        if (pending_ != nullptr) env_->ExceptionClear();
    }
    ~ExceptionAside() {
        env_->ExceptionClear();
        if (pending_ != nullptr) {
            env_->Throw(pending_);
            env_->DeleteLocalRef(pending_);
        }
    }
    ExceptionAside(const ExceptionAside&) = delete;
    ExceptionAside& operator=(const ExceptionAside&) = delete;

private:
    JNIEnv* env_;
    jthrowable pending_;
};

}  // namespace adapter
