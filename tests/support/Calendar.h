#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>

#include "util/time/StructTm.h"
#include "util/time/Timeval.h"

namespace morvax::test {

// A broken-down time as people write it: month 1 to 12; the daylight flag left to the system.
inline std::tm calendar(int year, int month, int day, int hour = 0, int minute = 0,
                        int second = 0) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return tm;
}

// That time in UTC with `ticks` of 100 ns, before 1970 too.
inline Timeval utcTime(int year, int month, int day, int hour, int minute, int second,
                       uint32_t ticks = 0) {
    int64_t seconds =
        GmtStructTm::calendarToSeconds(calendar(year, month, day, hour, minute, second));
    Timeval t;
    EXPECT_TRUE(seconds >= 0 ? t.fromSeconds(false, static_cast<uint64_t>(seconds), ticks)
                             : t.fromSeconds(true, static_cast<uint64_t>(-seconds), ticks));
    return t;
}

}  // namespace morvax::test
