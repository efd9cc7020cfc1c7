// What request events free.
#include "event/RequestEvents.h"

RequestEvent::~RequestEvent() {
    freeText(request_name);
    freeText(application_name);
    freeText(url);
    freeText(userName);
}

MQEvent::~MQEvent() {
    freeText(queueName);
    freeText(queueMgrName);
}

GPSMQEvent::~GPSMQEvent() {
    freeText(queueName);
    delete[] gpsToken;
}
