#include "instrument/class.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Platform.h"
#include "foundation/Utils.h"
#include "instrument/classfilter.h"

std::atomic<jclass_t**> class_hash{nullptr};
std::atomic<VelOsLock*> class_list_lock{nullptr};
std::atomic<VelOsLock*> ClassSequenceLock{nullptr};
ULONG ClassSequenceID = 0;
std::atomic<ULONG> cleanupCounter{0};
std::atomic<char> nameSeparator{'\0'};  // of the first name seen

std::atomic<VelOsLock*> jclass_t::unLoadLock_{nullptr};
std::atomic<bool> jclass_t::isCleanupInProgress_{false};

namespace {

constexpr int kClassBuckets = 1;  // the chain is searched only on load, unload and by name

// Unregistered classes whose memory an unlocked reader may still touch; guarded by unLoadLock_.
// Never destroyed: threads that unload classes may outlive the exit handlers.
struct Retired {
    jclass_t* clazz;
    std::chrono::steady_clock::time_point at;
};
std::vector<Retired>& retired = *new std::vector<Retired>;

void makeLock(std::atomic<VelOsLock*>& lock) {
    if (lock.load(std::memory_order_relaxed) == nullptr)
        lock.store(new VelOsLock, std::memory_order_release);
}

void endLock(std::atomic<VelOsLock*>& lock) {
    delete lock.exchange(nullptr, std::memory_order_acq_rel);
}

jclass_t* sentinel() {
    jclass_t** const table = class_hash.load(std::memory_order_acquire);
    return table == nullptr ? nullptr : table[0];
}

// The walk of both look-ups: compares the node it stands on, then steps; the last node is never
// compared.
template <typename Matches>
jclass_t* findClass(Matches matches) {
    const VelOsLockGuard guard(class_list_lock);
    jclass_t* current = sentinel();
    if (current == nullptr) return nullptr;
    for (; current->next != nullptr; current = current->next)
        if (matches(*current)) return current;
    return nullptr;
}

}  // namespace

jclass_t::jclass_t(const JVMPI_Event* event) {
    VEL_TRACE("jclass_t(JVMPI_Event*)");
    if (event == nullptr) return;
    const auto& load = event->u.class_load;
    class_id.store(load.class_id, std::memory_order_relaxed);
    class_name = Utils::cstrdup(load.class_name);
    translateSeparator(class_name);
    sequenceID = getNextClassSequence();
    is_filtered.store(isClassFiltered(class_name), std::memory_order_relaxed);
    type = -1;
    allocateMethods(load.methods == nullptr ? 0 : load.num_methods);
    for (int i = 0; i < num_methods; ++i) {
        const JVMPI_Method& method = load.methods[i];
        methods[i].initialize(method.method_name, method.method_signature, method.method_id, this);
    }
}

jclass_t::~jclass_t() {
    VEL_TRACE("~jclass_t()");
    if (registered) unregister();
    delete[] class_name;
    delete[] methods;
    class_name = nullptr;
    methods = nullptr;
    num_methods = 0;
    class_id.store(nullptr, std::memory_order_relaxed);
    next = nullptr;
    type = -1;
}

void jclass_t::allocateMethods(int count) {
    VEL_TRACE("allocateMethods(int)");
    num_methods = std::max(count, 0);
    methods = num_methods == 0 ? nullptr : new jmethod_t[num_methods];
}

void jclass_t::doRegister() {
    VEL_TRACE("doRegister()");
    if (registered) return;
    for (int i = 0; i < num_methods; ++i) methods[i].addToMethodTable();
    registered = true;  // before others can find, unload and free the record
    addToClassTable();
}

void jclass_t::unRegisterMethods() {
    VEL_TRACE("unRegisterMethods()");
    for (int i = 0; i < num_methods; ++i) methods[i].removeFromMethodTable();
    registered = false;
}

void jclass_t::unregister() {
    VEL_TRACE("unregister()");
    unRegisterMethods();
    removeFromClassTable();
    registered = false;
}

void jclass_t::addToClassTable() {
    VEL_TRACE("addToClassTable()");
    const VelOsLockGuard guard(class_list_lock);
    jclass_t* const head = sentinel();
    if (head == nullptr) return;
    next = head->next;
    head->next = this;
}

void jclass_t::removeFromClassTable() {
    VEL_TRACE("removeFromClassTable()");
    const VelOsLockGuard guard(class_list_lock);
    jclass_t* before = sentinel();
    while (before != nullptr && before->next != this) before = before->next;
    if (before == nullptr) return;
    before->next = next;
    next = nullptr;
    class_id.store(nullptr, std::memory_order_relaxed);
}

