#include "server/print/FdSink.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace server {

void FdSink::write(std::string_view lines) {
    while (!lines.empty() && failure_.empty()) {
        const ssize_t written = ::write(fd_, lines.data(), lines.size());
        if (written >= 0) {
            lines.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {  // whoever gave us the descriptor had made it non-blocking
            pollfd ready{fd_, POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            failure_ = std::strerror(errno);
        }
    }
}

}  // namespace server
