// The heap dump: every object that can be reached, in one snapshot, as JVMPI records.
#pragma once

#include "jvmpi/jvmpi.h"

namespace adapter {

// Takes a dump of the level (0 to 2) and sends the requested heap-dump event with it, in the
// calling thread. The VM stands still while the heap is walked. JVMPI_FAIL, and nothing sent, when
// memory for it cannot be had without danger to the process, when another dump is being taken, and
// before the VM is up.
jint requestHeapDump(const JVMPI_HeapDumpArg* argument);

}  // namespace adapter
