// Writes lines to a file descriptor.
#pragma once

#include <string>
#include <string_view>

#include "server/model/LineSink.h"

namespace server {

class FdSink final : public LineSink {
public:
    explicit FdSink(int fd) : fd_(fd) {}

    // Blocks while the reader at the other end is slow: nothing is lost, the agents wait. After a
    // failure everything is thrown away; failure() says why.
    void write(std::string_view lines) override;
    const std::string& failure() const { return failure_; }  // empty while all is well

private:
    int fd_;  // not owned
    std::string failure_;
};

}  // namespace server
