// What an event agent's pass costs per event: taken from the queue, encoded, credited, freed; the
// events were made on another thread, as in life. And what the producer's side of it costs.
#include <benchmark/benchmark.h>

#include <cstring>
#include <thread>

#include "event/Events.h"
#include "event/ThreadData.h"
#include "foundation/Globals.h"
#include "foundation/PropertyMgr.h"
#include "jvmpi/Monitor.h"
#include "transport/EventAgent.h"

// Reaches the steps of an agent whose loop does not run.
class EventAgentAccess {
public:
    static void add(EventAgent& agent, ThreadData* thread) { agent.thrList_->append(thread); }
    static int prepare(EventAgent& agent) { return agent.prepare2send(); }
};

namespace {

using adapter::Monitor;

Monitor* of(JVMPI_RawMonitor monitor) {
    return reinterpret_cast<Monitor*>(monitor);
}

// The monitors that a JVM with the adapter gives; the rest of the interface is not needed.
class Monitors {
public:
    Monitors() {
        interface_.RawMonitorCreate = [](char* name) {
            return reinterpret_cast<JVMPI_RawMonitor>(Monitor::create(name));
        };
        interface_.RawMonitorEnter = [](JVMPI_RawMonitor monitor) { of(monitor)->enter(); };
        interface_.RawMonitorExit = [](JVMPI_RawMonitor monitor) { of(monitor)->exit(); };
        interface_.RawMonitorWait = [](JVMPI_RawMonitor monitor, jlong ms) {
            of(monitor)->wait(ms);
        };
        interface_.RawMonitorNotifyAll = [](JVMPI_RawMonitor monitor) { of(monitor)->notifyAll(); };
        interface_.RawMonitorDestroy = [](JVMPI_RawMonitor) {};
        jvmpi.store(&interface_);
        VelLock::populateGlobalLock();
        PropertyMgr::getInstance()->putProperty("internal.probe.event.queue.size.limit", "1000000");
    }

private:
    JVMPI_Interface interface_{};
};

char* text(const char* from) {
    char* const copy = new char[std::strlen(from) + 1];
    return std::strcpy(copy, from);
}

void appendPair(ThreadData& thread) {
    auto* const start = new ServletEvent(START);
    start->request_name = text("OrderServlet");
    start->application_name = text("/shop");
    start->url = text("/shop/order/12345");
    start->userName = text("alice");
    thread.appendEvent(start);
    auto* const end = new ServletEvent(END);
    end->request_name = end->application_name = end->url = end->userName = emptyText();
    thread.appendEvent(end);
}

constexpr int kPairs = 10000;

void BM_DrainPass(benchmark::State& state) {
    static Monitors monitors;
    EventAgent agent(0);
    const auto threads = static_cast<int>(state.range(0));
    std::vector<std::unique_ptr<ThreadData>> records;
    for (int i = 0; i < threads; ++i) {
        records.push_back(std::make_unique<ThreadData>(reinterpret_cast<JNIEnv*>(16L * (i + 1))));
        EventAgentAccess::add(agent, records.back().get());
    }
    for (auto _ : state) {
        state.PauseTiming();
        std::thread([&] {
            for (int i = 0; i < kPairs; ++i) appendPair(*records[i % threads]);
        }).join();
        state.ResumeTiming();
        if (EventAgentAccess::prepare(agent) <= 0) state.SkipWithError("nothing drained");
    }
    state.SetItemsProcessed(state.iterations() * kPairs * 2);
}
BENCHMARK(BM_DrainPass)->Arg(1)->Arg(100)->Unit(benchmark::kMillisecond);

void BM_AppendPair(benchmark::State& state) {
    static Monitors monitors;
    EventAgent agent(0);
    ThreadData record(reinterpret_cast<JNIEnv*>(16L));
    EventAgentAccess::add(agent, &record);
    int queued = 0;
    for (auto _ : state) {
        appendPair(record);
        if (++queued < kPairs) continue;
        state.PauseTiming();
        std::thread([&] { EventAgentAccess::prepare(agent); }).join();
        queued = 0;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * 2);
}
BENCHMARK(BM_AppendPair);

}  // namespace
