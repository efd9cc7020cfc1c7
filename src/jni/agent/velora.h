// The library's entry and the one handler through which every VM event comes in.
//
// Nothing here owns a thread: JVM_OnLoad runs on the loading thread, EventDispatcher on whichever
// VM thread an event is delivered.
#pragma once

#include <jni.h>

#include <atomic>

#include "instrument/class_load.h"
#include "jvmpi/jvmpi.h"

class MethodEvent;
class jclass_t;
class jmethod_t;

extern "C" {

// Called by the VM (or the adapter) while it loads the library; no JNI yet. 0: loaded. -1: the
// profiler interface could not be obtained, and the VM refuses the agent.
JNIEXPORT jint JNICALL JVM_OnLoad(JavaVM* vm, char* options, void* reserved);

// The interface's NotifyEvent. While the probe is disabled only the class-load hook and the end of
// VM initialisation are acted on. Threads: any; holds no lock of its own.
JNIEXPORT void EventDispatcher(JVMPI_Event* event);

// Registered with atexit; does nothing.
JNIEXPORT void probe_exit(void);

// Binds the natives of a runtime class of the boot loader, where the VM does not look for the
// library's exported names; chosen by the dotted class name. Bound at run time to
// BcmBootstrapDefineHelper.
JNIEXPORT void JNICALL Java_com_velora_bcm_bootstrap_BcmBootstrap_defineNativeMethodsForClassNative(
    JNIEnv* env, jobject self, jclass clazz, jstring className);

}  // extern "C"

// Start-up steps of JVM_OnLoad, separate for their own sake and for tests.
void FindMODFile();  // sets modFileName and the probe level from it; writes "2" to a missing file
void f_useMethodLocks();  // useMethodLocks, CLASSULOAD_CLEANUP, methodHashWaitInterval
void f_disableNestedRequests();

// Stamps a method event with wall time and thread CPU time. At a start the wall clock is read
// first, at an end last, so that the cost of measuring stays outside the measured interval at both
// ends.
void getClocks(MethodEvent* m, bool start, JNIEnv* env);

// The bookkeeping of an unload: marks the class dirty and sweeps when it is time, or, with the
// deferred sweep switched off, unregisters and retires it at once. The record is gone for the
// caller.
void forgetClass(jclass_t* unloaded);

// Marks the method's class as declared by Java (type 0); the last two arguments are not used.
void setClassType(JNIEnv* env, jmethod_t* method, jobject self, jclass clazz);

// Lets a server's own class instrument itself and switches class-load events off. Kept for servers
// whose start-up classes call for it; nothing in the collector does.
void setWLBCM(JVMPI_Event* event);

// Binds defineNativeMethodsForClassNative once the VM can resolve classes; runs at most once.
// Without an environment everything stays as it was, so that a later event tries again.
void registerBcmBootstrapNative(JVMPI_Event* event);

// Set by the end of VM initialisation, on the main thread, and read on any thread by later events;
// atomics because nothing else orders those threads.
extern std::atomic<bool> isJVMInitializationDone;
extern std::atomic<bool> isBcmBootstrapNativeRegistered;  // the registration has been tried
extern std::atomic<bool> inRegisterBcmBootstrapNative;    // guards against re-entry
