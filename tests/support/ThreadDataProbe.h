// For tests that need another queue limit.
#pragma once

#include "event/ThreadData.h"

class ThreadDataProbe {
public:
    static void limit(long events) { ThreadData::queueLimit_ = events; }  // 0: not read yet
};
