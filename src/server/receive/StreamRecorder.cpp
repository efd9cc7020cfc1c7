#include "server/receive/StreamRecorder.h"

#include <cstdio>
#include <utility>

namespace server {

RecordedStream::RecordedStream(const std::string& path)
    : path_(path), file_(path, std::ios::binary | std::ios::trunc), failed_(!file_) {
}

void RecordedStream::write(dc2ps::Bytes bytes) {
    if (failed_) return;
    file_.write(reinterpret_cast<const char*>(bytes.data()),
                static_cast<std::streamsize>(bytes.size()));
    file_.flush();
    failed_ = !file_;
    if (failed_) tell();
}

void RecordedStream::tell() const {
    std::fprintf(stderr,
                 "velora-ps: cannot write %s; this connection is not recorded any further\n",
                 path_.c_str());
}

StreamRecorder::StreamRecorder(std::string path)
    : path_(std::move(path)), first_(std::make_unique<RecordedStream>(path_)) {
}

std::unique_ptr<RecordedStream> StreamRecorder::streamOf(std::uint64_t connection) {
    if (connection == 1) return std::move(first_);
    auto stream = std::make_unique<RecordedStream>(path_ + "." + std::to_string(connection));
    if (!stream->sound()) stream->tell();
    return stream;
}

}  // namespace server