jclass_t* jclass_t::clone() const {
    VEL_TRACE("clone()");
    auto* const copy = new jclass_t;
    copy->class_id.store(class_id.load(std::memory_order_relaxed), std::memory_order_relaxed);
    copy->class_name = Utils::cstrdup(class_name);
    copy->sequenceID = sequenceID;
    copy->delete_flag = 1;
    copy->is_filtered.store(is_filtered.load(std::memory_order_relaxed), std::memory_order_relaxed);
    copy->type = type;
    copy->allocateMethods(num_methods);
    for (int i = 0; i < num_methods; ++i) {
        const jmethod_t& method = methods[i];
        copy->methods[i].initialize(method.method_name, method.method_signature,
                                    method.method_id.load(std::memory_order_relaxed), copy);
    }
    return copy;
}

void jclass_t::markDirty() {
    VEL_TRACE("markDirty()");
    for (int i = 0; i < num_methods; ++i)
        methods[i].method_id.store(nullptr, std::memory_order_relaxed);
    // Last, and released: to a sweep on another thread it means that nobody writes here any more.
    class_id.store(nullptr, std::memory_order_release);
}

// Chooses what the sweep removes after its wait: a class that is marked while the sweep waits has
// not been out of the readers' sight for long enough, and stays for the next one.
static void condemnDirtyClasses() {
    const VelOsLockGuard guard(class_list_lock);
    jclass_t* const head = sentinel();
    if (head == nullptr) return;
    for (jclass_t* current = head->next; current != nullptr; current = current->next)
        current->condemned = current->class_id.load(std::memory_order_acquire) == nullptr;
}

// Every method id of a dirty class is null by now, so unRegisterMethods() asks for null ids in
// bucket 0 and takes whatever dirty method stands first there: intended. Whatever is then still
// linked, in whichever bucket, leaves its chain in the destructors.
static void sweepLocked() {
    jclass_t* before = sentinel();
    while (before != nullptr && before->next != nullptr) {
        jclass_t* const current = before->next;
        if (!current->condemned) {
            before = current;
            continue;
        }
        before->next = current->next;
        current->unRegisterMethods();
        delete current;
    }
}

void jclass_t::cleanupDirtyClasses() {
    VEL_TRACE("cleanupDirtyClasses()");
    if (CLASSULOAD_CLEANUP == -1) return;
    const VelOsLockGuard unloading(unLoadLock_);
    VEL_DEBUG_MAX("cleanupDirtyClasses()", "cleanupCounter %d", cleanupCounter.load());
    if (++cleanupCounter < static_cast<ULONG>(CLASSULOAD_CLEANUP)) return;
    condemnDirtyClasses();
    useMethodLocks.store(true, std::memory_order_release);
    isCleanupInProgress_.store(true, std::memory_order_release);
    thread_sleep(methodHashWaitInterval.load(std::memory_order_relaxed));
    const VelOsLockGuard table(class_list_lock);
    VEL_DEBUG_MIN("cleanupDirtyClasses()", "cleaning up table");
    sweepLocked();
    VEL_DEBUG_MIN("cleanupDirtyClasses()", "cleaning up table done");
    cleanupCounter.store(0);
    isCleanupInProgress_.store(false, std::memory_order_release);
    useMethodLocks.store(false, std::memory_order_release);
}

void jclass_t::retire(jclass_t* unregistered) {
    VEL_TRACE("retire(jclass_t*)");
    if (unregistered == nullptr) return;
    const VelOsLockGuard unloading(unLoadLock_);
    const auto now = std::chrono::steady_clock::now();
    const std::chrono::milliseconds grace(methodHashWaitInterval.load(std::memory_order_relaxed));
    const auto isThis = [&](const Retired& old) { return old.clazz == unregistered; };
    if (std::any_of(retired.begin(), retired.end(), isThis)) return;  // two reported its unload
    retired.push_back({unregistered, now});
    const auto young = std::find_if(retired.begin(), retired.end(),
                                    [&](const Retired& old) { return now - old.at < grace; });
    std::for_each(retired.begin(), young, [](const Retired& old) { delete old.clazz; });
    retired.erase(retired.begin(), young);
}

void jclass_t::initialize() {
    VEL_TRACE("initialize()");
    makeLock(unLoadLock_);
}

void jclass_t::destroy() {
    VEL_TRACE("destroy()");
    endLock(unLoadLock_);
}

