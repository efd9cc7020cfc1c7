// How much of the Java heap is used.
#pragma once

#include "jvmpi/Jvmti.h"

namespace adapter {

// Java heap figures, from java.lang.Runtime. Belongs to the thread and frame of env.
class HeapMeter {
public:
    explicit HeapMeter(JNIEnv* env) : env_(env) {
        const LocalRef<jclass> type(env, env->FindClass("java/lang/Runtime"));
        if (!type) return;
        const jmethodID get =
            env->GetStaticMethodID(type.get(), "getRuntime", "()Ljava/lang/Runtime;");
        total_ = env->GetMethodID(type.get(), "totalMemory", "()J");
        free_ = env->GetMethodID(type.get(), "freeMemory", "()J");
        if (get != nullptr) runtime_ = env->CallStaticObjectMethod(type.get(), get);
        env->ExceptionClear();
    }
    ~HeapMeter() { env_->DeleteLocalRef(runtime_); }
    HeapMeter(const HeapMeter&) = delete;
    HeapMeter& operator=(const HeapMeter&) = delete;

    // Bytes; both stay 0 when the runtime cannot be asked.
    void read(jlong& used, jlong& total) const {
        if (runtime_ == nullptr || total_ == nullptr || free_ == nullptr) return;
        const jlong committed = env_->CallLongMethod(runtime_, total_);
        const bool failed = env_->ExceptionCheck();
        const jlong unused = failed ? 0 : env_->CallLongMethod(runtime_, free_);
        if (failed || env_->ExceptionCheck()) {
            env_->ExceptionClear();
            return;
        }
        total = committed;
        used = committed > unused ? committed - unused : 0;  // the heap may shrink between the two
    }

private:
    JNIEnv* env_;
    jobject runtime_ = nullptr;
    jmethodID total_ = nullptr;
    jmethodID free_ = nullptr;
};

}  // namespace adapter
