#include "transport/InitialRecords.h"

#include <atomic>

#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Utils.h"

namespace {

constexpr const char* kRootClass = "com/velora/bcm/bootstrap/BcmRoot";
constexpr const char* kEmitMethod = "sendAllClassEvents";

// Made on first success and kept for the life of the process.
std::atomic<jclass> rootClass{nullptr};
std::atomic<bool> failureTold{false};

void tellFailure(const char* what) {
    if (!failureTold.exchange(true)) logMessage(msg::kClassEventsNotResent, what);
}

// The first failure's exception is printed, later ones are only cleared: with a connection that
// comes and goes they would fill the host's standard error.
bool clearException(JNIEnv* env) {
    if (!failureTold) return handleJavaException(env);
    if (!env->ExceptionCheck()) return false;
    env->ExceptionClear();
    return true;
}

jclass findRoot(JNIEnv* env) {
    if (const jclass known = rootClass.load(std::memory_order_acquire); known != nullptr)
        return known;
    const jclass found = env->FindClass(kRootClass);
    if (clearException(env) || found == nullptr) {
        tellFailure("class com.velora.bcm.bootstrap.BcmRoot not found");
        return nullptr;
    }
    const auto kept = static_cast<jclass>(env->NewGlobalRef(found));
    env->DeleteLocalRef(found);
    jclass none = nullptr;
    if (kept == nullptr || rootClass.compare_exchange_strong(none, kept)) return kept;
    env->DeleteGlobalRef(kept);  // another agent was first
    return none;
}

}  // namespace

void requestClassEvents(JNIEnv* env) {
    VEL_TRACE("requestClassEvents(JNIEnv*)");
    if (env == nullptr) return;
    const jclass root = findRoot(env);
    if (root == nullptr) return;
    const jmethodID emit = env->GetStaticMethodID(root, kEmitMethod, "()V");
    if (clearException(env) || emit == nullptr) {
        tellFailure("method sendAllClassEvents not found");
        return;
    }
    env->CallStaticVoidMethod(root, emit);
    if (clearException(env)) tellFailure("sendAllClassEvents threw an exception");
}
