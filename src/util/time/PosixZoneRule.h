#pragma once

#include <cstdint>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"

namespace morvax {

// A zone as a POSIX TZ value spells it ("EST5EDT,M3.2.0,M11.1.0", "<+1030>-10:30<+11>-11,
// M10.1.0,M4.1.0"): a standard time and, optionally, a daylight time with the dates it starts
// and ends each year. A compiled zone file ends with one for the times after its table. Rule
// times may lie from -167 to 167 hours, as the tz database's files allow. Offsets here are east
// of UTC, the opposite sign of the text.
class PosixZoneRule {
  public:
    // Longer text is refused: zone files hold a few dozen bytes.
    static constexpr size_t MAX_TEXT = 256;
    static constexpr int32_t MAX_RULE_TIME = 167 * 3600 + 59 * 60 + 59;

    // A day of the year with the local time of the change on it.
    struct Date {
        enum Kind : uint8_t {
            JULIAN,       // Jn: 1 to 365, 29 February never counted
            DAY_OF_YEAR,  // n: 0 to 365, 29 February counted
            // Mm.w.d: week 1 to 5 (5: the last) of month 1 to 12, weekday 0 (Sunday) to 6
            MONTH_WEEK_DAY,
        };
        Kind kind = MONTH_WEEK_DAY;
        uint16_t day = 0;
        uint8_t month = 0;
        uint8_t week = 0;
        int32_t time = 2 * 3600;

        friend bool operator==(const Date&, const Date&) = default;
    };

    Str standardName;
    int32_t standardOffset = 0;
    bool hasDaylight = false;
    Str daylightName;
    int32_t daylightOffset = 0;
    Date start;  // into daylight time, a local time in standard time
    Date end;    // back to standard time, a local time in daylight time

    // False, leaving `out` alone, for anything but a whole valid value. Daylight time without
    // dates takes the present US dates (M3.2.0,M11.1.0).
    static bool parse(StrSegment text, PosixZoneRule& out);

    bool daylightAt(int64_t utc) const;

    // The first instant after `utc` at which the reading may change; INT64_MAX when it never
    // does.
    int64_t nextChange(int64_t utc) const;
    // The instants of `year`'s changes into and out of daylight time.
    void changesOfYear(int64_t year, int64_t& into, int64_t& outOf) const;

    // Instants beyond this distance from the epoch are read as at this distance, so that the
    // calendar arithmetic stays far from overflow (about a billion years).
    static constexpr int64_t INSTANT_LIMIT = int64_t{1} << 55;
};

}  // namespace morvax
