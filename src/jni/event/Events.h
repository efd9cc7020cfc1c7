// Every event class.
#pragma once

#include "event/CommonEvent.h"
#include "event/ControlEvents.h"
#include "event/Event.h"
#include "event/LockEvents.h"
#include "event/PortalEvents.h"
#include "event/RequestEvents.h"
#include "event/ResourceEvents.h"
#include "event/VmEvents.h"
#include "event/WebServiceEvents.h"
