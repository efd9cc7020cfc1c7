// The collector's own log: one file per process under the home's logs folder, written line by line,
// and texts looked up by key in the home's LogMessages file. Java code writes into it through
// ProbeLogger.
//
// Threads: set up once while the library loads; every writer afterwards from any thread, one write
// per line. Failure: logging never fails its caller; without a file the lines go to standard
// output.
#pragma once

#include <atomic>
#include <cstdio>

class ProbeLog {
public:
    enum Level { kError = -2, kWarning = -1, kInfo = 0, kDebug = 1, kTrace = 2 };

    static void initialize();
    static void destroy();

    // The text as given, without a look-up, at one fixed level each; null writes nothing.
    static void _log(const char* text) { _logInternal(kInfo, text); }
    static void _logInfo(const char* text) { _logInternal(kInfo, text); }
    static void _logDebug(const char* text) { _logInternal(kDebug, text); }
    static void _logWarn(const char* text) { _logInternal(kWarning, text); }
    static void _logError(const char* text) { _logInternal(kError, text); }

    // The LogMessages text of that key, filled with the arguments. Dropped when the key is unknown.
    static void _logV(int level, const char* key, ...);

    // Levels -2 to 2; lines of a greater level are dropped from now on. Others are refused and
    // logged.
    static void setLogLevel(int level);
    static int getLogLevel() { return logLevel_.load(std::memory_order_relaxed); }

    // Null until a file has been opened. Valid until destroy().
    static const char* getLogFileName() { return logFileName_; }

private:
    struct Entry {
        char* key;     // owned
        char* format;  // owned; null when the line had no "="
    };

    static void loadMessages(FILE* file);
    static const char* findFormat(const char* key);
    static void _logInternal(int level, const char* text);

    static std::atomic<int> logLevel_;  // relaxed: a line more or less around a change
    static std::atomic<FILE*> fplog_;
    static char* logFileName_;  // owned
    static Entry* logMsg_;      // owned, numLogMsg_ entries
    static int numLogMsg_;
    static bool initialized_;
};
