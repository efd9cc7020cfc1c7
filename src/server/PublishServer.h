// The server as a whole: listens, runs until a signal ends it, prints the summary.
#pragma once

#include <string>

#include "server/Options.h"

namespace server {

// Runs until SIGTERM or SIGINT. The exit status: 0, or 1 when it could not listen, could not write
// its port file, or could not go on writing its output.
int serve(const Options& options);

}  // namespace server
