// What the operator wrote behind the agent library's name:
// -agentpath:<home>/lib/libvelora_agent.so=key=value,key=value
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace launch {

// Sorted by who reads it. An empty identity value means: not given.
struct AgentOptions {
    std::string home;     // home=     the agent home, when it is not the folder above the library
    std::string node;     // node=     this host's name in the monitoring
    std::string server;   // server=   this process's name in the monitoring
    std::string profile;  // profile=

    std::string forCollector;  // "debug=..." exactly as written
    std::string forJava;       // the pairs for velora.jar, joined by commas

    std::vector<std::string> unknown;  // items that nobody reads, to be reported
};

// Blanks around items, keys and values do not count; of a key given twice the last one holds. Null
// is empty.
AgentOptions parseAgentOptions(const char* text);

// The text behind "-javaagent:<any path>/velora.jar" and its '=' in a process's arguments; nothing
// when there is no such argument. When the Java side has loaded this library, that is where the
// operator's options stand.
std::optional<std::string> javaAgentArguments(const std::vector<std::string>& arguments);

}  // namespace launch
