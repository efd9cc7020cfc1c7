// Who this process is to the monitoring: home, node, server and profile, from what the operator
// said or from where the agent lies and what the process runs.
#pragma once

#include <functional>
#include <string>

#include "launch/AgentOptions.h"

namespace launch {

struct Identity {
    std::string home;     // folder of the agent; empty when it cannot be told
    std::string node;     // never empty
    std::string server;   // never empty
    std::string profile;  // may be empty
};

// The world as derive() asks for it; each function answers with an empty text for "not set".
struct Surroundings {
    std::function<std::string(const char*)> systemProperty;
    std::function<std::string(const char*)> environment;
    std::string libraryPath;  // this library's own file
    std::string hostName;
};

// Each value from the first that has one: -Dam.*, the agent's option, the environment variable of
// the same dotted name, then what can be derived. Home: the folder above the library's. Node: the
// host name. Server: see below.
Identity deriveIdentity(const AgentOptions& options, const Surroundings& world);

// A default name for what runs here: the last folder of a servlet container's base, else the simple
// name of the main class or jar, else "appserver". Only letters, digits, '.', '-' and '_' stay as
// they are, because the name becomes part of file names.
std::string defaultServerName(const std::string& catalinaBase, const std::string& javaCommand);

}  // namespace launch
