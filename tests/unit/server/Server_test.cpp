// The program itself: real processes, real sockets, real signals.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "server/print/JsonReader.h"
#include "support/WireWriter.h"

using byhand::At;
using server::JsonObject;

namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class Folder {
public:
    Folder() {
        std::string name = (fs::temp_directory_path() / "velora-ps.XXXXXX").string();
        path = mkdtemp(name.data());
    }
    ~Folder() { fs::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    fs::path path;
};

// velora-ps with its standard output in a file and its standard error in a pipe.
class Program {
public:
    Program(const std::vector<std::string>& arguments, const fs::path& output) : output_(output) {
        std::array<int, 2> errors{};
        EXPECT_EQ(pipe(errors.data()), 0);
        pid_ = fork();
        if (pid_ == 0) {
            const int out = open(output.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
            dup2(out, STDOUT_FILENO);
            dup2(errors[1], STDERR_FILENO);
            close(errors[0]);
            const std::string program = VELORA_HOME_DIR "/bin/velora-ps";
            std::vector<char*> argv = {const_cast<char*>(program.c_str())};
            for (const std::string& each : arguments)
                argv.push_back(const_cast<char*>(each.c_str()));
            argv.push_back(nullptr);
            execv(program.c_str(), argv.data());
            _exit(127);
        }
        close(errors[1]);
        errors_ = errors[0];
    }
    ~Program() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(errors_);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Blocks until the program says where it listens; 0 when it ends before.
    int awaitPort() {
        std::string line;
        for (char c = 0; read(errors_, &c, 1) == 1 && c != '\n';) line += c;
        const std::size_t colon = line.rfind(':');
        if (line.find("listening on") == std::string::npos) {
            said_ = line + "\n";
            return 0;
        }
        return std::stoi(line.substr(colon + 1));
    }

    void signal(int number) const { kill(pid_, number); }

    int awaitEnd() {
        char buffer[512];
        for (ssize_t n = 0; (n = read(errors_, buffer, sizeof buffer)) > 0;)
            said_.append(buffer, static_cast<std::size_t>(n));
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    const std::string& said() const { return said_; }  // on standard error

    std::vector<JsonObject> objects(std::string_view type) const {
        std::istringstream lines(contentOf(output_));
        std::vector<JsonObject> found;
        for (std::string line; std::getline(lines, line);) {
            auto object = JsonObject::parse(line);
            EXPECT_TRUE(object) << line;
            if (object && (*object)["type"] == type) found.push_back(std::move(*object));
        }
        return found;
    }

private:
    fs::path output_;
    pid_t pid_ = -1;
    int errors_ = -1;
    std::string said_;
};

class Client {
public:
    explicit Client(int port) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<std::uint16_t>(port));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    }
    ~Client() { hangUp(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void send(const byhand::Bytes& bytes) const {
        ASSERT_EQ(::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    // Blocks until the server hangs up.
    void awaitClose() const {
        char c = 0;
        EXPECT_LE(recv(fd_, &c, 1, 0), 0);
    }
    // The server has read everything that was sent when this returns: it then hangs up as well.
    void finish() {
        shutdown(fd_, SHUT_WR);
        awaitClose();
        hangUp();
    }
    void hangUp() {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }

private:
    int fd_;
};

byhand::Bytes start(unsigned thread, const std::string& url) {
    return byhand::packet({byhand::servletStart({thread, 1, 1000, 0}, url, "app", url)});
}

byhand::Bytes end(unsigned thread) {
    return byhand::packet({byhand::timed(5, {thread, 1, 3000, 0})});
}

class PublishServer : public testing::Test {
protected:
    std::vector<std::string> arguments(std::vector<std::string> more = {}) const {
        std::vector<std::string> all = {"--listen", "127.0.0.1:0", "--format",
                                        "json",     "--port-file", portFile.string()};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    Folder folder;
    fs::path output = folder.path / "out";
    fs::path portFile = folder.path / "port";
};

TEST_F(PublishServer, TakesManyAgentsAtOnceAndStopsOnSigterm) {
    Program program(arguments(), output);
    const int port = program.awaitPort();
    EXPECT_EQ(contentOf(portFile), std::to_string(port) + "\n");
    std::vector<std::unique_ptr<Client>> agents;
    for (int i = 0; i < 20; ++i) {
        agents.push_back(std::make_unique<Client>(port));
        agents.back()->send(byhand::initPacket("node" + std::to_string(i)));
        agents.back()->send(start(7, "/" + std::to_string(i)));
    }
    // Every agent uses the same thread number; none gets another's request.
    for (const auto& agent : agents) agent->send(end(7));
    for (const auto& agent : agents) agent->finish();
    program.signal(SIGTERM);
    EXPECT_EQ(program.awaitEnd(), 0);
    EXPECT_FALSE(fs::exists(portFile));

    const auto requests = program.objects("request");
    EXPECT_EQ(requests.size(), 20u);
    for (const JsonObject& request : requests) {
        EXPECT_EQ("node" + std::string(request["url"].substr(1)), request["node"]);
        EXPECT_EQ(request["wallMs"], "2.000");
        EXPECT_EQ(request["outcome"], "ok");
    }
    const auto summary = program.objects("summary");
    ASSERT_EQ(summary.size(), 1u);
    EXPECT_EQ(summary[0]["connections"], "20");
    EXPECT_EQ(summary[0]["requestsOk"], "20");
    EXPECT_EQ(summary[0]["packets"], "60");
}

// Everything is there before the server may run again, and the signal too: it then has connections
// to accept and bytes to read at the moment when it is told to stop.
TEST_F(PublishServer, TakesWhatHasArrivedBeforeItStops) {
    Program program(arguments(), output);
    const int port = program.awaitPort();
    program.signal(SIGSTOP);
    std::vector<std::unique_ptr<Client>> agents;
    for (int i = 0; i < 30; ++i) {
        agents.push_back(std::make_unique<Client>(port));
        agents.back()->send(byhand::joined({byhand::initPacket(), start(1, "/done"), end(1)}));
    }
    agents.front()->send(start(2, "/open"));
    program.signal(SIGINT);
    program.signal(SIGCONT);
    EXPECT_EQ(program.awaitEnd(), 0);
    const auto requests = program.objects("request");
    ASSERT_EQ(requests.size(), 31u);
    const auto open = std::find_if(requests.begin(), requests.end(),
                                   [](const auto& each) { return each["url"] == "/open"; });
    ASSERT_NE(open, requests.end());
    EXPECT_EQ((*open)["why"], "disconnected");
    EXPECT_EQ(program.objects("agent").back()["reason"], "the server stops");
}

TEST_F(PublishServer, GoesOnWithOpenWorkOverTheNextConnection) {
    Program program(arguments(), output);
    const int port = program.awaitPort();
    for (const auto& records : {start(1, "/over-two"), end(1), start(2, "/left")}) {
        Client agent(port);
        agent.send(byhand::joined({byhand::initPacket(), records}));
        agent.finish();
    }
    program.signal(SIGTERM);
    EXPECT_EQ(program.awaitEnd(), 0);
    const auto requests = program.objects("request");
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0]["outcome"], "ok");
    EXPECT_EQ(requests[0]["connection"], "2");
    EXPECT_EQ(requests[1]["why"], "disconnected") << "what nobody has gone on with";
    const auto agents = program.objects("agent");
    EXPECT_EQ(std::count_if(agents.begin(), agents.end(),
                            [](const auto& each) { return each["end"] == "orderly"; }),
              2);
    EXPECT_EQ(agents.back()["end"], "cut");
}

TEST_F(PublishServer, ClosesOnlyTheConnectionThatSendsGarbage) {
    Program program(arguments(), output);
    const int port = program.awaitPort();
    Client sound(port), rude(port), late(port);
    sound.send(byhand::initPacket());
    sound.send(start(1, "/sound"));
    rude.send(byhand::initPacket("rude"));
    rude.send(byhand::hex("00 00000001 7F7F EE"));
    rude.awaitClose();
    late.send(byhand::hex("16 03 01"));
    late.awaitClose();
    sound.send(end(1));
    sound.finish();
    program.signal(SIGTERM);
    EXPECT_EQ(program.awaitEnd(), 0);
    const auto garbage = program.objects("garbage");
    ASSERT_EQ(garbage.size(), 2u);
    EXPECT_EQ(garbage[0]["node"], "rude");
    EXPECT_EQ(garbage[0]["reason"], "the unknown record type 0xEE");
    EXPECT_EQ(garbage[0]["offset"], std::to_string(byhand::initPacket("rude").size() + 7));
    EXPECT_EQ(garbage[1]["reason"], "a packet that begins with 0x16");
    ASSERT_EQ(program.objects("request").size(), 1u);
    EXPECT_EQ(program.objects("request")[0]["outcome"], "ok");
}

TEST_F(PublishServer, SurvivesConnectionsThatAreReset) {
    Program program(arguments(), output);
    const int port = program.awaitPort();
    for (int i = 0; i < 50; ++i) {
        Client agent(port);
        agent.send(byhand::hex("00 0000"));
    }
    Client agent(port);
    agent.send(byhand::initPacket());
    agent.finish();
    program.signal(SIGTERM);
    EXPECT_EQ(program.awaitEnd(), 0);
    EXPECT_EQ(program.objects("summary").size(), 1u);
}

TEST_F(PublishServer, RecordsStreamsThatCanBeDumped) {
    const fs::path record = folder.path / "stream";
    const byhand::Bytes first = byhand::joined({byhand::initPacket("a"), start(1, "/x"), end(1)});
    const byhand::Bytes second = byhand::joined({byhand::initPacket("b"), byhand::hex("EE")});
    {
        Program program(arguments({"--record", record.string()}), output);
        const int port = program.awaitPort();
        for (const byhand::Bytes& stream : {first, second}) {
            Client agent(port);
            agent.send(stream);
            agent.finish();
        }
        program.signal(SIGTERM);
        EXPECT_EQ(program.awaitEnd(), 0);
    }
    const auto bytes = [](const byhand::Bytes& stream) {
        return std::string(stream.begin(), stream.end());
    };
    EXPECT_EQ(contentOf(record), bytes(first));
    EXPECT_EQ(contentOf(record.string() + ".2"), bytes(second));

    Program sound({"--dump", record.string()}, output);
    EXPECT_EQ(sound.awaitEnd(), 0) << sound.said();
    const std::string dumped = contentOf(output);
    EXPECT_NE(dumped.find("0 INIT version=2000"), std::string::npos);
    EXPECT_NE(dumped.find("SERVLET_REQUEST_START thread=1 depth=1"), std::string::npos);

    Program damaged({"--dump", record.string() + ".2"}, output);
    EXPECT_EQ(damaged.awaitEnd(), 1);
    EXPECT_EQ(damaged.said(), "velora-ps: garbage at byte " +
                                  std::to_string(byhand::initPacket("b").size()) +
                                  ": a packet that begins with 0xEE\n");

    fs::resize_file(record, first.size() - 1);
    Program cut({"--dump", record.string()}, output);
    EXPECT_EQ(cut.awaitEnd(), 1);
    EXPECT_EQ(cut.said(),
              "velora-ps: the stream ends in the middle of a packet; decoded up to byte " +
                  std::to_string(first.size() - 25) + "\n");
}

TEST_F(PublishServer, ShowsHeapSummaries) {
    const fs::path summary = folder.path / "heap";
    std::ofstream(summary) << "8,1\nC,8,100.0,1,100.0\nprimitive[],0,0.0,0,0.0\n";
    Program cut({"--heap", summary.string()}, output);
    EXPECT_EQ(cut.awaitEnd(), 1);
    EXPECT_EQ(cut.said().rfind("velora-ps: the heap summary is cut off", 0), 0u) << cut.said();
    EXPECT_EQ(contentOf(output), "");
    std::ofstream(summary, std::ios::app) << "object[],0,0.0,0,0.0\n";
    Program whole({"--heap", summary.string()}, output);
    EXPECT_EQ(whole.awaitEnd(), 0) << whole.said();
    EXPECT_NE(contentOf(output).find("8.0  C\n"), std::string::npos);
}

TEST_F(PublishServer, SaysWhyItCannotListen) {
    Program first(arguments(), output);
    const std::string taken = "127.0.0.1:" + std::to_string(first.awaitPort());
    Program second({"--listen", taken}, folder.path / "out2");
    EXPECT_EQ(second.awaitEnd(), 1);
    EXPECT_EQ(second.said(), "velora-ps: cannot listen on " + taken + ": Address already in use\n");
    first.signal(SIGTERM);
    EXPECT_EQ(first.awaitEnd(), 0);
}

TEST_F(PublishServer, SaysWhenItListensBeyondThisHost) {
    Program program({"--listen", "0.0.0.0:0"}, output);
    EXPECT_NE(program.awaitPort(), 0);
    program.signal(SIGTERM);
    EXPECT_EQ(program.awaitEnd(), 0);
    EXPECT_NE(program.said().find("warning: whoever reaches 0.0.0.0 can send records"),
              std::string::npos);
}

TEST_F(PublishServer, FailsWhenItCannotDoWhatItWasAskedFor) {
    const fs::path lines = folder.path / "lines";
    std::ofstream(lines) << "no JSON\n";
    const fs::path object = folder.path / "object";
    std::ofstream(object) << "{\"type\":\"x\"}\n";
    const std::string nowhere = folder.path / "no/such/folder";
    const std::tuple<std::vector<std::string>, fs::path, std::string> cases[] = {
        {{"--help"}, "/dev/full", "cannot write the output: No space left on device"},
        {{"--show", object.string()}, "/dev/full", "cannot write the output: No space left"},
        {{"--dump", object.string()}, output, "garbage at byte 0"},
        {{"--show", lines.string()}, output, "there is no line of JSON in it"},
        {arguments({"--record", nowhere}), output, "cannot write " + nowhere}};
    for (const auto& [options, to, said] : cases) {
        Program program(options, to);
        EXPECT_EQ(program.awaitEnd(), 1) << said;
        EXPECT_EQ(program.said().rfind("velora-ps: " + said, 0), 0u) << program.said();
    }
}

TEST_F(PublishServer, EndsWithAnErrorWhenItsOutputCannotBeWritten) {
    Program program(arguments(), "/dev/full");
    Client agent(program.awaitPort());
    agent.send(byhand::initPacket());
    EXPECT_EQ(program.awaitEnd(), 1);
    EXPECT_EQ(program.said(), "velora-ps: cannot write the output: No space left on device\n");
}

TEST_F(PublishServer, RefusesUnknownOptionsWithTheUsage) {
    Program program({"--frob"}, output);
    EXPECT_EQ(program.awaitEnd(), 2);
    EXPECT_EQ(program.said().rfind("velora-ps: unknown option --frob\n\nUsage: velora-ps", 0), 0u);
}

}  // namespace
