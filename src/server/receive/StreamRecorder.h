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

private:
    void check();

    std::string path_;
    std::ofstream file_;
    bool failed_ = false;
};

class StreamRecorder {
public:
    explicit StreamRecorder(std::string path) : path_(std::move(path)) {}
    std::unique_ptr<RecordedStream> streamOf(std::uint64_t connection) const;

private:
    std::string path_;
};

}  // namespace server
