// Asks the admin port of a monitored server: one line goes there, a text comes back.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "server/Options.h"

namespace server {

constexpr std::size_t kMaxAnswer = 64u << 20;  // bytes; the largest heap summary has a few MB
constexpr std::chrono::seconds kAnswerLimit{30};
constexpr std::chrono::seconds kHeapAnswerLimit{600};  // a large heap is walked for minutes

// Writes the answer as a person reads it. False when there is none: wrong then says why.
bool ask(const Options& options, LineSink& out, std::string& wrong);

}  // namespace server
