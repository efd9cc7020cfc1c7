// What a raw monitor costs: the adapter's own beside a recursive pthread mutex, alone and fought
// over.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include "jvmpi/Monitor.h"

namespace {

class RecursiveMutex {
public:
    RecursiveMutex() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&mutex_, &attributes);
    }
    void enter() { pthread_mutex_lock(&mutex_); }
    void exit() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t mutex_;
};

adapter::Monitor& shared(adapter::Monitor*) {
    static adapter::Monitor& monitor = *adapter::Monitor::create("_bench");
    return monitor;
}

RecursiveMutex& shared(RecursiveMutex*) {
    static RecursiveMutex& mutex = *new RecursiveMutex;
    return mutex;
}

template <typename Lock>
void pair(benchmark::State& state) {
    Lock& lock = shared(static_cast<Lock*>(nullptr));
    for (auto _ : state) {
        lock.enter();
        benchmark::ClobberMemory();
        lock.exit();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(pair<adapter::Monitor>)->Threads(1)->Threads(2)->Threads(8)->UseRealTime();
BENCHMARK(pair<RecursiveMutex>)->Threads(1)->Threads(2)->Threads(8)->UseRealTime();

template <typename Lock>
void reentry(benchmark::State& state) {
    Lock& lock = shared(static_cast<Lock*>(nullptr));
    lock.enter();
    for (auto _ : state) {
        lock.enter();
        benchmark::ClobberMemory();
        lock.exit();
    }
    lock.exit();
}
BENCHMARK(reentry<adapter::Monitor>);
BENCHMARK(reentry<RecursiveMutex>);

// Holds the lock about half of the time, as a short critical section between short pieces of other
// work does.
template <typename Lock>
void shortSections(benchmark::State& state) {
    Lock& lock = shared(static_cast<Lock*>(nullptr));
    for (auto _ : state) {
        lock.enter();
        for (int i = 0; i < 20; ++i) benchmark::DoNotOptimize(i);
        lock.exit();
        for (int i = 0; i < 20; ++i) benchmark::DoNotOptimize(i);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(shortSections<adapter::Monitor>)->Threads(1)->Threads(2)->Threads(8)->UseRealTime();
BENCHMARK(shortSections<RecursiveMutex>)->Threads(1)->Threads(2)->Threads(8)->UseRealTime();

}  // namespace
