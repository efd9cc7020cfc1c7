#include "instrument/RukaDelegate.h"

#include "foundation/Log.h"

void RukaDelegate::initializeRukaInOnLoad(char*) {
    VEL_TRACE("initializeRukaInOnLoad(char*)");
}

void RukaDelegate::notifyEvent(JVMPI_Event*) {
    VEL_TRACE("notifyEvent(JVMPI_Event*)");
}
