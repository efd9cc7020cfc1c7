// Asks the admin port of a monitored server: one line goes there, a text comes back.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "server/model/LineSink.h"

namespace server {

constexpr std::size_t kMaxAnswer = 16u << 20;  // bytes; the largest heap summary has a few MB
constexpr std::chrono::seconds kAnswerLimit{30};
constexpr std::chrono::seconds kHeapAnswerLimit{600};  // a large heap is walked for minutes

struct Question {
    std::string host;
    std::uint16_t port = 0;
    std::string text;                           // a command and its operands
    std::optional<std::chrono::seconds> limit;  // none: the command's own
};

// Writes the answer as a person reads it. False when there is none: wrong then says why.
bool ask(const Question& question, LineSink& out, std::string& wrong);

}  // namespace server
