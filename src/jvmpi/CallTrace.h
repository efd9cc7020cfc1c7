// Stack traces of threads.
#pragma once

#include "jvmpi/jvmpi.h"

namespace adapter {

// Fills trace->frames (room for depth entries) with the stack of the thread trace->env_id, callee
// first, and sets num_frames; 0 when the thread is unknown, has no Java frame, or has ended. The
// thread is not stopped for it. Frames of native methods carry the line -3, methods without a line
// table -1.
void fillCallTrace(JVMPI_CallTrace* trace, jint depth);

}  // namespace adapter
