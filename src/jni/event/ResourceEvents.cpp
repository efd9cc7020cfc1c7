// What resource events free.
#include "event/ResourceEvents.h"

SQLEvent::~SQLEvent() {
    freeText(data_source_name);
    freeText(sql);
}

JMSEvent::~JMSEvent() {
    freeText(serverName);
    freeText(queueOrTopicName);
    freeText(selector);
}

JCAEvent::~JCAEvent() {
    freeText(eisName);
}

JNDIEvent::~JNDIEvent() {
    freeText(providerURL);
    freeText(lookupName);
}

JDOEvent::~JDOEvent() {
    freeText(className);
    freeText(methodName);
    freeText(argumentString);
}

MailEvent::~MailEvent() {
    freeText(serverURL);
    freeText(subject);
}

CTGEvent::~CTGEvent() {
    freeText(gatewayName);
    freeText(serverName);
    freeText(progName);
}

MQIEvent::~MQIEvent() {
    freeText(mgrName);
    freeText(queueName);
    delete[] ctype;
    delete[] count;
    delete[] avgTimeTaken;
}
