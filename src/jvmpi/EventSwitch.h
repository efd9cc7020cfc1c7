// Which JVMPI events the agent wants, and the one door through which every event reaches it.
//
// Threads: any. An event type that is off costs nothing: the VM is told not to notify us of it.
#pragma once

#include "jvmpi/jvmpi.h"

namespace adapter {

// The interface structure that agents get; its NotifyEvent slot is theirs to fill.
JVMPI_Interface& interfaceTable() noexcept;

// JVMPI_SUCCESS, JVMPI_NOT_AVAILABLE for types that this adapter does not offer (or that can only
// be requested), JVMPI_FAIL when the VM refuses what the type needs.
jint enableEvent(jint type) noexcept;
jint disableEvent(jint type) noexcept;

// What had to wait for the VM to be up is done now, for every type that is on.
void catchUpWithVm() noexcept;

bool isEventOn(jint type) noexcept;

// Hands the event to the agent: in this thread, before returning. Dropped when the agent has no
// handler or the VM has died. The caller holds no lock: handlers call back into the adapter.
void sendEvent(JVMPI_Event& event) noexcept;

// An event without data, if its type is on.
void sendPlainEvent(jint type, JNIEnv* env) noexcept;

// Sends JVMPI's init-done event to an agent that enabled it, once per process whoever asks first.
void sendInitDone(JNIEnv* env) noexcept;

// Sends the shut-down event if it is on; nothing is sent after it.
void sendShutDown(JNIEnv* env) noexcept;

// Switches every type off and lets nothing through any more.
void sealEvents() noexcept;

}  // namespace adapter
