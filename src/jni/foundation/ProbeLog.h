// The collector's own log: one file per process under the home's logs folder, written line by line,
// and texts looked up by key in the home's LogMessages file. Java code writes into it through
// ProbeLogger.
//
// LogMessages is edited by operators and translators, so its formats are not trusted:
// formatSafely() fills them from arguments that carry their types, whatever the format asks for.
//
// A record is one line: control characters inside a text are written as \n or \xHH.
//
// Threads: initialize() while the library loads, destroy() when nobody logs any more; in between
// every writer from any thread, one write per line. Failure: logging never fails its caller;
// without a file the lines go to standard output.
#pragma once

#include <atomic>
#include <cstdio>
#include <initializer_list>

#include "foundation/SafeFormat.h"

class ProbeLog {
public:
    enum Level { kError = -2, kWarning = -1, kInfo = 0, kDebug = 1, kTrace = 2 };

    static void initialize();  // once; later calls do nothing
    static void destroy();

    // The text as given, without a look-up, at one fixed level each; null writes nothing.
    static void _log(const char* text) { _logInternal(kInfo, text); }
    static void _logInfo(const char* text) { _logInternal(kInfo, text); }
    static void _logDebug(const char* text) { _logInternal(kDebug, text); }
    static void _logWarn(const char* text) { _logInternal(kWarning, text); }
    static void _logError(const char* text) { _logInternal(kError, text); }
    static void writeText(int level, const char* text) { _logInternal(level, text); }

    // The LogMessages text of exactly that key, filled with the arguments. Dropped when the key is
    // unknown or has no text.
    template <typename... Args>
    static void _logV(int level, const char* key, Args... args) {
        logKey(level, key, {FormatArg(args)...});
    }

    // Levels -2 to 2; lines of a greater level are dropped from now on. Others are refused and
    // logged.
    static void setLogLevel(int level);
    static int getLogLevel() { return logLevel_.load(std::memory_order_relaxed); }

    // Null until a file has been opened. Valid until destroy().
    static const char* getLogFileName() { return logFileName_; }

private:
    // A line "key=format" of the messages file. A line without "=" is all key and has no format.
    struct Entry {
        char* key;     // owned
        char* format;  // owned, with its line end; null: none
    };

    static void logKey(int level, const char* key,
                       std::initializer_list<FormatArg> arguments) noexcept;
    static void loadMessages(FILE* file);
    static const Entry* find(const char* key);
    static void _logInternal(int level, const char* text) noexcept;
    static void writeLine(int level, const char* text);

    static std::atomic<int> logLevel_;  // relaxed: a line more or less around a change
    static std::atomic<FILE*> fplog_;   // owned; null: standard output
    static char* logFileName_;          // owned
    static Entry* logMsg_;              // owned, numLogMsg_ entries
    static int numLogMsg_;
    static bool initialized_;
};