void initClassTableLock() {
    VEL_TRACE("initClassTableLock()");
    makeLock(class_list_lock);
    jclass_t::initialize();
}

void endClassTableLock() {
    VEL_TRACE("endClassTableLock()");
    endLock(class_list_lock);
    jclass_t::destroy();
}

void initClassSequenceLock() {
    VEL_TRACE("initClassSequenceLock()");
    makeLock(ClassSequenceLock);
}

void endClassSequenceLock() {
    VEL_TRACE("endClassSequenceLock()");
    endLock(ClassSequenceLock);
}

void createClassTable() {
    VEL_TRACE("createClassTable()");
    // A second custom service in the same process goes on with the table that its classes are
    // linked in.
    if (class_hash.load(std::memory_order_acquire) != nullptr) return;
    auto** const table = new jclass_t*[kClassBuckets];
    table[0] = new jclass_t;
    class_hash.store(table, std::memory_order_release);
}

void deleteClassTable() {
    VEL_TRACE("deleteClassTable()");
    jclass_t** const table = class_hash.exchange(nullptr, std::memory_order_acq_rel);
    if (table != nullptr) {
        for (jclass_t* current = table[0]; current != nullptr;) {
            jclass_t* const following = current->next;
            current->registered = false;  // its table is going: nothing to take it out of
            delete current;
            current = following;
        }
        delete[] table;
    }
    for (const Retired& old : retired) delete old.clazz;
    retired.clear();
}

jclass_t* getClassForName(const char* class_name) {
    VEL_TRACE("getClassForName(const char*)");
    if (class_name == nullptr) return nullptr;
    return findClass([class_name](const jclass_t& candidate) {
        return candidate.class_name != nullptr &&
               std::strcmp(candidate.class_name, class_name) == 0;
    });
}

jclass_t* getClassEntry(jobjectID ClassID) {
    VEL_TRACE("getClassEntry(jobjectID)");
    return findClass([ClassID](const jclass_t& candidate) {
        return candidate.class_id.load(std::memory_order_relaxed) == ClassID;
    });
}

// Not by getClassEntry(), which never finds the oldest class.
static bool hasRecord(jobjectID classId) {
    const VelOsLockGuard guard(class_list_lock);
    jclass_t* const head = sentinel();
    if (head == nullptr || classId == nullptr) return false;
    for (jclass_t* current = head->next; current != nullptr; current = current->next)
        if (current->class_id.load(std::memory_order_relaxed) == classId) return true;
    return false;
}

bool isKnownClass(const JVMPI_Event* event) {
    VEL_TRACE("isKnownClass(const JVMPI_Event*)");
    const auto& load = event->u.class_load;
    if (!hasRecord(load.class_id)) return false;
    const int count = load.methods == nullptr ? 0 : load.num_methods;
    for (int i = 0; i < count; ++i) {
        const jmethodID id = load.methods[i].method_id;
        if (id != nullptr && getMethod(id) == nullptr) return false;
    }
    return true;
}

// Under the lock although it only writes flags: an unload could otherwise free the class it stands
// on.
void reapplyFilter() {
    VEL_TRACE("reapplyFilter()");
    const VelOsLockGuard guard(class_list_lock);
    jclass_t* const head = sentinel();
    if (head == nullptr) return;
    for (jclass_t* current = head->next; current != nullptr; current = current->next)
        current->is_filtered.store(isClassFiltered(current->class_name), std::memory_order_relaxed);
}

void resetClassSequence() {
    VEL_TRACE("resetClassSequence()");
    VelOsLock* const lock = ClassSequenceLock;
    if (lock == nullptr) return;
    const VelOsLockGuard guard(lock);
    ClassSequenceID = 0;
}

ULONG getNextClassSequence() {
    VEL_TRACE("getNextClassSequence()");
    const VelOsLockGuard guard(ClassSequenceLock);
    return ++ClassSequenceID;
}

ULONG getCurrentClassSequence() {
    VEL_TRACE("getCurrentClassSequence()");
    const VelOsLockGuard guard(ClassSequenceLock);
    return ClassSequenceID;
}

void translateSeparator(char* name) {
    VEL_TRACE("translateSeparator(char*)");
    if (name == nullptr) return;
    char decided = nameSeparator.load(std::memory_order_relaxed);
    if (decided == '\0') {
        const char mine = std::strchr(name, '.') != nullptr ? '.' : '/';
        if (nameSeparator.compare_exchange_strong(decided, mine)) decided = mine;
    }
    if (decided != '/') std::replace(name, name + std::strlen(name), '.', '/');
}
