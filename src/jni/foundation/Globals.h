// The process-wide pointers and switches that every floor may read. The top floor (agent/) owns
// them; each manager publishes its mirror pointer in getInstance() and clears it in destroy().
#pragma once

#include <atomic>

#include "jvmpi/jvmpi.h"

class ProbeMgr;
class PropertyMgr;
class ThreadMgr;
class LockAgentMgr;
class MemoryMonitor;
class NetworkAgentMgr;
class EvtAgentMgr;
class ProtocolVisitor;

// Set once while the library loads (the interface possibly later, by the Java side); never cleared.
extern std::atomic<JVMPI_Interface*> jvmpi;  // null until the interface has been obtained
extern JavaVM* jvm_ptr;
extern int processId;
extern char* modFileName;  // owned; path of the MOD-level file

extern std::atomic<ProbeMgr*> probMgr_;
extern std::atomic<PropertyMgr*> propMgr_;
extern std::atomic<ThreadMgr*> thrMgr_;
extern std::atomic<LockAgentMgr*> lockMgr_;
extern std::atomic<MemoryMonitor*> memMon_;
extern std::atomic<NetworkAgentMgr*> naMgr_;
extern std::atomic<EvtAgentMgr*> evtMgr_;
extern std::atomic<ProtocolVisitor*> visitor_;

// Read on hot paths by any thread, written rarely by the controller: relaxed is enough, a reader
// that sees the old value for a moment behaves as if it had come a moment earlier.
extern std::atomic<int> probe_level;             // MOD level, 1 to 3
extern std::atomic<bool> useMethodLocks;         // readers of the method table take the stripe lock
extern std::atomic<bool> disableNestedRequests;  // at level 1: nested requests make no events
extern std::atomic<int> methodHashWaitInterval;  // ms between marking and sweeping unloaded classes
// Unloads between sweeps; -1: unregister at once. Exported: callers outside know it by name.
extern "C" __attribute__((visibility("default"))) int CLASSULOAD_CLEANUP;

constexpr int RC_SUCCESS = 1;
constexpr int RC_FAIL = 0;
