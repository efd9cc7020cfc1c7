// What the test agent heard, as text lines of "key=value" pairs that Java reads.
#pragma once

#include <string>
#include <vector>

#include "jvmpi/jvmpi.h"

// Remembers an event; call it from the agent's handler.
void logEvent(const JVMPI_Event& event);

// The lines of all events of these two types (with or without the request bit) so far, oldest
// first; forgets them.
std::vector<std::string> takeEvents(jint type, jint orType);
