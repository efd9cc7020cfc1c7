// What portal events free: little, their names come from the table of portal methods.
#include "event/PortalEvents.h"

PortalGatewayServletEvent::~PortalGatewayServletEvent() {
    freeText(pageName);
}
