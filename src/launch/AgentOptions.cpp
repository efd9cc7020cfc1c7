// Sorts the agent's options by who reads them.
#include "launch/AgentOptions.h"

#include <algorithm>

namespace launch {
namespace {

struct IdentityKey {
    std::string_view key;
    std::string AgentOptions::*value;
};

constexpr IdentityKey kIdentityKeys[] = {
    {"home", &AgentOptions::home},
    {"node", &AgentOptions::node},
    {"server", &AgentOptions::server},
    {"profile", &AgentOptions::profile},
};

// Must name every key that com.velora.agent.AgentOptions reads.
constexpr std::string_view kJavaKeys[] = {"ps", "probe", "admin", "sessionids"};

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

void sortIn(AgentOptions& options, std::string_view item) {
    const auto equals = item.find('=');
    const std::string_view key = trimmed(item.substr(0, equals));
    const std::string_view value =
        equals == std::string_view::npos ? std::string_view{} : trimmed(item.substr(equals + 1));
    for (const IdentityKey& identity : kIdentityKeys) {
        if (key == identity.key) {
            options.*identity.value = value;
            return;
        }
    }
    if (key == "debug") {
        options.forCollector = item;
    } else if (std::find(std::begin(kJavaKeys), std::end(kJavaKeys), key) != std::end(kJavaKeys)) {
        if (!options.forJava.empty()) options.forJava += ',';
        options.forJava.append(key).append("=").append(value);
    } else {
        options.unknown.emplace_back(item);
    }
}

}  // namespace

AgentOptions parseAgentOptions(const char* text) {
    AgentOptions options;
    std::string_view rest = text == nullptr ? "" : text;
    while (!rest.empty()) {
        const auto comma = std::min(rest.find(','), rest.size());
        const std::string_view item = trimmed(rest.substr(0, comma));
        if (!item.empty()) sortIn(options, item);
        rest.remove_prefix(std::min(comma + 1, rest.size()));
    }
    return options;
}

std::optional<std::string> javaAgentArguments(const std::vector<std::string>& arguments) {
    constexpr std::string_view kFlag = "-javaagent:";
    for (const std::string& argument : arguments) {
        if (argument.rfind(kFlag, 0) != 0) continue;
        const auto equals = argument.find('=');
        const std::string_view jar =
            std::string_view(argument).substr(0, equals).substr(kFlag.size());
        const std::string_view file = jar.substr(jar.rfind('/') + 1);
        if (file == "velora.jar") {
            return equals == std::string::npos ? std::string() : argument.substr(equals + 1);
        }
    }
    return std::nullopt;
}

}  // namespace launch
