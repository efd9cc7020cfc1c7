// Prepares the VM for a dump, has the heap walked, and sends the event.
#include "jvmpi/HeapDump.h"

#include <atomic>
#include <memory>

#include "jvmpi/ClassDescription.h"
#include "jvmpi/EventSwitch.h"
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

bool dump(JNIEnv* env, int level) {
    // The frame comes first and goes last: it holds the classes, and the agent asks about them in
    // its handler.
    LocalFrames frames(env);
    const OwnedEnvironment tags(openTaggingEnvironment());
    if (!tags || !frames.push(64)) return false;
    linkArchivedClasses(env);
    const jlong firstId = nextDumpId.load(std::memory_order_relaxed);
    HeapWalk walk(tags.get(), level, memoryLimit(), firstId);
    if (!walk.run(env, frames)) return false;
    nextDumpId.store(firstId + static_cast<jlong>(walk.records().size()),
                     std::memory_order_relaxed);
    setDumpEnvironment(tags.get());
    sendHeapDump(env, walk.records(), level);
    setDumpEnvironment(nullptr);
    return true;
}

}  // namespace

jint requestHeapDump(const JVMPI_HeapDumpArg* argument) {
    const jint level = argument == nullptr ? JVMPI_DUMP_LEVEL_2 : argument->heap_dump_level;
    JNIEnv* env = currentEnv();
    if (env == nullptr || !isLive() || level < JVMPI_DUMP_LEVEL_0 || level > JVMPI_DUMP_LEVEL_2) {
        return JVMPI_FAIL;
    }
    if (dumping.exchange(true)) return JVMPI_FAIL;
    const ExceptionAside aside(env);
    bool done = false;
    try {
        done = dump(env, level);
    } catch (...) {  // memory
    }
    dumping.store(false);
    return done ? JVMPI_SUCCESS : JVMPI_FAIL;
}

}  // namespace adapter
