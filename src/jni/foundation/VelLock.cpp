// See VelLock.h.
#include "foundation/VelLock.h"

#include <cstdio>

#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"

std::atomic<JVMPI_RawMonitor> VelLock::globalLock_{nullptr};

namespace {

JVMPI_Interface* vmInterface() {
    return jvmpi.load(std::memory_order_acquire);
}

// Makes a monitor into slot unless another thread was quicker (nothing serialises makers before the
// global monitor exists). False only when the VM gave none and nobody else made one.
bool makeMonitor(JVMPI_Interface* vm, char* name, std::atomic<JVMPI_RawMonitor>& slot) {
    JVMPI_RawMonitor const made = vm->RawMonitorCreate(name);
    JVMPI_RawMonitor present = nullptr;
    if (made == nullptr) return slot.load(std::memory_order_acquire) != nullptr;
    if (!slot.compare_exchange_strong(present, made, std::memory_order_acq_rel))
        vm->RawMonitorDestroy(made);
    return true;
}

}  // namespace

VelLock::VelLock() : VelLock(true) {
}

VelLock::VelLock(bool createOnCreation) {
    VEL_TRACE("VelLock(bool)");
    // Written once and before any other thread knows the lock: a VM may keep the pointer.
    std::snprintf(name, sizeof name, "_%pVelLock", static_cast<void*>(this));
    if (createOnCreation) makeLock();
}

VelLock::~VelLock() {
    VEL_TRACE("~VelLock()");
    JVMPI_Interface* const vm = vmInterface();
    JVMPI_RawMonitor const mine = lock_.load(std::memory_order_acquire);
    if (mine == nullptr || vm == nullptr) return;
    vm->RawMonitorDestroy(mine);
    lock_.store(nullptr, std::memory_order_release);
}

bool VelLock::makeLock() {
    VEL_TRACE("makeLock()");
    JVMPI_Interface* const vm = vmInterface();
    if (vm == nullptr) return false;
    // Intended: the global monitor is passed on every entry, also when this lock's monitor is there
    // already.
    JVMPI_RawMonitor const global = globalLock_.load(std::memory_order_acquire);
    if (global != nullptr) vm->RawMonitorEnter(global);
    const bool made =
        lock_.load(std::memory_order_acquire) != nullptr || makeMonitor(vm, name, lock_);
    if (global != nullptr) vm->RawMonitorExit(global);
    if (made) return true;
    // Once: whoever cannot get a monitor asks for it again with every call.
    static std::atomic<bool> told{false};
    if (!told.exchange(true, std::memory_order_relaxed)) {
        std::fputs("## ERROR: JVMPI could not create a Raw Monitor\n", stderr);
        std::fflush(stderr);
    }
    return false;
}

bool VelLock::enterLock() {
    VEL_TRACE("enterLock()");
    if (!makeLock()) return false;
    vmInterface()->RawMonitorEnter(lock_.load(std::memory_order_acquire));
    return true;
}

bool VelLock::exitLock() {
    VEL_TRACE("exitLock()");
    JVMPI_Interface* const vm = vmInterface();
    JVMPI_RawMonitor const mine = lock_.load(std::memory_order_acquire);
    if (mine == nullptr || vm == nullptr) return false;
    vm->RawMonitorExit(mine);
    return true;
}

bool VelLock::wait(int ms) {
    VEL_TRACE("wait(int)");
    if (!enterLock()) return false;
    // To a VM a wait of 0 has no end, and nothing would ever wake this one.
    if (ms > 0) vmInterface()->RawMonitorWait(lock_.load(std::memory_order_acquire), ms);
    exitLock();
    return true;
}

void VelLock::notifyAll() {
    VEL_TRACE("notifyAll()");
    if (!enterLock()) return;
    vmInterface()->RawMonitorNotifyAll(lock_.load(std::memory_order_acquire));
    exitLock();
}

bool VelLock::populateGlobalLock() {
    VEL_TRACE("populateGlobalLock()");
    if (globalLock_.load(std::memory_order_acquire) != nullptr) return true;
    JVMPI_Interface* const vm = vmInterface();
    if (vm == nullptr) {
        logMessage(msg::kGlobalLockTooEarly);
        return false;
    }
    static char globalName[] = "_VelLockGlobalLock";  // a VM may keep the pointer
    if (makeMonitor(vm, globalName, globalLock_)) return true;
    logMessage(msg::kGlobalLockFailed);
    return false;
}

bool VelLock::destroyGlobalLock() {
    VEL_TRACE("destroyGlobalLock()");
    JVMPI_Interface* const vm = vmInterface();
    if (vm == nullptr) return false;
    JVMPI_RawMonitor const global = globalLock_.exchange(nullptr, std::memory_order_acq_rel);
    if (global == nullptr) return false;
    vm->RawMonitorDestroy(global);
    return true;
}
