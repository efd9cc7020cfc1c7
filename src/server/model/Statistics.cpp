#include "server/model/Statistics.h"

#include <algorithm>

namespace server {

void Statistics::count(const dc2ps::Dropped& r) {
    ++dropRecords;
    for (const std::int32_t lost :
         {r.requestStarts, r.requestEnds, r.methodStarts, r.methodEnds, r.sqlStarts, r.sqlEnds})
        droppedEvents += static_cast<std::uint64_t>(std::max(lost, 0));
}

}  // namespace server
