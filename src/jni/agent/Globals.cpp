// The process-wide pointers and switches of foundation/Globals.h, with the values they have before
// anything has been loaded.
#include "foundation/Globals.h"

std::atomic<JVMPI_Interface*> jvmpi{nullptr};
JavaVM* jvm_ptr = nullptr;
int processId = 0;
char* modFileName = nullptr;

std::atomic<ProbeMgr*> probMgr_{nullptr};
std::atomic<PropertyMgr*> propMgr_{nullptr};
std::atomic<ThreadMgr*> thrMgr_{nullptr};
std::atomic<LockAgentMgr*> lockMgr_{nullptr};
std::atomic<MemoryMonitor*> memMon_{nullptr};
std::atomic<NetworkAgentMgr*> naMgr_{nullptr};
std::atomic<EvtAgentMgr*> evtMgr_{nullptr};
std::atomic<ProtocolVisitor*> visitor_{nullptr};

std::atomic<int> probe_level{2};
std::atomic<bool> useMethodLocks{false};
std::atomic<bool> disableNestedRequests{false};
std::atomic<int> methodHashWaitInterval{5000};
int CLASSULOAD_CLEANUP = 150;
