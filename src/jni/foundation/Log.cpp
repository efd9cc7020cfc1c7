// The parts of Log.h that need the toolkit's objects.
#include "foundation/Log.h"

#include <climits>

#include "foundation/ProbeQLog.h"

// Nothing is loggable until ProbeQLog has a tracer and the toolkit has told its level.
std::atomic<int> traceThreshold{INT_MAX};

namespace logdetail {

QlgHandle messageLogger() {
    return qLogger.load(std::memory_order_relaxed);
}

QlgHandle tracer() {
    return qTracer.load(std::memory_order_relaxed);
}

const char* catalogue() {
    return ProbeQLog::getCatalog();
}

int messageSet() {
    return ProbeQLog::getSet();
}

}  // namespace logdetail

void TraceScope::write(const char* what) const noexcept {
    QlgLogDebugMid(logdetail::tracer(), file_, signature_, line_, what, 0);
}
