// One entry and exit of a VelLock on the adapter's monitors: the global creation lock and the
// lock's own monitor, alone and with two threads on two locks of their own (they meet on the global
// one).
#include <benchmark/benchmark.h>

#include "BenchVm.h"
#include "foundation/VelLock.h"

namespace {

void BM_VelLockPair(benchmark::State& state) {
    BenchVm::install();
    VelLock lock;
    for (auto _ : state) {
        lock.enterLock();
        lock.exitLock();
    }
}
BENCHMARK(BM_VelLockPair)->UseRealTime()->Threads(1)->Threads(2);

}  // namespace
