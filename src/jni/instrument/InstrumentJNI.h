// The class-load hook: looks at every class as it is defined and rewrites the few class-loader
// classes that the configuration names; once a class-loader class and a proxy class are done it
// turns itself off.
//
// Threads: hooks arrive on several threads at once. The flags and counters are atomics; at worst a
// target is rewritten in two classes, which is harmless.
#pragma once

#include <atomic>
#include <cstdint>

#include "instrument/LoadInjector.h"
#include "jvmpi/jvmpi.h"

// Always leaves new_class_data and new_class_data_len set: to the rewritten bytes, allocated with
// the event's malloc_f, or to the incoming ones. No failure loses a class.
void notifyClassLoadHookEvent(JVMPI_Event* event);

// The VM has finished initialising. Turns the hook off for good when the configuration asks for no
// instrumentation, so that a VM which pays for class-load hooks stops paying.
void notifyJVMInitDone(JVMPI_Event* event);

// When the target has not been handled and the class is the one it names: rewrites the class and
// puts the new bytes into *working, whose old bytes are freed when they were not the event's. False
// when the class is another or had nothing to rewrite. className is not terminated; its length is
// in bytes.
bool instrumentLoader(DefineClassMethod target, const BYTE* className, USHORT classNameLength,
                      ClassData* working, const ConstantPool* pool, const JVMPI_Event* event);

// True for names of the platform and of the collector. The hook does not ask it.
bool classIsExcluded(const char* class_name);

extern std::atomic<bool> instrumentationActive;    // the server's launcher class has been seen
extern std::atomic<bool> instrumentedClassLoader;  // a class-loader target has been rewritten
extern std::atomic<bool> instrumentedProxy;        // a proxy target has been rewritten
extern std::atomic<std::int64_t> classCount;       // classes seen by the hook
extern std::atomic<std::int64_t> totalTime;        // ms spent in the hook
