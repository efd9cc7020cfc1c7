// The instrumentation configuration, <home>/etc/instrumentation.properties: which class loaders are
// rewritten, and whether rewritten classes are written to files. No file means: nothing configured.
//
// Loaded once while the library loads; read-only afterwards, except for each target's
// `instrumented` mark, which belongs to the hook.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "instrument/LoadInjector.h"

struct InstrumentConfig {
    bool instrumentDefineClass = false;
    bool dumpClasses = false;
    std::string dumpPath;  // a plain prefix of the dumped files' names
    std::vector<DefineClassMethod> classLoaders;
    std::vector<DefineClassMethod> proxies;
    std::deque<std::string>
        texts;  // owns what the targets point at; a deque never moves its elements
};

// Loads the configuration from path, or from its usual place when path is empty. No file is no
// failure; a malformed one is: false, with file, line and reason logged, and nothing configured.
bool getConfig(const char* path);

// Never null. Nothing configured until getConfig has succeeded.
InstrumentConfig& instrumentConfig();
