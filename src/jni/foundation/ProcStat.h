// Statistics of this process and this machine, as the kernel tells them under /proc.
//
// Threads: any; nothing is kept. Failure: false or 0, and the outputs keep what they had.
// The parse functions take the kernel's text, so that they can be shown damaged ones.
#pragma once

#include <string>
#include <string_view>

// The whole file; what could be read when it cannot be read to its end, empty when not at all.
std::string readProcFile(const char* path);

int cpuCount();  // processors of the machine that are online, at least 1

bool processCpuTimes(long long* userMs, long long* systemMs);  // since the process started
bool parseProcessCpuTimes(std::string_view stat, long ticksPerSecond, long long* userMs,
                          long long* systemMs);

// Since boot, in clock ticks over all processors: user, nice, system, idle, iowait, irq, softirq,
// steal. Old kernels tell fewer; the missing ones are 0.
bool systemCpuTimes(unsigned long long out[8]);
bool parseSystemCpuTimes(std::string_view stat, unsigned long long out[8]);

long processResidentBytes();  // 0 when unknown
long parseResidentBytes(std::string_view statm, long pageSize);
