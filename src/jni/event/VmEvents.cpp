// What the events of the VM free.
#include "event/VmEvents.h"

#include "instrument/class.h"

ClassEvent::~ClassEvent() {
    delete classData;
}

MethodEvent::~MethodEvent() {
    freeText(data);
}

ExceptionEvent::~ExceptionEvent() {
    freeText(exception);
    freeText(class_name);
    freeText(method_name);
    freeText(stacktrace);
}
