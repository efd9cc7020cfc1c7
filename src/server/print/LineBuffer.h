// What a format has written and not handed over yet. Much may be written before the next flush, so
// the buffer is kept small here.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "server/model/LineSink.h"

namespace server {

class LineBuffer {
public:
    explicit LineBuffer(LineSink& sink) : sink_(sink) {}

    std::string text;  // appended to by the format

    // To be called behind each line.
    void lineEnds() {
        if (text.size() >= kMax) handOver();
    }
    // The bytes that were handed over since the last flush.
    std::size_t flush() {
        handOver();
        return std::exchange(handedOver_, 0);
    }

private:
    static constexpr std::size_t kMax = 256u << 10;

    void handOver() {
        if (text.empty()) return;
        sink_.write(text);
        handedOver_ += text.size();
        text.clear();
        if (text.capacity() > 4 * kMax) text.shrink_to_fit();
    }

    LineSink& sink_;
    std::size_t handedOver_ = 0;
};

}  // namespace server
