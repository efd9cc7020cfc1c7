#include "server/ask/Ask.h"

#include <asio.hpp>

#include "server/ask/Answer.h"

namespace server {

using asio::ip::tcp;

namespace {

// One question and its answer. Each step starts the next; the first failure ends it.
class Call {
public:
    explicit Call(const Question& question)
        : where_(question.host + ":" + std::to_string(question.port)),
          request_(question.text + "\n") {
        resolver_.async_resolve(question.host, std::to_string(question.port),
                                tcp::resolver::numeric_service,
                                [this](const asio::error_code& error, const auto& found) {
                                    if (refused(error)) return;
                                    connect(found);
                                });
    }

    // Empty, or why there is no answer.
    std::string await(std::chrono::seconds limit) {
        io_.run_for(limit);
        if (!io_.stopped())
            return "no answer from " + where_ + " within " + std::to_string(limit.count()) + " s";
        if (!failure_.empty()) return failure_;
        if (answer_.size() >= kMaxAnswer) return "the answer of " + where_ + " is too long";
        return answer_.empty() ? where_ + " closed the connection without an answer" : "";
    }

    const std::string& answer() const { return answer_; }

private:
    void connect(const tcp::resolver::results_type& found) {
        asio::async_connect(socket_, found, [this](const asio::error_code& error, const auto&) {
            if (!refused(error)) send();
        });
    }

    void send() {
        asio::async_write(socket_, asio::buffer(request_),
                          [this](const asio::error_code& error, std::size_t) {
                              if (!lost(error)) receive();
                          });
    }

    void receive() {
        asio::async_read(socket_, asio::dynamic_buffer(answer_, kMaxAnswer),
                         [this](const asio::error_code& error, std::size_t) {
                             if (error != asio::error::eof) lost(error);
                         });
    }

    bool refused(const asio::error_code& error) {
        if (error)
            failure_ = "cannot connect to " + where_ + ": " + error.message() +
                       " (a server listens there only if its agent was given admin=PORT)";
        return bool(error);
    }

    bool lost(const asio::error_code& error) {
        if (error) failure_ = "the connection to " + where_ + " broke: " + error.message();
        return bool(error);
    }

    const std::string where_;
    const std::string request_;
    std::string answer_;
    std::string failure_;
    asio::io_context io_{1};
    tcp::resolver resolver_{io_};
    tcp::socket socket_{io_};
};

}  // namespace

bool ask(const Question& question, LineSink& out, std::string& wrong) {
    Call call(question);
    const auto usual = question.text == "heap" ? kHeapAnswerLimit : kAnswerLimit;
    wrong = call.await(question.limit.value_or(usual));
    return wrong.empty() && showAnswer(question.text, call.answer(), out, wrong);
}

}  // namespace server
