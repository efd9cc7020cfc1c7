#include "server/PublishServer.h"

#include <unistd.h>

#include <asio.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>

#include "server/print/FdSink.h"
#include "server/receive/AgentSession.h"
#include "server/receive/Receiver.h"
#include "server/receive/StreamRecorder.h"

namespace server {

namespace {

std::int64_t wallMillis() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

// Whoever waits for the file must find the whole number in it, so it is put in place complete.
bool writePortFile(const std::string& path, std::uint16_t port) {
    const std::string fresh = path + ".new";
    std::ofstream file(fresh, std::ios::trunc);
    file << port << '\n';
    file.close();
    return file && std::rename(fresh.c_str(), path.c_str()) == 0;
}

int fail(const std::string& what) {
    std::fprintf(stderr, "velora-ps: %s\n", what.c_str());
    return 1;
}

class Server {
public:
    explicit Server(const Options& options)
        : options_(options),
          output_(makeOutput(options.format, sink_)),
          recorder_(options.recordFile),
          services_{*output_, statistics_, wallMillis,
                    options.recordFile.empty() ? nullptr : &recorder_},
          receiver_(
              io_, [this](std::string peer) { return makeSession(std::move(peer)); },
              [this] { ++statistics_.refusedConnections; }),
          signals_(io_, SIGTERM, SIGINT) {}

    int run() {
        if (const std::string wrong = receiver_.listen(options_.host, options_.port);
            !wrong.empty())
            return fail("cannot listen on " + options_.host + ":" + std::to_string(options_.port) +
                        ": " + wrong);
        if (!options_.portFile.empty() && !writePortFile(options_.portFile, receiver_.port()))
            return fail("cannot write " + options_.portFile);
        std::fprintf(stderr, "velora-ps: listening on %s:%u\n", receiver_.address().c_str(),
                     static_cast<unsigned>(receiver_.port()));
        output_->flush();
        signals_.async_wait([this](const asio::error_code& error, int) {
            if (!error) receiver_.stop();
        });
        while (io_.run_one() > 0)
            if (!sink_.failure().empty()) {
                receiver_.stop();
                signals_.cancel();
            }
        output_->summary(statistics_);
        output_->flush();
        if (!options_.portFile.empty()) std::remove(options_.portFile.c_str());
        return sink_.failure().empty() ? 0 : fail("cannot write the output: " + sink_.failure());
    }

private:
    std::unique_ptr<ConnectionHandler> makeSession(std::string peer) {
        return std::make_unique<AgentSession>(services_, ++lastConnection_, std::move(peer));
    }

    const Options& options_;
    FdSink sink_{STDOUT_FILENO};
    std::unique_ptr<Output> output_;
    Statistics statistics_;
    StreamRecorder recorder_;
    SessionServices services_;
    std::uint64_t lastConnection_ = 0;
    asio::io_context io_{1};  // a hint: one thread runs it
    Receiver receiver_;
    asio::signal_set signals_;
};

}  // namespace

int serve(const Options& options) {
    std::signal(SIGPIPE, SIG_IGN);  // a reader that has gone is an error to report, not a death
    return Server(options).run();
}

}  // namespace server
