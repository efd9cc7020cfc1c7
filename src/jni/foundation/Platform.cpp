// See Platform.h.
#include "foundation/Platform.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "foundation/ProcStat.h"

namespace {

constexpr int kLinuxX86_64 = 3;

}  // namespace

void getCurrentTime(std::uint32_t* sec, std::uint32_t* usec) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *sec = static_cast<std::uint32_t>(now.tv_sec);
    *usec = static_cast<std::uint32_t>(now.tv_nsec / 1000);
}

void thread_sleep(int ms) {
    timespec start{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (int left = ms; left > 0;) {
        if (poll(nullptr, 0, left) == 0 || errno != EINTR) return;
        timespec now{};  // a signal came in between: sleep what is left
        clock_gettime(CLOCK_MONOTONIC, &now);
        const long long sleptMs =
            (now.tv_sec - start.tv_sec) * 1000LL + (now.tv_nsec - start.tv_nsec) / 1'000'000;
        left = sleptMs >= ms ? 0 : static_cast<int>(ms - sleptMs);
    }
}

int getProcessId() {
    return static_cast<int>(getpid());
}

int getPlatformId() {
    return kLinuxX86_64;
}

std::vector<std::string> readCommandLine() {
    const std::string all = readProcFile("/proc/self/cmdline");
    std::vector<std::string> arguments;
    for (std::size_t at = 0; at < all.size();) {
        const std::size_t end = all.find('\0', at);  // npos: an unfinished last argument
        arguments.push_back(all.substr(at, end == std::string::npos ? end : end - at));
        at = end == std::string::npos ? all.size() : end + 1;
    }
    return arguments;
}
