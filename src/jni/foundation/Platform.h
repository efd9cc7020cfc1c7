// What the operating system tells: clocks, process identity, sleeping, the process's command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Wall clock (CLOCK_REALTIME).
void getCurrentTime(std::uint32_t* sec, std::uint32_t* usec);
void thread_sleep(int ms);  // a poll without descriptors; 0 or less returns at once
int getProcessId();
int getPlatformId();  // the operating system's code in the init record: 3, Linux on x86-64

// The arguments of this process as the kernel keeps them; empty when they cannot be read.
std::vector<std::string> readCommandLine();
