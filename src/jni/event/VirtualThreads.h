// Which virtual thread runs on the calling thread's environment, and where its record is.
//
// A JNIEnv* belongs to the carrier, so a virtual thread's record is stored with the virtual thread
// itself (jvmpi/virtual_threads.h). Nothing is followed, and nothing paid by anybody, until a
// virtual thread makes its first capture call. From then on the VM tells of every mount, and each
// carrier knows by a variable of its own who is on it; the calls of a mounted thread then find its
// record in the carrier's pin as those of any other thread do. Its CPU time is what the carrier's
// clock has moved between its mounts and unmounts.
//
// Where the VM does not tell of mounts, or internal.virtualthread.cputime is NO, a carrier asks the
// VM at every call, and the record is marked as one whose CPU time is not measured.
//
// Threads: any. The handlers run on the carriers, at every mount of any virtual thread in the
// process: they take no lock, but for a thread's end, and allocate nothing.
#pragma once

#include <jni.h>

class ThreadData;

class VirtualThreads {
public:
    VirtualThreads() = delete;

    // Asks the VM whether it knows virtual threads; until then it has none. Once per process.
    static void introduce(JavaVM* vm);

    // Whether env is the calling thread's and a virtual thread is mounted on it.
    static bool mountedOn(JNIEnv* env);
    // The mounted virtual thread's record; null when it has none. Only after mountedOn said yes. It
    // stays in memory while the thread lives, but a stop of the probe may have emptied it.
    static ThreadData* record();
    // Gives the mounted virtual thread a record in place of the one it had. False, with nothing
    // changed: the VM cannot keep it.
    static bool keep(ThreadData* record);
    // Records of virtual threads can be kept at all, and their CPU time measured.
    static bool areFollowed();
    static bool cpuIsMeasured();

    // Whether the calling thread's record may be remembered for its environment: not where a mount
    // could change it unnoticed.
    static bool recordIsSteady();

private:
    friend class VirtualThreadsProbe;  // tests, which leave the process as they found it
    static void forget();              // as before introduce(), for the calling thread
};
