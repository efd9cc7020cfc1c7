// The scratch record through which a heap dump learns about a class: while a dump is processed, the
// dispatcher fills it from each class-load event that the dump's walker asks for.
#pragma once

#include <atomic>
#include <cstddef>

#include "jvmpi/jvmpi.h"

struct ClassLoadRecord {
    char class_name[512] = {};           // cut to fit; empty when the event has none
    jint num_interfaces = 0;             // direct interfaces
    std::size_t static_fields_size = 0;  // bytes
    jint num_methods = 0;
    jobjectID class_id = nullptr;
};

// One record a thread: the VM delivers a requested event on the requesting thread before the
// request returns, so the walker finds what its own request brought, and never a class that another
// thread loads or asks for while the dump is being walked.
extern thread_local ClassLoadRecord class_load;

// True while a requested heap dump is processed: class-load events then only fill class_load.
// Atomic because class-load events of other threads read it meanwhile.
extern std::atomic<bool> doingHeapDump;
