// What lock and allocation events free.
#include "event/LockEvents.h"

LockEvent::~LockEvent() {
    freeText(className);
}

LockContentionEvent::~LockContentionEvent() {
    freeText(owningRequestName);
    freeText(owningApplicationName);
}

HeapEvent::~HeapEvent() {
    freeText(instantiated_class_name);
}
