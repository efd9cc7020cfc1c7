// An extension of the profiler interface for VMs with virtual threads.
//
// JVMPI names a thread by its JNIEnv*, which a virtual thread borrows from the carrier that it is
// mounted on. GetEnv with the version below answers with the table here, or with JNI_EVERSION where
// the VM knows no virtual threads. Until an agent follows them they cost nothing.
#pragma once

#include <jni.h>

#define JVMPI_VERSION_VIRTUAL_THREADS ((jint)0x1F000001)

extern "C" {

enum {
    JVMPI_PLATFORM_THREAD = 0,  // never carries a virtual thread
    JVMPI_CARRIER_THREAD = 1,   // may carry one, but not at this moment
    JVMPI_VIRTUAL_THREAD = 2,
};

// Called on the carrier, with the virtual thread still or already mounted; stored is what the agent
// keeps with the virtual thread, null where it has stored nothing. They must be short, throw
// nothing and call no JNI: every mount in the process waits for them.
typedef struct {
    void (*mounted)(JNIEnv* carrier, void* stored);
    void (*unmounted)(JNIEnv* carrier);
    void (*ended)(JNIEnv* carrier, void* stored);  // before or after its last unmount
} JVMPI_VirtualThreadHandlers;

enum {
    JVMPI_FOLLOWS_NOTHING = 0,  // the VM cannot tell of virtual threads at all
    JVMPI_FOLLOWS_ENDS = 1,     // what is stored, and ends
    JVMPI_FOLLOWS_MOUNTS = 2,   // mounts, unmounts and ends
};

typedef struct {
    // What the calling thread is, its environment and, of a virtual thread, what is stored with it.
    // JVMPI_FAIL: the VM is not up.
    jint (*GetCurrentThread)(JNIEnv** env, void** stored);
    // From the first call on the handlers are called, until the process ends; later calls change
    // nothing. mounts: also mounts and unmounts are wanted. What is followed from now on.
    jint (*Follow)(const JVMPI_VirtualThreadHandlers* handlers, jboolean mounts);
    // Stores a pointer with the calling virtual thread. JVMPI_FAIL: the VM has no memory for it.
    jint (*Store)(void* pointer);
} JVMPI_VirtualThreads;

}  // extern "C"
