// A switch and two clocks that remain of a profiling facility; it only reports its state on
// standard output.
#pragma once

#include <jni.h>

#include <atomic>

class VelTracer {
public:
    VelTracer() = default;
    VelTracer(const char* name, jlong value);  // stores the value only while the mode is on

    static void initialize();
    static void release();
    static void resetCounters();
    static bool setMode(bool on);  // the mode before
    static bool traceOn() { return setMode(true); }
    static bool traceOff() { return setMode(false); }
    static void generateProfileReport() {}

    static jlong getCpuTime();      // us of CPU of the calling thread
    static jlong getElapsedTime();  // us since 1970

    const char* getName() const { return name_; }  // null when made without one
    jlong getValue() const { return value_; }

private:
    const char* name_ = nullptr;  // not owned
    jlong value_ = 0;

    static std::atomic<bool> traceMode_;
    static std::atomic<bool> initialized_;
};
