// velora-ps, the Publish Server. docs/PUBLISH_SERVER.md tells what it does.
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>

#include "server/Options.h"
#include "server/PublishServer.h"
#include "server/ask/Ask.h"
#include "server/ask/HeapTable.h"
#include "server/print/Dump.h"
#include "server/print/FdSink.h"
#include "server/print/Show.h"

namespace {

constexpr int kBadUsage = 2;

int fail(const std::string& what) {
    std::fprintf(stderr, "velora-ps: %s\n", what.c_str());
    return 1;
}

// Calls read(stream) on the file that the options name.
template <class Read>
int withInput(const server::Options& options, Read read) {
    if (options.input == "-") return read(std::cin);
    std::ifstream file(options.input, std::ios::binary);
    if (!file) return fail("cannot open " + options.input);
    return read(file);
}

// A task that has written all it has to say. The exit status.
int finish(const server::FdSink& out, bool done, const std::string& wrong) {
    if (!out.failure().empty()) return fail("cannot write the output: " + out.failure());
    return done ? 0 : fail(wrong);
}

int run(const server::Options& options) {
    using Task = server::Options::Task;
    server::FdSink out(STDOUT_FILENO);
    std::string wrong;
    const auto read = [&](auto task) {
        return withInput(
            options, [&](std::istream& in) { return finish(out, task(in, out, wrong), wrong); });
    };
    switch (options.task) {
        case Task::help:
            out.write(server::kUsage);
            return finish(out, true, {});
        case Task::version:
            out.write("velora-ps " VELORA_VERSION "\n");
            return finish(out, true, {});
        case Task::dump:
            return read(server::dump);
        case Task::show:
            return read(server::show);
        case Task::heap:
            return read(server::showHeap);
        case Task::ask: {
            const bool done = server::ask(
                {options.host, options.port, options.question, options.answerLimit}, out, wrong);
            return finish(out, done, wrong);
        }
        case Task::serve:
            break;
    }
    return server::serve(options);
}

}  // namespace

int main(int argc, char** argv) {
    server::Options options;
    if (const std::string wrong = server::parseOptions(argc - 1, argv + 1, options);
        !wrong.empty()) {
        std::fprintf(stderr, "velora-ps: %s\n\n%s", wrong.c_str(), server::kUsage);
        return kBadUsage;
    }
    try {
        return run(options);
    } catch (const std::exception& e) {
        return fail(e.what());
    }
}
