// The heap dump: every object that can be reached, in one snapshot, as JVMPI records.
#pragma once

#include "jvmpi/jvmpi.h"

namespace adapter {

// Takes a dump of the level (0 to 2) and sends the requested heap-dump event with it, in the
// calling thread. The VM stands still while the heap is walked. Nothing is sent and the result is
//   JVMPI_FAIL           when memory for it cannot be had without danger to the process (as a rule
//                        found out before the VM is stopped), and while another dump is being taken
//   JVMPI_NOT_AVAILABLE  while the VM is not up, and when it does not tag objects
jint requestHeapDump(const JVMPI_HeapDumpArg* argument);

}  // namespace adapter
