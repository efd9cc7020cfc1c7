#include "server/print/Dump.h"

#include <vector>

#include "dc2ps/RecordPrinter.h"
#include "dc2ps/StreamDecoder.h"
#include "dc2ps/Text.h"

namespace server {

namespace {

constexpr std::size_t kReadBytes = 256u << 10;
constexpr std::size_t kMaxBuffer = 1u << 20;

class DumpingSink final : public dc2ps::RecordSink {
public:
    explicit DumpingSink(LineSink& out) : out_(out) {}

    void onRecord(std::uint64_t offset, const dc2ps::Record& record) override {
        dc2ps::appendNumber(buffer_, offset);
        buffer_ += ' ';
        dc2ps::appendRecord(buffer_, record);
        buffer_ += '\n';
        if (buffer_.size() >= kMaxBuffer) flush();
    }

    void flush() {
        out_.write(buffer_);
        buffer_.clear();
    }

private:
    LineSink& out_;
    std::string buffer_;
};

}  // namespace

bool dump(std::istream& in, LineSink& out, std::string& wrong) {
    using enum dc2ps::FeedResult::Status;
    DumpingSink sink(out);
    dc2ps::StreamDecoder decoder;
    dc2ps::FeedResult result;
    std::vector<char> chunk(kReadBytes);
    do {
        in.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(chunk.data());
        result = decoder.feed({bytes, static_cast<std::size_t>(in.gcount())}, sink);
    } while (in && result.status != error);
    sink.flush();
    if (result.status == error)
        wrong = "garbage at byte " + std::to_string(result.offset) + ": " + result.reason;
    if (result.status == needMore)
        wrong = "the stream ends in the middle of a packet; decoded up to byte " +
                std::to_string(result.offset);
    if (in.bad()) wrong = "the file cannot be read to its end";
    return wrong.empty();
}

}  // namespace server
