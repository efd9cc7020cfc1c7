// What libqlog calls in its companion libqffdc: copying files away at the first failure. Plain C,
// because each of the libraries carries a C++ runtime of its own.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct qffdci_request {
    const char* baseDirectory;  // made when missing
    const char* files;          // paths and patterns, separated by blanks or commas; may be null
    const char* reason;         // goes to the incident's report; may be null
    int maxIncidents;           // folders kept below the base directory, this one included
    long maxFileBytes;          // of a longer file only the end is copied
};

// Makes a new folder below the base directory, copies the files and writes "incident.txt" there,
// removes the oldest incidents beyond the limit. Returns the number of files copied and stores the
// folder's path; -1 when no folder could be made or another capture is under way. Never throws. Any
// thread.
int qffdci_capture(const struct qffdci_request* request, char* folder, size_t room);

#ifdef __cplusplus
}
#endif
