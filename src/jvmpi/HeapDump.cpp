// Prepares the VM for a dump, has the heap walked, and sends the event.
#include "jvmpi/HeapDump.h"

#include <atomic>
#include <memory>

#include "jvmpi/ClassDescription.h"
#include "jvmpi/EventSwitch.h"
#include "jvmpi/HeapMeter.h"
#include "jvmpi/HeapWalk.h"
#include "jvmpi/Jvmti.h"
#include "jvmpi/MemoryBudget.h"
#include "jvmpi/ObjectIds.h"

namespace adapter {
namespace {

// Of what the system can still give, this part may go into a dump: the application goes on
// allocating meanwhile.
std::uint64_t memoryLimit() {
    return availableMemory() / 4 * 3;
}

// What a dump is expected to take, records and the VM's tags together: 4.5 bytes for each byte of
// the Java heap in use, as measured with objects of 24 bytes (docs/PERFORMANCE.md). A heap of
// larger objects takes less, one of smaller ones up to 6; such a walk ends at its own limit.
std::uint64_t expectedBytes(const HeapMeter& heap) {
    jlong used = 0;
    jlong total = 0;
    heap.read(used, total);
    return static_cast<std::uint64_t>(used) / 2 * 9;
}

// Decided before the VM is stopped: a walk that runs out of memory has stopped it for nothing.
bool canHold(JNIEnv* env, std::uint64_t limit) {
    const HeapMeter heap(env);
    if (expectedBytes(heap) <= limit) return true;
    vmti()->ForceGarbageCollection();  // what is in use may be garbage, which no dump holds
    return expectedBytes(heap) <= limit;
}

// Counts up over all dumps, so that an id of an old dump never names an object of a new one.
std::atomic<jlong> nextDumpId{kFirstDumpId};

std::atomic<bool> dumping{false};

struct DisposeEnvironment {
    void operator()(jvmtiEnv* environment) const { environment->DisposeEnvironment(); }
};
using OwnedEnvironment = std::unique_ptr<jvmtiEnv, DisposeEnvironment>;

// The VM maps some objects ready-made from its archive, although their classes are not linked, and
// does not tell the fields of an unlinked class. Only the boot loader's classes are archived so;
// others are left as they are, because linking them can run code of the application's class
// loaders.
void linkArchivedClasses(JNIEnv* env) {
    jint count = 0;
    VmMemory<jclass> loaded;
    if (vmti()->GetLoadedClasses(&count, loaded.out()) != JVMTI_ERROR_NONE) return;
    announceLocals(env, count);
    for (jint i = 0; i < count; ++i) {
        const LocalRef<jclass> type(env, loaded[i]);
        if (kindOf(type.get()) != ClassKind::kUnprepared) continue;
        LocalRef<> loader(env);
        if (vmti()->GetClassLoader(type.get(), loader.out()) == JVMTI_ERROR_NONE && !loader) {
            linkClass(env, type.get());
        }
    }
}

void sendHeapDump(JNIEnv* env, DumpBuffer& records, int level) {
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_HEAP_DUMP | JVMPI_REQUESTED_EVENT;
    event.env_id = env;
    event.u.heap_dump.dump_level = level;
    event.u.heap_dump.begin = records.begin();
    event.u.heap_dump.end = records.end();
    sendEvent(event);
}

jint dump(JNIEnv* env, int level) {
    // The frame comes first and goes last: it holds the classes, and the agent asks about them in
    // its handler.
    LocalFrames frames(env);
    const OwnedEnvironment tags(openTaggingEnvironment());
    if (!tags) return JVMPI_NOT_AVAILABLE;
    const std::uint64_t limit = memoryLimit();
    if (!frames.push(64) || !canHold(env, limit)) return JVMPI_FAIL;
    linkArchivedClasses(env);
    const jlong firstId = nextDumpId.load(std::memory_order_relaxed);
    HeapWalk walk(tags.get(), level, limit, firstId);
    if (!walk.run(env, frames)) return JVMPI_FAIL;
    nextDumpId.store(firstId + static_cast<jlong>(walk.records().size()),
                     std::memory_order_relaxed);
    setDumpEnvironment(tags.get());
    sendHeapDump(env, walk.records(), level);
    setDumpEnvironment(nullptr);
    return JVMPI_SUCCESS;
}

}  // namespace

jint requestHeapDump(const JVMPI_HeapDumpArg* argument) {
    const jint level = argument == nullptr ? JVMPI_DUMP_LEVEL_2 : argument->heap_dump_level;
    JNIEnv* env = currentEnv();
    if (env == nullptr || !isLive()) return JVMPI_NOT_AVAILABLE;
    if (level < JVMPI_DUMP_LEVEL_0 || level > JVMPI_DUMP_LEVEL_2) return JVMPI_FAIL;
    if (dumping.exchange(true)) return JVMPI_FAIL;
    const ExceptionAside aside(env);
    jint result = JVMPI_FAIL;
    try {
        result = dump(env, level);
    } catch (...) {  // memory
    }
    dumping.store(false);
    return result;
}

}  // namespace adapter
