// Sets up the component logging toolkit for the collector: catalogue, log files, first-failure
// capture, and the two objects that everybody writes to.
//
// Threads: initialize() once while the library loads, destroy() at the very end; in between the
// handles never change. Before initialize(), after destroy() and when set-up failed they are null,
// which the toolkit takes as "log nothing".
#pragma once

#include <atomic>

#include "qlog/qlog.h"

extern std::atomic<QlgHandle> qLogger;  // numbered operator messages
extern std::atomic<QlgHandle> qTracer;  // developer trace

class ProbeQLog {
public:
    static void initialize();
    static void destroy();
    static bool isInitialized() { return _initialized; }

    // A plain line to the message logger; null writes nothing.
    static void logMsg(const char* text);

    // Below 20000: the message logger's level. From 20000 on: the tracer's level, less 20000.
    static void setLogLevel(int level);

    static int getSet() { return _set; }
    static const char* getCatalog() { return _catalogName; }
    static const char* getLogRootDir();

private:
    friend class ProbeQLogSteps;  // the tests' way to the single steps

    static void setLogFile(QlgHandle handler);
    static void setFFDCBaseDir(QlgHandle handler);
    static void setCatalog();
    static void setEnv(const char* name, const char* value, bool append);
    static void setFFDCFilesToCopy(QlgHandle handler);
    static void setQualifierForFiles(const char* list, char* result);

    static bool _initialized;
    static int _set;  // message set number
    static char _catalogName[256];
    static char _logFileName[256];  // the last one given to a file handler
    static const char* _qualDir;    // the environment's QUALDIR, or null; not owned
};
