#include "server/receive/StreamRecorder.h"

#include <cstdio>

namespace server {

RecordedStream::RecordedStream(const std::string& path)
    : path_(path), file_(path, std::ios::binary | std::ios::trunc) {
    check();
}

void RecordedStream::write(dc2ps::Bytes bytes) {
    if (failed_) return;
    file_.write(reinterpret_cast<const char*>(bytes.data()),
                static_cast<std::streamsize>(bytes.size()));
    file_.flush();
    check();
}

void RecordedStream::check() {
    if (file_ || failed_) return;
    failed_ = true;
    std::fprintf(stderr,
                 "velora-ps: cannot write %s; this connection is not recorded any further\n",
                 path_.c_str());
}

std::unique_ptr<RecordedStream> StreamRecorder::streamOf(std::uint64_t connection) const {
    return std::make_unique<RecordedStream>(
        connection == 1 ? path_ : path_ + "." + std::to_string(connection));
}

}  // namespace server
