// The part of a VM that the collector's locks stand on, for benchmarks: raw monitors, the adapter's
// own, so that a lock costs here what it costs in a server.
#pragma once

#include "foundation/Globals.h"
#include "foundation/VelLock.h"
#include "jvmpi/Monitor.h"
#include "jvmpi/jvmpi.h"

class BenchVm {
public:
    BenchVm() {
        table_.RawMonitorCreate = [](char* name) {
            return reinterpret_cast<JVMPI_RawMonitor>(adapter::Monitor::create(name));
        };
        table_.RawMonitorEnter = [](JVMPI_RawMonitor m) { of(m)->enter(); };
        table_.RawMonitorExit = [](JVMPI_RawMonitor m) { of(m)->exit(); };
        table_.RawMonitorWait = [](JVMPI_RawMonitor m, jlong ms) { of(m)->wait(ms); };
        table_.RawMonitorNotifyAll = [](JVMPI_RawMonitor m) { of(m)->notifyAll(); };
        table_.RawMonitorDestroy = [](JVMPI_RawMonitor m) { delete of(m); };
        jvmpi.store(&table_);
        VelLock::populateGlobalLock();
    }
    BenchVm(const BenchVm&) = delete;
    BenchVm& operator=(const BenchVm&) = delete;

    // Made once and kept: the collector's singletons hold monitors until the process ends.
    static void install() {
        static BenchVm* const vm = new BenchVm;
        (void)vm;
    }

private:
    static adapter::Monitor* of(JVMPI_RawMonitor monitor) {
        return reinterpret_cast<adapter::Monitor*>(monitor);
    }
    JVMPI_Interface table_{};
};
