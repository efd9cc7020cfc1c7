// A JavaVM that knows JVMPI: what the adapter hands to an agent's JVM_OnLoad in place of the real
// one.
#pragma once

#include "jvmpi/jvmpi.h"

namespace adapter {

// Makes the proxy of vm, once; later calls give the same one. It answers GetEnv with a JVMPI
// version (the range 0x10000000 to 0x1FFFFFFF) itself: versions 1, 1_1 and 1_2 with table, that of
// virtual_threads.h with its table, others with JNI_EVERSION. The VM is never asked for them,
// because it would print complaints. All else goes to vm. Lives until the process ends.
JavaVM* makeVmProxy(JavaVM* vm, JVMPI_Interface* table);

}  // namespace adapter
