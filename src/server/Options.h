// What the command line of velora-ps asks for.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "server/print/Format.h"

namespace server {

struct Options {
    static constexpr std::uint16_t kDefaultPort = 9520;

    enum class Task : std::uint8_t { serve, dump, show, heap, ask, help, version };

    Task task = Task::serve;
    std::string host = "127.0.0.1";  // where to listen; ask: whom
    std::uint16_t port = kDefaultPort;
    std::string portFile;             // empty: none
    std::string recordFile;           // empty: nothing is recorded
    std::size_t memory = 512u << 20;  // bytes for all connections together
    std::string input;                // dump, show, heap: a path, "-" for standard input
    std::string question;             // ask: a command and its operands
    std::optional<std::chrono::seconds> answerLimit;  // ask: none uses the command's own
    Format format = Format::table;
};

// Reads the arguments after the program's name. Empty on success, else what is wrong with them.
[[nodiscard]] std::string parseOptions(int count, const char* const* arguments, Options& options);

extern const char* const kUsage;

}  // namespace server
