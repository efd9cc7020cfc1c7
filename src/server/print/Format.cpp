#include "server/print/Format.h"

#include "server/print/JsonOutput.h"
#include "server/print/TableOutput.h"

namespace server {

std::unique_ptr<Output> makeOutput(Format format, LineSink& sink) {
    if (format == Format::json) return std::make_unique<JsonOutput>(sink);
    return std::make_unique<TableOutput>(sink);
}

}  // namespace server
