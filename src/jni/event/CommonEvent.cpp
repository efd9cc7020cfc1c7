// Class-and-method events, and the map of kinds whose method name has been sent.
#include "event/CommonEvent.h"

#include "event/ProtocolVisitor.h"
#include "foundation/Log.h"

VelHashTable<int, int>* const CommonEvent::methodNamedMaped = new VelHashTable<int, int>(10, true);

CommonEvent::~CommonEvent() {
    freeText(className);
    freeText(methodName);
}

bool CommonEvent::addToBuffer(char** buff) {
    if (buff == nullptr) return false;
    return ProtocolVisitor::addToBuffer(this, buff);
}

bool CommonEvent::addCustomDataToBuffer(char**) {
    return true;
}

bool CommonEvent::init(JNIEnv*, jstring*) {
    return true;
}

bool CommonEvent::isMethodMapEnabled() {
    return false;
}

bool CommonEvent::hasMaped(int key) {
    return methodNamedMaped->contains(key);
}

void CommonEvent::setMaped(int key) {
    methodNamedMaped->put(key, key);
}

void CommonEvent::resetMethodIDMap() {
    VEL_TRACE("CommonEvent::resetMethodIDMap()");
    methodNamedMaped->clear();
}
