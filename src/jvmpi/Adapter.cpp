// Bringing the adapter up: one JVMTI environment, its callbacks, the proxy VM.
#include "jvmpi/Adapter.h"

#include <atomic>
#include <mutex>

#include "jvmpi/ClassEvents.h"
#include "jvmpi/ClassHook.h"
#include "jvmpi/ClassIds.h"
#include "jvmpi/Edge.h"
#include "jvmpi/EventSwitch.h"
#include "jvmpi/GcEvents.h"
#include "jvmpi/Jvmti.h"
#include "jvmpi/ThreadEvents.h"
#include "jvmpi/VmProxy.h"

namespace adapter {
namespace {

HostHooks host;

void JNICALL onVmInit(jvmtiEnv*, JNIEnv* env, jthread main) {
    catchUpWithVm();
    atEdge([&] { announceMainThread(env, main); });
    sendInitDone(env);
}

void JNICALL onVmDeath(jvmtiEnv*, JNIEnv* env) {
    if (host.beforeShutDown != nullptr) host.beforeShutDown(env);
    sendShutDown(env);
    endGcSender();
    endUnloadSender();
}

// Capabilities that cost nothing until they are used; the others are asked for when first needed.
void acquireCheapCapabilities() {
    acquire([](jvmtiCapabilities& wanted) { wanted.can_tag_objects = 1; });
    acquire([](jvmtiCapabilities& wanted) { wanted.can_get_line_numbers = 1; });
    acquire([](jvmtiCapabilities& wanted) { wanted.can_get_source_file_name = 1; });
}

void installCallbacks() {
    jvmtiEventCallbacks callbacks{};
    callbacks.VMInit = onVmInit;
    callbacks.VMDeath = onVmDeath;
    callbacks.ThreadStart = onThreadStart;
    callbacks.ThreadEnd = onThreadEnd;
    callbacks.ClassFileLoadHook = onClassFileLoadHook;
    callbacks.ClassPrepare = onClassPrepare;
    callbacks.ObjectFree = onObjectFree;
    callbacks.GarbageCollectionStart = onGcStart;
    callbacks.GarbageCollectionFinish = onGcFinish;
    vmti()->SetEventCallbacks(&callbacks, sizeof callbacks);
    setNotified(JVMTI_EVENT_VM_INIT, true);
    setNotified(JVMTI_EVENT_VM_DEATH, true);
}

}  // namespace

JavaVM* bringUp(JavaVM* vm, const HostHooks& hooks) {
    static std::mutex once;
    const std::lock_guard guard(once);
    if (vmti() == nullptr) {
        if (!openVm(vm)) return nullptr;
        host = hooks;
        acquireCheapCapabilities();
        installCallbacks();
    }
    return makeVmProxy(vm, &interfaceTable());
}

void agentIsUp() {
    if (!isLive()) return;  // the VM's own init event is still to come
    if (JNIEnv* env = currentEnv()) sendInitDone(env);
}

void agentFailed() {
    sealEvents();
    host = {};
}

}  // namespace adapter
