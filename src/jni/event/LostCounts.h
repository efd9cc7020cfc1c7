// How many events were lost, in the six classes that a drop record tells.
#pragma once

#include <cstdint>

#include "event/Event.h"

struct LostCounts {
    // The classes, in the order of the counts below.
    enum Lost { kRecStart, kRecEnd, kMethStart, kMethEnd, kSqlStart, kSqlEnd, kLostClasses };
    // Phase START counts as start, every other phase as end.
    static Lost lostClass(const Event& lost) {
        const int kind = lost.type_ == METHOD ? kMethStart
                         : lost.type_ == SQL  ? kSqlStart
                                              : kRecStart;
        return static_cast<Lost>(kind + (lost.subType_ == START ? 0 : 1));
    }
    void add(Lost lost, std::int32_t events);
    void add(const LostCounts& more);
    long sum() const;

    std::int32_t dropRecStartCnt = 0;  // everything that is neither METHOD nor SQL
    std::int32_t dropRecEndCnt = 0;
    std::int32_t dropMethStartCnt = 0;  // METHOD
    std::int32_t dropMethEndCnt = 0;
    std::int32_t dropSQLStartCnt = 0;  // SQL
    std::int32_t dropSQLEndCnt = 0;
};
