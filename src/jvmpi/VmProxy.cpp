// The proxy JavaVM: an object of our own whose function table is ours and whose calls go to the
// real one.
#include "jvmpi/VmProxy.h"

#include "jvmpi/VirtualThreads.h"

namespace adapter {
namespace {

constexpr jint kInterfaceKindMask = static_cast<jint>(0xF0000000);
constexpr jint kJvmpiKind = 0x10000000;

JavaVM* target = nullptr;  // set before the proxy is handed out, then constant
JVMPI_Interface* profilerInterface = nullptr;

jint JNICALL destroyVm(JavaVM*) {
    return target->DestroyJavaVM();
}

jint JNICALL attach(JavaVM*, void** env, void* arguments) {
    return target->AttachCurrentThread(env, arguments);
}

jint JNICALL attachAsDaemon(JavaVM*, void** env, void* arguments) {
    return target->AttachCurrentThreadAsDaemon(env, arguments);
}

jint JNICALL detach(JavaVM*) {
    return target->DetachCurrentThread();
}

jint JNICALL getEnv(JavaVM*, void** env, jint version) {
    if ((version & kInterfaceKindMask) != kJvmpiKind) return target->GetEnv(env, version);
    const bool known = (version >= JVMPI_VERSION_1 && version <= JVMPI_VERSION_1_2) ||
                       version == JVMPI_VERSION_ADAPTER;
    *env = known ? profilerInterface : nullptr;
    if (version == JVMPI_VERSION_VIRTUAL_THREADS) *env = virtualThreadTable();
    return *env != nullptr ? JNI_OK : JNI_EVERSION;
}

}  // namespace

JavaVM* makeVmProxy(JavaVM* vm, JVMPI_Interface* table) {
    static JNIInvokeInterface_ functions;
    static JavaVM proxy;
    if (target == nullptr) {
        target = vm;
        profilerInterface = table;
        functions = *vm->functions;  // keeps the reserved slots as they are
        functions.DestroyJavaVM = destroyVm;
        functions.AttachCurrentThread = attach;
        functions.DetachCurrentThread = detach;
        functions.GetEnv = getEnv;
        functions.AttachCurrentThreadAsDaemon = attachAsDaemon;
        proxy.functions = &functions;
    }
    return &proxy;
}

}  // namespace adapter
