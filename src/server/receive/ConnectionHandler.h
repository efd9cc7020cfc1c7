// What the receiver of bytes knows about whoever makes sense of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "dc2ps/Records.h"

namespace server {

constexpr const char* kOrderlyEnd = "closed by the agent";

// One per connection.
class ConnectionHandler {
public:
    enum class Taken : std::uint8_t {
        all,
        enough,  // much had to be written for it: the others' turn
        refused  // the connection is to be closed; the handler knows why
    };
    struct Ending {
        std::string reason;  // in words; kOrderlyEnd: the peer has hung up
        bool byPeer = false;
    };
    enum class Told : std::uint8_t {
        all,
        some,  // there is more than one turn allows: to be called again
        waits  // another connection may go on with it: to be called again in a while
    };

    virtual ~ConnectionHandler() = default;
    [[nodiscard]] virtual Taken received(dc2ps::Bytes untrusted) = 0;
    // The connection has ended; nothing is received any more. Without mayWait it does not wait.
    [[nodiscard]] virtual Told closed(const Ending& ending, bool mayWait) = 0;

    virtual bool identified() const = 0;        // the peer has said who it is
    virtual std::size_t heldBytes() const = 0;  // memory kept for this connection, at most
};

}  // namespace server
