// The Java Virtual Machine Profiler Interface on top of JVMTI, so that today's VMs can host an
// agent written for JVMPI. This header is all that a host (the library that the VM loads) needs; it
// knows no particular agent.
//
//     JavaVM* vm2 = adapter::bringUp(vm, {});      // in Agent_OnLoad, Agent_OnAttach or JNI_OnLoad
//     JVM_OnLoad(vm2, options, nullptr);           // the agent gets its interface from vm2->GetEnv
//     adapter::agentIsUp();
//
// The VM needs nothing but the flag that loads the host. One adapter per process.
#pragma once

#include <jni.h>

namespace adapter {

struct HostHooks {
    // Called in the dying VM, in the thread that ends it, before the agent's shut-down event. May
    // be null.
    void (*beforeShutDown)(JNIEnv* env) = nullptr;
};

// Opens JVMTI and starts to follow the VM. Works in the OnLoad phase and in a running VM. Returns
// the JavaVM whose GetEnv knows JVMPI; null when the VM offers no JVMTI. A second call returns the
// same and ignores hooks.
JavaVM* bringUp(JavaVM* vm, const HostHooks& hooks);

// To be called when the agent's JVM_OnLoad has returned with success. In a VM that is already
// running its init-done event will never come by itself, so it is sent from here, in the calling
// thread.
void agentIsUp();

// Ends the agent's part for good: its events are switched off and nothing reaches it any more.
void agentFailed();

}  // namespace adapter
