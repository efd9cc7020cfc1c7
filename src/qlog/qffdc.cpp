// libqffdc: first-failure data capture behind a plain C interface.
#include "qlog/qffdc.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>

#include "qlog/Capture.h"

#define QFFDC_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

namespace fs = std::filesystem;

// A second file of the same name gets a number behind it.
fs::path freeName(const fs::path& folder, const std::string& file) {
    const std::string name = fs::path(file).filename().string();
    fs::path path = folder / name;
    std::error_code ignored;
    for (int i = 2; i < 1000 && fs::exists(path, ignored); ++i) {
        path = folder / (name + "." + std::to_string(i));
    }
    return path;
}

int copyFiles(const qffdci_request& request, const fs::path& folder) {
    std::ofstream report(folder / "incident.txt");
    report << "process " << ::getpid() << "\nreason  "
           << (request.reason != nullptr ? request.reason : "") << "\n";
    int copied = 0;
    for (const auto& file : qffdc::expandList(request.files != nullptr ? request.files : "")) {
        const fs::path target = freeName(folder, file);
        const std::string problem = qffdc::copyTail(file, target, request.maxFileBytes);
        if (problem.empty()) {
            ++copied;
            report << "copied  " << file << " as " << target.filename().string() << "\n";
        } else {
            report << "missing " << file << ": " << problem << "\n";
        }
    }
    return copied;
}

int capture(const qffdci_request& request, char* folder, size_t room) {
    const fs::path base = request.baseDirectory;
    const fs::path made = qffdc::makeIncidentFolder(base);
    if (made.empty()) return -1;
    const int copied = copyFiles(request, made);
    qffdc::removeOldIncidents(base, static_cast<std::size_t>(std::max(request.maxIncidents, 1)));
    if (folder != nullptr) std::snprintf(folder, room, "%s", made.c_str());
    return copied;
}

}  // namespace

QFFDC_EXPORT int qffdci_capture(const qffdci_request* request, char* folder, size_t room) {
    // One at a time: a second failure in another thread is not the first one. Never freed, for the
    // end of the process.
    static std::mutex& busy = *new std::mutex;
    if (request == nullptr || request->baseDirectory == nullptr || *request->baseDirectory == 0) {
        return -1;
    }
    try {
        const std::unique_lock<std::mutex> one(busy, std::try_to_lock);
        return one ? capture(*request, folder, room) : -1;
    } catch (...) {
        return -1;
    }
}
