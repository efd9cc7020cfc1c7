// Virtual threads by way of JVMTI.
#pragma once

#include "jvmpi/virtual_threads.h"

namespace adapter {

// Null while the VM is one without virtual threads (before Java 21).
JVMPI_VirtualThreads* virtualThreadTable() noexcept;

}  // namespace adapter
