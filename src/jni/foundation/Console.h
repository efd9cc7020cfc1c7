// Where the lines go that the collector prints to the server's own streams. In a VM that has the
// profiler interface itself they go to standard output, as they always have. Hosted by our adapter,
// in a VM of today, they go to standard error: standard output belongs to the application there,
// and where it is data (a compiler, a shell's $(...)) a line of ours would spoil it.
#pragma once

#include <jni.h>

#include <atomic>
#include <cstdio>

namespace console {

inline constinit std::atomic<bool> hosted{false};

inline std::FILE* out() {
    return hosted.load(std::memory_order_relaxed) ? stderr : stdout;
}

// Before the first line: asks the VM whose interface it will be.
inline void chooseFor(JavaVM* vm, jint adapterVersion) {
    void* known = nullptr;
    hosted.store(vm != nullptr && vm->GetEnv(&known, adapterVersion) == JNI_OK,
                 std::memory_order_relaxed);
}

}  // namespace console
