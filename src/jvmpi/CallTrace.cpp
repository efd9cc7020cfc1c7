// Turns JVMTI's frames into JVMPI's.
#include "jvmpi/CallTrace.h"

#include <memory>

#include "jvmpi/Jvmti.h"
#include "jvmpi/ThreadMap.h"

namespace adapter {
namespace {

constexpr jint kNoLine = -1;
constexpr jint kNativeLine = -3;

// The line of the last table entry at or before the location.
jint lineAt(jmethodID method, jlocation location) {
    if (location < 0) return kNativeLine;
    jint count = 0;
    VmMemory<jvmtiLineNumberEntry> table;
    if (vmti()->GetLineNumberTable(method, &count, table.out()) != JVMTI_ERROR_NONE) return kNoLine;
    jint line = kNoLine;
    jlocation best = -1;
    for (jint i = 0; i < count; ++i) {  // the table need not be sorted
        const jlocation start = table[i].start_location;
        if (start <= location && start > best) {
            best = start;
            line = table[i].line_number;
        }
    }
    return line;
}

}  // namespace

void fillCallTrace(JVMPI_CallTrace* trace, jint depth) {
    if (trace == nullptr) return;
    trace->num_frames = 0;
    if (depth <= 0 || trace->frames == nullptr) return;
    JNIEnv* env = currentEnv();
    const LocalRef<jthread> thread = threadOf(env, trace->env_id);
    if (!thread) return;
    constexpr jint kOnStack = 256;
    jvmtiFrameInfo few[kOnStack];
    std::unique_ptr<jvmtiFrameInfo[]> many;
    if (depth > kOnStack) many.reset(new jvmtiFrameInfo[static_cast<std::size_t>(depth)]);
    jvmtiFrameInfo* frames = many ? many.get() : few;
    jint count = 0;
    if (vmti()->GetStackTrace(thread.get(), 0, depth, frames, &count) != JVMTI_ERROR_NONE) return;
    for (jint i = 0; i < count; ++i) {
        trace->frames[i] = {lineAt(frames[i].method, frames[i].location), frames[i].method};
    }
    trace->num_frames = count;
}

}  // namespace adapter
