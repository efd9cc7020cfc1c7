#include "transport/PsLookup.h"

#include <memory>
#include <mutex>

#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Platform.h"
#include "foundation/Utils.h"

namespace {

constexpr const char* kClassName = "com/velora/publish/pe_lookup";
constexpr int kLoggedFailures = 6;
constexpr int kLockStepMs = 20;

std::mutex lookupLock;           // guards psProxyClass_ and the class's static fields
jclass psProxyClass_ = nullptr;  // global reference, made on first success and never released

// Printed while failures are logged, afterwards only cleared: the print goes to the host's standard
// error, and a server that stays away for hours must not fill it.
bool clearException(JNIEnv* env, int failures) {
    if (failures < kLoggedFailures) return handleJavaException(env);
    if (!env->ExceptionCheck()) return false;
    env->ExceptionClear();
    return true;
}

jclass proxyClass(JNIEnv* env, int failures) {
    if (psProxyClass_ != nullptr) return psProxyClass_;
    const jclass found = env->FindClass(kClassName);
    if (clearException(env, failures) || found == nullptr) return nullptr;
    psProxyClass_ = static_cast<jclass>(env->NewGlobalRef(found));
    env->DeleteLocalRef(found);
    return psProxyClass_;
}

bool callInitialize(JNIEnv* env, jclass proxy, int failures) {
    const jmethodID initialize = env->GetStaticMethodID(proxy, "initialize", "()I");
    if (clearException(env, failures) || initialize == nullptr) return false;
    const jint answer = env->CallStaticIntMethod(proxy, initialize);
    const bool thrown = clearException(env, failures);
    if (!thrown && answer == 1) return true;
    if (failures < kLoggedFailures) logMessage(msg::kPsLookupFailed);
    return false;
}

jfieldID field(JNIEnv* env, jclass proxy, const char* name, const char* signature, int failures) {
    const jfieldID id = env->GetStaticFieldID(proxy, name, signature);
    if (!clearException(env, failures) && id != nullptr) return id;
    VEL_DEBUG_MIN("getPSDetailsFromKernel",
                  "PS Lookup was successful but %s field id was not found",
                  name[0] == 'h' ? "hostName" : name);
    return nullptr;
}

bool readHost(JNIEnv* env, jclass proxy, int failures, std::string* host) {
    const jfieldID id = field(env, proxy, "hostName_", "Ljava/lang/String;", failures);
    if (id == nullptr) return false;
    const auto text = static_cast<jstring>(env->GetStaticObjectField(proxy, id));
    if (text == nullptr) return false;
    const std::unique_ptr<char[]> copy(Utils::java2c_string(env, text));
    env->DeleteLocalRef(text);
    if (copy == nullptr) return false;
    *host = copy.get();
    return true;
}

bool readInt(JNIEnv* env, jclass proxy, const char* name, int failures, int* value) {
    const jfieldID id = field(env, proxy, name, "I", failures);
    if (id == nullptr) return false;
    *value = env->GetStaticIntField(proxy, id);
    return true;
}

// Takes the lock unless a stop comes first: a look-up that hangs in Java must not hold up others'
// stop.
std::unique_lock<std::mutex> lockUnlessStopped(const std::function<bool()>& stop) {
    std::unique_lock<std::mutex> lock(lookupLock, std::try_to_lock);
    while (!lock.owns_lock() && !stop()) {
        thread_sleep(kLockStepMs);
        lock.try_lock();
    }
    return lock;
}

}  // namespace

bool lookUpPs(JNIEnv* env, int failures, const std::function<bool()>& stop, PsDetails* details) {
    VEL_TRACE("lookUpPs(JNIEnv*, int)");
    if (env == nullptr) return false;
    const std::unique_lock<std::mutex> lock = lockUnlessStopped(stop);
    if (!lock.owns_lock()) return false;
    const jclass proxy = proxyClass(env, failures);
    return proxy != nullptr && callInitialize(env, proxy, failures) &&
           readHost(env, proxy, failures, &details->host) &&
           readInt(env, proxy, "port_", failures, &details->port) &&
           readInt(env, proxy, "sendBuffSize_", failures, &details->buffSize);
}
