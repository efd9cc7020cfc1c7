// What the receiver of bytes knows about whoever makes sense of them.
#pragma once

#include <string>

#include "dc2ps/Records.h"

namespace server {

// One per connection. Never called again after closed().
class ConnectionHandler {
public:
    virtual ~ConnectionHandler() = default;
    // Takes what has arrived. False: the connection is to be closed; the handler knows why.
    [[nodiscard]] virtual bool received(dc2ps::Bytes untrusted) = 0;
    // The connection has ended. reason: in words.
    virtual void closed(const std::string& reason) = 0;
};

}  // namespace server
