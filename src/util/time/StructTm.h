#pragma once

#include <cstdint>
#include <ctime>

#include "util/time/TimeZoneProvider.h"
#include "util/time/Timeval.h"

namespace morvax {

// The broken-down forms of a time. Each is the platform's calendar record (std::tm: sec, min,
// hour, mday, mon 0-11, year since 1900, wday, yday, isdst); the Hires forms add the sub-second
// part in 100 ns units, 0 to 9999999. Conversions to a time log "%s(%d-%d-%d %d:%02d:%02d)
// failed!" on the Logger "Timeval" when they fail.

// Calendar time in UTC, by pure arithmetic on the proleptic Gregorian calendar.
class GmtStructTm : public std::tm {
  public:
    GmtStructTm();

    // False above LocalTimeZoneProvider::MAX_CALENDAR_SECONDS or before 1601.
    bool fromUnixTime(int64_t seconds);
    // Fields out of range carry over, as timegm does. False when the result is not a time
    // between 1601 and MAX_CALENDAR_SECONDS.
    bool toUnixTime(int64_t& seconds) const;

    // The arithmetic itself, without logging or limits beyond the 64-bit range.
    static void secondsToCalendar(int64_t seconds, std::tm& out);
    static int64_t calendarToSeconds(const std::tm& tm);
    // Whether `seconds` lies between 1601 and MAX_CALENDAR_SECONDS.
    static bool isCalendarSeconds(int64_t seconds);
};

// Calendar time in the process's local zone.
class LocalStructTm : public std::tm {
  public:
    LocalStructTm();

    // False where the platform cannot convert (before the epoch, above the calendar limit).
    bool fromUnixTime(int64_t seconds);
    bool toUnixTime(int64_t& seconds) const;

    // The record used when a time cannot be converted: 9999-12-31 23:59:59 (Friday, day 364)
    // for `negative` false, else 1900-01-01 00:00:00 (Monday).
    static void setFallback(std::tm& tm, bool negative);
};

class LocalStructTmHires : public LocalStructTm {
  public:
    bool toUnixTime(int64_t& seconds) const;
    // False and unchanged where fromUnixTime() fails.
    bool fromTimeval(Timeval t);
    // False when the calendar time cannot be read back or the result does not fit.
    bool toTimeval(Timeval& out) const;

    uint32_t subSeconds = 0;
};

// Calendar time in a zone of constant offset; its provider serves TimeFormat.
class StructTmInTimezone : public std::tm {
  public:
    explicit StructTmInTimezone(int32_t offsetSeconds = 0, const char* zoneName = nullptr);

    // Logs "%s(%lld) failed!" and returns false outside the calendar range.
    bool fromUnixTime(int64_t seconds);
    bool toUnixTime(int64_t& seconds) const;

    const TimeZoneProvider& provider() const { return zone_; }
    int32_t offsetSeconds() const { return zone_.offset(); }

  protected:
    bool fromUnixTimeNamed(int64_t seconds, const char* name);
    bool toUnixTimeNamed(int64_t& seconds, const char* name) const;

  private:
    FixedOffsetTimeZoneProvider zone_;
};

class StructTmInTimezoneHires : public StructTmInTimezone {
  public:
    explicit StructTmInTimezoneHires(int32_t offsetSeconds = 0, const char* zoneName = nullptr)
        : StructTmInTimezone(offsetSeconds, zoneName) {}

    bool fromUnixTime(int64_t seconds);
    bool toUnixTime(int64_t& seconds) const;
    bool fromTimeval(Timeval t);
    bool toTimeval(Timeval& out) const;

    uint32_t subSeconds = 0;
};

}  // namespace morvax
