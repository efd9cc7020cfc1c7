// The door to an external instrumentation library that takes over the class-load hook. None is
// shipped, so none is ever configured and the collector's own injector does the work; the calls
// stand where such a library would be asked.
#pragma once

#include "jvmpi/jvmpi.h"

class RukaDelegate {
public:
    static bool isRukaConfigured() { return false; }  // a library is named and could be loaded
    static bool isRukaEnabled() { return false; }     // configured, and its set-up succeeded
    // options: the agent's option text; may be null.
    static void initializeRukaInOnLoad(char* options);
    // Hands over one event. With no library nothing happens, and the event's data stay as they are.
    static void notifyEvent(JVMPI_Event* event);
};
