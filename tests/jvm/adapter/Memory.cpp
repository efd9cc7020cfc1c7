// How much memory the adapter finds available: what a test says, without a limit at first. Linked
// in place of the adapter's own reading of the system, which has tests of its own.
#include <jni.h>

#include <limits>

#include "jvmpi/MemoryBudget.h"

namespace {

std::uint64_t pretended = std::numeric_limits<std::uint64_t>::max();

}  // namespace

std::uint64_t adapter::availableMemory(const std::string&) {
    return pretended;
}

extern "C" JNIEXPORT void JNICALL Java_TestAgent_pretendAvailable(JNIEnv*, jclass, jlong bytes) {
    pretended = static_cast<std::uint64_t>(bytes);
}
