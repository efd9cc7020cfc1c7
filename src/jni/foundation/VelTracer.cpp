// See VelTracer.h.
#include "foundation/VelTracer.h"

#include <cstdint>
#include <cstdio>

#include "foundation/Console.h"
#include "foundation/Log.h"
#include "foundation/Platform.h"
#include "foundation/ThreadCpuClock.h"

std::atomic<bool> VelTracer::traceMode_{false};
std::atomic<bool> VelTracer::initialized_{false};

VelTracer::VelTracer(const char* name, jlong value)
    : name_(name), value_(traceMode_.load(std::memory_order_relaxed) ? value : 0) {
}

void VelTracer::initialize() {
    VEL_TRACE("initialize()");
    std::fprintf(console::out(), "## Running in default mode ## \n");
    traceMode_ = false;
    initialized_ = true;
}

void VelTracer::release() {
    VEL_TRACE("release()");
    traceMode_ = false;
}

void VelTracer::resetCounters() {
    VEL_TRACE("resetCounters()");
    std::fprintf(console::out(), "## Profile counters reset done");
    std::fflush(console::out());
}

bool VelTracer::setMode(bool on) {
    VEL_TRACE("setMode(bool)");
    const bool before = traceMode_.exchange(on);
    std::fprintf(console::out(), "## Tracer Mode: Default State: %s \n", on ? "true" : "false");
    std::fflush(console::out());
    return before;
}

jlong VelTracer::getCpuTime() {
    return ThreadCpuClock::now() / 1000;
}

jlong VelTracer::getElapsedTime() {
    std::uint32_t sec = 0;
    std::uint32_t usec = 0;
    getCurrentTime(&sec, &usec);
    return static_cast<jlong>(sec) * 1000000 + usec;
}
