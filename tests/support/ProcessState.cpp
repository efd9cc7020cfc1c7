// Each test leaves the process as it found it: what the collector keeps for the whole process, and
// no fixture of its own puts back, goes back to how a library just loaded has it.
#include <gtest/gtest.h>

#include "agent/ProbeMgr.h"
#include "agent/velora.h"
#include "capture/PortalMethodMgr.h"
#include "diagnostics/thread_natives.h"
#include "event/GPSTokenUtils.h"
#include "foundation/Globals.h"
#include "foundation/ProbeState.h"
#include "instrument/InstrumentJNI.h"
#include "instrument/class.h"
#include "instrument/method.h"
#include "support/ThreadDataProbe.h"
#include "transport/MemoryMonitor.h"

class ProbeStateAccess {
public:
    static void reset() {
        ProbeState::disabled_ = true;
        ProbeState::eventMgrReady_ = false;
        ProbeState::netMgrReady_ = false;
        ProbeState::setLevel(2);
        ProbeState::setSamplingRates({});
        ProbeState::setDispatcher(nullptr);
    }
};

class GPSTokenAccess {
public:
    static void reset() { GPSTokenUtils::forget(); }
};

class ProbeMgrAccess {
public:
    static void reset() {
        ProbeMgr::destroy();
        ProbeMgr::restartOnToFromL1_ = false;
        ProbeMgr::initInterface_ = true;
        ProbeMgr::jvmPtr_ = nullptr;
        ProbeMgr::jvmpi_ = nullptr;
        probe_level = 2;
    }
};

class MemoryMonitorAccess {
public:
    static void reset() {
        MemoryMonitor::uLimitReached_ = false;
        MemoryMonitor::avgURLLimit_ = 100;
        MemoryMonitor::avgSQLLimit_ = 1000;
        MemoryMonitor::urlLimitCntr_ = MemoryMonitor::sqlLimitCntr_ = 0;
        MemoryMonitor::urlBuffSize_ = MemoryMonitor::sqlBuffSize_ = 0;
    }
};

class PortalMethodAccess {
public:
    static void reset() {
        PortalMethodMgr& methods = PortalMethodMgr::getInstance();
        for (int i = 1; i <= methods.lastId_; ++i) delete[] methods.names_.get(&methods.ids_[i]);
        methods.names_.clear();
        methods.lastId_ = 0;
    }
};

namespace {

void forgetClasses() {
    deleteClassTable();
    deleteMethodTable();
    ClassSequenceID = 0;
    cleanupCounter = 0;
    nameSeparator = '\0';
    instrumentationActive = instrumentedClassLoader = instrumentedProxy = false;
}

class AfterEachTest : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo&) override {
        ProbeStateAccess::reset();
        GPSTokenAccess::reset();
        ThreadDataProbe::limit(0);  // not read yet
        ProbeMgrAccess::reset();
        MemoryMonitorAccess::reset();
        PortalMethodAccess::reset();
        isJVMInitializationDone = isBcmBootstrapNativeRegistered = inRegisterBcmBootstrapNative =
            false;
        forgetClasses();
        javastring = nullptr;  // of a fake that is gone
    }
};

[[maybe_unused]] const bool listens = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new AfterEachTest);
    return true;
}();

}  // namespace
