#include "dc2ps/RecordType.h"

namespace dc2ps {

const char* recordTypeName(RecordType type) {
    switch (type) {
#define DC2PS_NAME_CASE(name, value, shown) \
    case RecordType::name:                  \
        return shown;
        DC2PS_RECORD_TYPES(DC2PS_NAME_CASE)
#undef DC2PS_NAME_CASE
    }
    return nullptr;
}

}  // namespace dc2ps
