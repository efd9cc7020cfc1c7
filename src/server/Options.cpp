#include "server/Options.h"

#include <charconv>
#include <optional>
#include <string_view>

namespace server {

const char* const kUsage =
    "Usage: velora-ps [options]               receive from data collectors and show what they "
    "send\n"
    "       velora-ps --dump FILE             print every record of a recorded stream\n"
    "       velora-ps --show FILE             print JSON lines of an earlier run as a table\n"
    "       velora-ps --heap FILE             print a heap summary as a table, largest first\n"
    "       velora-ps --ask HOST:PORT COMMAND ask the admin port of a monitored server\n"
    "\n"
    "  --listen HOST:PORT   where to listen (default 127.0.0.1:9520; port 0: any free port)\n"
    "  --port-file FILE     write the port number there once listening; removed at the end\n"
    "  --format FORMAT      table (default) or json: one object per line\n"
    "  --record FILE        save received bytes: first connection in FILE, others in FILE.2, ...\n"
    "  --memory MB          at most for all agents together (default 512)\n"
    "  --timeout SECONDS    how long to wait for an answer (default 30, for heap 600)\n"
    "  --help, --version    print this text, or the version\n"
    "\n"
    "COMMAND is heap, threads, stack ID (the THREAD column) or status.\n"
    "FILE may be - for standard input with --dump, --show and --heap. SIGTERM and SIGINT end the\n"
    "server.\n";

namespace {

template <class Number>
bool parseNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && !text.empty();
}

// "host:port", or "[address]:port" for an address that has colons itself.
bool parseAddress(std::string_view text, Options& options) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    std::string_view host = text.substr(0, colon);
    const bool bracketed = host.front() == '[' && host.back() == ']';
    if (bracketed) host = host.substr(1, host.size() - 2);
    if (host.find_first_of(bracketed ? "[]" : "[]:") != std::string_view::npos) return false;
    options.host = host;
    return !host.empty() && parseNumber(text.substr(colon + 1), options.port);
}

bool parseLimit(std::string_view text, Options& options) {
    constexpr unsigned kLongest = 86400;  // s
    unsigned seconds = 0;
    if (!parseNumber(text, seconds) || seconds == 0 || seconds > kLongest) return false;
    options.answerLimit = std::chrono::seconds(seconds);
    return true;
}

bool parseMemory(std::string_view text, Options& options) {
    constexpr std::size_t kLeast = 16, kMost = 1u << 20;  // MB
    std::size_t megabytes = 0;
    if (!parseNumber(text, megabytes) || megabytes < kLeast || megabytes > kMost) return false;
    options.memory = megabytes << 20;
    return true;
}

bool parseFormat(std::string_view text, Options& options) {
    if (text != "table" && text != "json") return false;
    options.format = text == "json" ? Format::json : Format::table;
    return true;
}

// The task that an option with a value asks for.
std::optional<Options::Task> taskOf(std::string_view name) {
    if (name == "--dump") return Options::Task::dump;
    if (name == "--show") return Options::Task::show;
    if (name == "--heap") return Options::Task::heap;
    if (name == "--ask") return Options::Task::ask;
    return std::nullopt;
}

bool takesValue(std::string_view name) {
    return taskOf(name) || name == "--listen" || name == "--port-file" || name == "--format" ||
           name == "--record" || name == "--memory" || name == "--timeout";
}

std::string applyValue(std::string_view name, std::string_view value, Options& options) {
    const auto refused = [&](const char* expected) {
        return std::string(name) + " " + std::string(value) + ": " + expected;
    };
    if (const auto task = taskOf(name)) {
        if (options.task != Options::Task::serve)
            return "only one of --dump, --show, --heap and --ask at a time";
        options.task = *task;
    }
    if (name == "--listen" || name == "--ask")
        return parseAddress(value, options) ? "" : refused("HOST:PORT expected");
    if (name == "--format")
        return parseFormat(value, options) ? "" : refused("table or json expected");
    if (name == "--memory")
        return parseMemory(value, options) ? "" : refused("16 to 1048576 MB expected");
    if (name == "--timeout")
        return parseLimit(value, options) ? "" : refused("1 to 86400 seconds expected");
    if (value.empty()) return std::string(name) + " needs a file name";
    if (name == "--port-file") options.portFile = value;
    if (name == "--record") options.recordFile = value;
    if (taskOf(name)) options.input = value;
    return {};
}

}  // namespace

std::string parseOptions(int count, const char* const* arguments, Options& options) {
    for (int i = 0; i < count; ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            options.task = Options::Task::help;
            return {};
        }
        if (argument == "--version") {
            options.task = Options::Task::version;
            return {};
        }
        if (options.task == Options::Task::ask && !argument.starts_with('-')) {
            if (!options.question.empty()) options.question += ' ';
            options.question += argument;
            continue;
        }
        const std::size_t equals = argument.find('=');  // --name=value, or --name value
        const std::string_view name = argument.substr(0, equals);
        if (!takesValue(name)) return "unknown option " + std::string(argument);
        std::string_view value;
        if (equals != std::string_view::npos) {
            value = argument.substr(equals + 1);
        } else {
            if (i + 1 == count) return std::string(name) + " needs a value";
            value = arguments[++i];
        }
        if (std::string wrong = applyValue(name, value, options); !wrong.empty()) return wrong;
    }
    if (options.task == Options::Task::ask && options.question.empty())
        return "--ask needs a command: heap, threads, stack ID or status";
    return {};
}

}  // namespace server
