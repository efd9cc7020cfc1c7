// The kinds of work that have a start and an end record: the record format's list.
#pragma once

#include "dc2ps/RecordRows.h"

namespace server {

using dc2ps::groupOf;
using dc2ps::SpanGroup;
using dc2ps::SpanKind;
using dc2ps::spanKindName;
using dc2ps::spanKindOf;

inline bool isRequest(SpanKind kind) {
    return groupOf(kind) <= SpanGroup::looseRequest;
}

}  // namespace server
