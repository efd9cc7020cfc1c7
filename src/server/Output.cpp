#include "server/Output.h"

#include "server/JsonOutput.h"
#include "server/TableOutput.h"

namespace server {

std::unique_ptr<Output> makeOutput(Format format, LineSink& sink) {
    if (format == Format::json) return std::make_unique<JsonOutput>(sink);
    return std::make_unique<TableOutput>(sink);
}

}  // namespace server
