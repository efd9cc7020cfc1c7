// Takes finished lines.
#pragma once

#include <string_view>

namespace server {

class LineSink {
public:
    virtual ~LineSink() = default;
    virtual void write(std::string_view lines) = 0;
};

}  // namespace server
