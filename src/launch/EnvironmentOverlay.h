// Environment variables that exist for one scope only, for code that reads its settings with
// getenv.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace launch {

// Lays the given variables over the process's environment. Not by setenv: the VM may run many
// threads by now, and setenv frees the array that another thread's getenv may be reading. Here the
// environment is exchanged as a whole, both arrays stay whole, and what other threads change
// meanwhile survives.
class EnvironmentOverlay {
public:
    explicit EnvironmentOverlay(const std::vector<std::pair<std::string, std::string>>& variables);
    ~EnvironmentOverlay();
    EnvironmentOverlay(const EnvironmentOverlay&) = delete;
    EnvironmentOverlay& operator=(const EnvironmentOverlay&) = delete;

private:
    struct Hidden {
        std::string name;
        std::optional<std::string> value;  // what the process had under this name
    };

    char** before_;
    char** overlaid_;  // never freed: another thread may still walk it; its size is that of one
                       // environment
    std::vector<Hidden> hidden_;
};

}  // namespace launch
