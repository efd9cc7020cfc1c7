// A sink that keeps what is written to it.
#pragma once

#include <string>
#include <vector>

#include "server/model/LineSink.h"

class Lines : public server::LineSink {
public:
    void write(std::string_view lines) override { text += lines; }

    // The lines that contain the given text.
    std::vector<std::string> with(std::string_view what) const {
        std::vector<std::string> found;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = text.find('\n', at);
            const std::string line = text.substr(at, end - at);
            if (line.find(what) != std::string::npos) found.push_back(line);
            at = end + 1;
        }
        return found;
    }

    std::string text;
};
