#include "instrument/method.h"

#include <cstdio>

#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"
#include "foundation/VelOsLock.h"

std::atomic<jmethod_t**> method_hash{nullptr};
ULONG method_hash_size = kDefaultMethodHashSize;

namespace {

// Bucket b is guarded by lock b mod 67. Made once, never destroyed: the tables live as long as the
// process.
std::atomic<VelOsLock*> method_monitor[kMethodMonitors];

VelOsLock* stripeLock(ULONG bucket) {
    return method_monitor[bucket % kMethodMonitors].load(std::memory_order_acquire);
}

}  // namespace

jmethod_t::jmethod_t(const char* name, const char* signature, jmethodID id, jclass_t* owner) {
    VEL_TRACE("jmethod_t(const char*, const char*, jmethodID, jclass_t*)");
    initialize(name, signature, id, owner);
}

jmethod_t::~jmethod_t() {
    VEL_TRACE("~jmethod_t()");
    if (linked_.load(std::memory_order_acquire)) unlink();
    delete[] method_name;
    delete[] method_signature;
    method_name = nullptr;
    method_signature = nullptr;
    method_id.store(nullptr, std::memory_order_relaxed);
    clazz = nullptr;
    type = -1;
}

void jmethod_t::initialize(const char* name, const char* signature, jmethodID id, jclass_t* owner) {
    VEL_TRACE("initialize(char*, char*, jmethodID, jclass_t*)");
    method_name = Utils::cstrdup(name);
    method_signature = Utils::cstrdup(signature);
    method_id.store(id, std::memory_order_relaxed);
    clazz = owner;
}

jmethod_t* jmethod_t::clone() const {
    VEL_TRACE("clone()");
    return new jmethod_t(method_name, method_signature, method_id.load(std::memory_order_relaxed),
                         nullptr);
}

void jmethod_t::addToMethodTable() {
    VEL_TRACE("addToMethodTable()");
    jmethod_t** const table = method_hash.load(std::memory_order_acquire);
    if (table == nullptr || linked_.load(std::memory_order_relaxed)) return;
    bucket_ = getMethHashIndex(method_id.load(std::memory_order_relaxed));
    jmethod_t* const sentinel = table[bucket_];
    const VelOsLockGuard guard(stripeLock(bucket_));
    next.store(sentinel->next.load(std::memory_order_relaxed), std::memory_order_relaxed);
    linked_.store(true, std::memory_order_relaxed);
    // Release: an unlocked reader that sees the new head sees the whole record behind it.
    sentinel->next.store(this, std::memory_order_release);
}

// The unlinked record keeps its own link: a reader that stands on it walks on down the chain.
void jmethod_t::unlinkLocked(jmethod_t* before, jmethod_t* method) {
    before->next.store(method->next.load(std::memory_order_relaxed), std::memory_order_release);
    method->linked_.store(false, std::memory_order_release);
}

void jmethod_t::removeFromMethodTable() {
    VEL_TRACE("removeFromMethodTable()");
    jmethod_t** const table = method_hash.load(std::memory_order_acquire);
    if (table == nullptr) return;
    const jmethodID id = method_id.load(std::memory_order_relaxed);
    const ULONG bucket = getMethHashIndex(id);
    const VelOsLockGuard guard(stripeLock(bucket));
    jmethod_t* before = table[bucket];
    jmethod_t* found = before->next.load(std::memory_order_relaxed);
    while (found != nullptr && found->method_id.load(std::memory_order_relaxed) != id) {
        before = found;
        found = found->next.load(std::memory_order_relaxed);
    }
    if (found == nullptr) return;
    unlinkLocked(before, found);
    method_id.store(nullptr, std::memory_order_relaxed);
    std::fflush(stderr);
}

void jmethod_t::unlink() {
    jmethod_t** const table = method_hash.load(std::memory_order_acquire);
    if (table == nullptr) return;
    const VelOsLockGuard guard(stripeLock(bucket_));
    if (!linked_.load(std::memory_order_relaxed)) return;
    jmethod_t* before = table[bucket_];
    while (before != nullptr && before->next.load(std::memory_order_relaxed) != this)
        before = before->next.load(std::memory_order_relaxed);
    if (before != nullptr) unlinkLocked(before, this);
}

void initMethodTableLock() {
    VEL_TRACE("initMethodTableLock()");
    for (auto& monitor : method_monitor) {
        if (monitor.load(std::memory_order_relaxed) == nullptr)
            monitor.store(new VelOsLock, std::memory_order_release);
    }
}

void createMethodTable() {
    VEL_TRACE("createMethodTable()");
    // A second custom service in the same process goes on with the table that its classes are
    // linked in.
    if (method_hash.load(std::memory_order_acquire) != nullptr) return;
    VEL_DEBUG_MIN("createMethodTable()", "Method table hash size %d", method_hash_size);
    auto** const table = new jmethod_t*[method_hash_size];
    for (ULONG bucket = 0; bucket < method_hash_size; ++bucket) table[bucket] = new jmethod_t;
    method_hash.store(table, std::memory_order_release);
}

void deleteMethodTable() {
    VEL_TRACE("deleteMethodTable()");
    jmethod_t** const table = method_hash.exchange(nullptr, std::memory_order_acq_rel);
    if (table == nullptr) return;
    for (ULONG bucket = 0; bucket < method_hash_size; ++bucket) {
        for (jmethod_t* method = table[bucket]; method != nullptr; method = method->next)
            method->linked_.store(false, std::memory_order_relaxed);
        delete table[bucket];
    }
    delete[] table;
}

ULONG getMethHashIndex(jmethodID id) {
    VEL_TRACE("getMethHashIndex(jmethodID)");
    // Intended: only the low 32 bits count; the lowest three are zero in an aligned address.
    return (static_cast<ULONG>(reinterpret_cast<std::uintptr_t>(id)) >> 3) % method_hash_size;
}

jmethod_t* getMethod(jmethodID id) {
    VEL_TRACE("getMethod(jmethodID)");
    if (id == nullptr) return nullptr;
    jmethod_t** const table = method_hash.load(std::memory_order_acquire);
    if (table == nullptr) return nullptr;
    const ULONG bucket = getMethHashIndex(id);
    // Read once: a sweep that begins meanwhile waits for readers that started without the lock.
    const bool locked = useMethodLocks.load(std::memory_order_acquire);
    const VelOsLockGuard guard(locked ? stripeLock(bucket) : nullptr);
    jmethod_t* method = table[bucket];
    while (method != nullptr && method->method_id.load(std::memory_order_relaxed) != id)
        method = method->next.load(std::memory_order_acquire);
    return method;
}
