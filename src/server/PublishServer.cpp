#include "server/PublishServer.h"

#include <unistd.h>

#include <asio.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>

#include "server/model/Fanout.h"
#include "server/print/QueuedSink.h"
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

bool isLoopback(const asio::ip::address& address) {
    return address.is_loopback() || (address.is_v6() && address.to_v6().is_v4_mapped() &&
                                     address.to_v6().to_bytes()[12] == 127);
}

// From the signal on: for what has arrived, and for all of it to be written.
constexpr std::chrono::milliseconds kTakeLimit{400};
constexpr std::chrono::milliseconds kOutputLimit{700};

class Server {
public:
    explicit Server(const Options& options)
        : options_(options),
          sink_(STDOUT_FILENO, [this] { asio::post(io_, [this] { sinkChanged(); }); }),
          printed_(makeOutput(options.format, sink_)),
          services_{output_, statistics_, wallMillis, nullptr},
          receiver_(
              io_,
              {[this](std::string peer) { return makeSession(std::move(peer)); },
               [this] { ++statistics_.refusedConnections; }, [this] { return sink_.crowded(); }},
              limitsOf(options)),
          signals_(io_, SIGTERM, SIGINT) {
        output_.add(*printed_);
    }

    int run() {
        if (const std::string wrong = start(); !wrong.empty()) return fail(wrong);
        signals_.async_wait([this](const asio::error_code& error, int) {
            if (!error) stop();
        });
        io_.run();
        output_.summary(statistics_);
        output_.flush();
        const std::uint64_t lost = sink_.finish();
        if (!options_.portFile.empty()) std::remove(options_.portFile.c_str());
        if (!sink_.failure().empty()) return fail("cannot write the output: " + sink_.failure());
        if (lost > 0)
            return fail("nobody has read the output: " + std::to_string(lost) + " lines are lost");
        return 0;
    }

private:
    static ReceiveLimits limitsOf(const Options& options) {
        ReceiveLimits limits;
        limits.memory = options.memory;
        return limits;
    }

    // Empty on success, else what went wrong.
    std::string start() {
        if (!options_.recordFile.empty()) {
            recorder_.emplace(options_.recordFile);
            if (!recorder_->sound()) return "cannot write " + options_.recordFile;
            services_.recorder = &*recorder_;
        }
        if (const std::string wrong = receiver_.listen(options_.host, options_.port);
            !wrong.empty())
            return "cannot listen on " + options_.host + ":" + std::to_string(options_.port) +
                   ": " + wrong;
        if (!options_.portFile.empty() && !writePortFile(options_.portFile, receiver_.port()))
            return "cannot write " + options_.portFile;
        const std::string address = receiver_.address().to_string();
        std::fprintf(stderr, "velora-ps: listening on %s:%u\n", address.c_str(),
                     static_cast<unsigned>(receiver_.port()));
        if (!isLoopback(receiver_.address()))
            std::fprintf(stderr,
                         "velora-ps: warning: whoever reaches %s can send records: nothing is "
                         "authenticated or encrypted\n",
                         address.c_str());
        output_.flush();
        return {};
    }

    void stop() {
        signals_.cancel();
        const auto now = QueuedSink::Clock::now();
        sink_.finishBy(now + kOutputLimit);
        receiver_.stop(now + kTakeLimit);
    }

    void sinkChanged() { sink_.failure().empty() ? receiver_.resume() : stop(); }

    std::unique_ptr<ConnectionHandler> makeSession(std::string peer) {
        return std::make_unique<AgentSession>(services_, ++lastConnection_, std::move(peer));
    }

    const Options& options_;
    asio::io_context io_{1};  // a hint: one thread runs it
    QueuedSink sink_;
    std::unique_ptr<Output> printed_;
    Fanout output_;
    Statistics statistics_;
    std::optional<StreamRecorder> recorder_;
    SessionServices services_;
    std::uint64_t lastConnection_ = 0;
    Receiver receiver_;
    asio::signal_set signals_;
};

}  // namespace

int serve(const Options& options) {
    std::signal(SIGPIPE, SIG_IGN);  // a reader that has gone is an error to report, not a death
    return Server(options).run();
}

}  // namespace server
