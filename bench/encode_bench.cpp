// What one event costs on its road: queued by a monitored thread, encoded, drained by an event
// agent, and how many of them a megabyte holds.
//
// The mix is a servlet request: a START with four texts as a container gives them, and an END that
// carries none. Run pinned to one core (taskset -c 0); only figures of one run compare.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "BenchVm.h"
#include "event/Events.h"
#include "event/ThreadData.h"
#include "foundation/VelList.h"
#include "transport/MemoryMonitor.h"

namespace {

constexpr int kQueue = 4096;  // events per filling, below the default queue limit of 5000

char* copyOf(const char* text) {
    const std::size_t bytes = std::strlen(text) + 1;
    auto* const copy = new char[bytes];
    std::memcpy(copy, text, bytes);
    return copy;
}

ServletEvent* servletStart() {
    auto* const event = new ServletEvent(START);
    event->threadId_ = 4711;
    event->cpuTime_ = 123456789;
    event->timeSec_ = 1700000000;
    event->timeUSec_ = 123456;
    event->servletDepth = 1;
    event->request_name = copyOf("OrderServlet");
    event->application_name = copyOf("shop");
    event->url = copyOf("/shop/order/status/1234567");
    event->userName = copyOf("jane.doe");
    event->size_ = 188;
    return event;
}

ServletEvent* servletEnd() {
    auto* const event = new ServletEvent(END);
    event->threadId_ = 4711;
    event->cpuTime_ = 123556789;
    event->timeSec_ = 1700000000;
    event->timeUSec_ = 153456;
    event->servletDepth = 1;
    event->request_name = emptyText();
    event->application_name = emptyText();
    event->url = emptyText();
    event->userName = emptyText();
    event->size_ = 188;
    return event;
}

void fill(ThreadData& thread) {
    for (int i = 0; i < kQueue; i += 2) {
        thread.appendEvent(servletStart());
        thread.appendEvent(servletEnd());
    }
}

// A monitored thread: fills the queue each time it is asked to, on a thread of its own as in a
// server.
class Producer {
public:
    explicit Producer(ThreadData& thread) : runner_([this, &thread] { run(thread); }) {}
    ~Producer() {
        ask(2);
        runner_.join();
    }
    void fillQueue() {
        ask(1);
        std::unique_lock guard(lock_);
        changed_.wait(guard, [this] { return asked_ == 0; });
    }

private:
    void ask(int what) {
        const std::lock_guard guard(lock_);
        asked_ = what;
        changed_.notify_all();
    }
    void run(ThreadData& thread) {
        for (;;) {
            std::unique_lock guard(lock_);
            changed_.wait(guard, [this] { return asked_ != 0; });
            if (asked_ == 2) return;
            fill(thread);
            asked_ = 0;
            changed_.notify_all();
        }
    }

    std::mutex lock_;
    std::condition_variable changed_;
    int asked_ = 0;  // 0 nothing, 1 fill, 2 end
    std::thread runner_;
};

void encodeServletMix(benchmark::State& state) {
    BenchVm::install();
    std::vector<std::unique_ptr<Event>> events;
    for (int i = 0; i < kQueue; i += 2) {
        events.emplace_back(servletStart());
        events.emplace_back(servletEnd());
    }
    std::vector<char> buffer(1 << 20);
    std::size_t bytes = 0;
    for (auto _ : state) {
        char* at = buffer.data();
        for (const auto& event : events) event->addToBuffer(&at);
        bytes = static_cast<std::size_t>(at - buffer.data());
        benchmark::DoNotOptimize(bytes);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kQueue);
    state.SetBytesProcessed(
        static_cast<std::int64_t>(static_cast<std::size_t>(state.iterations()) * bytes));
}
BENCHMARK(encodeServletMix);

void measureServletMix(benchmark::State& state) {
    const std::unique_ptr<Event> start(servletStart());
    const std::unique_ptr<Event> end(servletEnd());
    for (auto _ : state) {
        benchmark::DoNotOptimize(start->encodedSize());
        benchmark::DoNotOptimize(end->encodedSize());
    }
    state.SetItemsProcessed(state.iterations() * 2);
}
BENCHMARK(measureServletMix);

// Pop, encode, credit, delete; the events were made by another thread.
template <typename Drain>
void drainQueue(benchmark::State& state, Drain drain) {
    BenchVm::install();
    ThreadData thread(static_cast<JNIEnv*>(nullptr));
    Producer producer(thread);
    std::vector<char> buffer(5 << 20);
    for (auto _ : state) {
        state.PauseTiming();
        producer.fillQueue();
        state.ResumeTiming();
        char* at = buffer.data();
        drain(thread, buffer.data() + buffer.size(), &at);
        benchmark::DoNotOptimize(at);
    }
    if (thread.getEvtQueueSize() != 0 || thread.hasRefusedCounts())
        state.SkipWithError("queue not drained");
    state.SetItemsProcessed(state.iterations() * kQueue);
}

void takeOne(ThreadData& thread, Event* event, const char* end, char** at) {
    if (event->fits(static_cast<std::size_t>(end - *at))) event->addToBuffer(at);
    MemoryMonitor::delFromMemCntr(event->getType(), event->size_, &thread);
    delete event;
}

void drainOneByOne(benchmark::State& state) {
    drainQueue(state, [](ThreadData& thread, const char* end, char** at) {
        while (Event* const event = thread.getEvtQueue()->pop()) takeOne(thread, event, end, at);
    });
}
BENCHMARK(drainOneByOne);

// As the event agent does it.
void drainInBatches(benchmark::State& state) {
    VelList<Event*> batch(false);
    drainQueue(state, [&](ThreadData& thread, const char* end, char** at) {
        while (thread.getEvtQueue()->moveFirst(256, &batch) > 0)
            while (Event* const event = batch.pop()) takeOne(thread, event, end, at);
    });
}
BENCHMARK(drainInBatches);

// The producer's side: two events, four texts, two appends. The deletions are not timed.
void produceRequest(benchmark::State& state) {
    BenchVm::install();
    ThreadData thread(static_cast<JNIEnv*>(nullptr));
    for (auto _ : state) {
        fill(thread);
        state.PauseTiming();
        while (Event* const event = thread.getEvtQueue()->pop()) delete event;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kQueue / 2);
}
BENCHMARK(produceRequest);

// Heap bytes of queued requests: events, texts and list nodes as the heap accounts for them.
void eventsPerMegabyte(benchmark::State& state) {
    BenchVm::install();
    constexpr int kEvents = 200000;
    double perMegabyte = 0;
    for (auto _ : state) {
        VelList<Event*> queue(false);
        const std::size_t before = mallinfo2().uordblks;
        for (int i = 0; i < kEvents; i += 2) {
            queue.append(servletStart());
            queue.append(servletEnd());
        }
        perMegabyte = kEvents / (static_cast<double>(mallinfo2().uordblks - before) / 1e6);
        while (Event* const event = queue.pop()) delete event;
    }
    state.counters["events_per_MB"] = perMegabyte;
}
BENCHMARK(eventsPerMegabyte)->Iterations(1);

}  // namespace
