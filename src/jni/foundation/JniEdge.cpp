// See JniEdge.h.
#include "foundation/JniEdge.h"

#include <mutex>
#include <set>
#include <string>

#include "foundation/Log.h"
#include "foundation/Messages.h"

void noteNativeFailure(const char* native, const char* reason) noexcept {
    try {
        // Never freed: natives may still fail while the process ends.
        static auto& lock = *new std::mutex;  // guards noted
        static auto& noted = *new std::set<std::string>;
        {
            const std::lock_guard hold(lock);
            if (!noted.insert(native).second) return;
        }
        logMessage(msg::kNativeFailed, native, reason);
    } catch (...) {
        // No memory even for the note; the native's answer tells enough.
    }
}
