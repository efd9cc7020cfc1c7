// Saves the bytes of every connection as they arrived, each in a file of its own, for --dump.
//
// The first connection goes to the path given, the n-th to that path with ".n" behind it.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "dc2ps/Records.h"

namespace server {

class RecordedStream {
public:
    explicit RecordedStream(const std::string& path);
    // Flushed at once: the file is read while the server runs, or after it was killed. A file that
    // cannot be written is reported once on standard error; the server goes on.
    void write(dc2ps::Bytes bytes);
    bool sound() const { return !failed_; }
    void tell() const;  // that it is not

private:
    std::string path_;
    std::ofstream file_;
    bool failed_ = false;
};

class StreamRecorder {
public:
    // Opens the first file at once, so that a path that cannot be written is noticed.
    explicit StreamRecorder(std::string path);
    bool sound() const { return first_->sound(); }
    std::unique_ptr<RecordedStream> streamOf(std::uint64_t connection);

private:
    std::string path_;
    std::unique_ptr<RecordedStream> first_;  // until the first connection comes
};

}  // namespace server
