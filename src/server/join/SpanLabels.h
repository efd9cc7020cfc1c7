// What a span is called: the four texts that every kind of span shows, wherever it is shown.
#pragma once

#include <string>
#include <string_view>

#include "server/join/AgentNames.h"
#include "server/join/SpanJoiner.h"
#include "server/model/SpanRow.h"

namespace server {

// Untrusted texts, as from the wire.
//   kind                 name                  application       url              user
//   servlet, portal      request               application       url              user
//   ejb, doVerbFor, ...  request               application       url
//   web service          request               application       url
//   iiop                 class.method
//   gps                  token in hex
//   sql                  statement                               data source
//   jndi                 look-up name                            provider's URL
//   mail                 subject                                 server's URL
//   jms                  queue or topic                          server
//   jca                  name of the system
//   jdo                  class.method
//   mq, gpsPut, gpsGet   queue                                   queue manager
//   wsFault              fault code: text      application
//   portal steps         name of the step
//   gateway servlet      page name (from the end record)
//   lock, heap           class
//   method               class.method, or its number
//
// Fills labels, whose strings keep their memory from one span to the next.
void labelSpan(const Span& span, const AgentNames& names, SpanLabels& labels);
void labelRecord(const dc2ps::Record& record, const AgentNames& names, SpanLabels& labels);

void appendHex(std::string& out, std::string_view bytes);

}  // namespace server
