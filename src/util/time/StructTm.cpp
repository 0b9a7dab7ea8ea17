#include "util/time/StructTm.h"

#include "util/base/Diagnostics.h"

namespace morvax {

namespace {

DiagnosticsChannel diagnostics("Timeval");

constexpr int64_t SECONDS_PER_DAY = 86400;
// 1 January 1601, the first second a Timeval can hold.
constexpr int64_t MIN_CALENDAR_SECONDS = -static_cast<int64_t>(Timeval::MAX_SECONDS_BEFORE_EPOCH);

int64_t floorDiv(int64_t a, int64_t b) {
    int64_t q = a / b;
    return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

// Days since 1970-01-01 of a proleptic Gregorian date; month 1 to 12.
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day) {
    year -= month <= 2;
    int64_t era = floorDiv(year, 400);
    int64_t yearOfEra = year - era * 400;
    int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

void logToUnixTimeFailure(const char* name, const std::tm& tm) {
    diagnostics.warn("%s(%d-%d-%d %d:%02d:%02d) failed!", name, tm.tm_year + 1900, tm.tm_mon + 1,
                     tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
}

}  // namespace

// ---- GmtStructTm

GmtStructTm::GmtStructTm() : std::tm{} {}

void GmtStructTm::secondsToCalendar(int64_t seconds, std::tm& out) {
    int64_t days = floorDiv(seconds, SECONDS_PER_DAY);
    int64_t rest = seconds - days * SECONDS_PER_DAY;
    out.tm_hour = static_cast<int>(rest / 3600);
    out.tm_min = static_cast<int>(rest / 60 % 60);
    out.tm_sec = static_cast<int>(rest % 60);
    // 1970-01-01 was a Thursday.
    int64_t weekday = (days + 4) % 7;
    out.tm_wday = static_cast<int>(weekday < 0 ? weekday + 7 : weekday);

    int64_t shifted = days + 719468;
    int64_t era = floorDiv(shifted, 146097);
    int64_t dayOfEra = shifted - era * 146097;
    int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    int64_t monthIndex = (5 * dayOfYear + 2) / 153;
    int64_t day = dayOfYear - (153 * monthIndex + 2) / 5 + 1;
    int64_t month = monthIndex < 10 ? monthIndex + 3 : monthIndex - 9;
    int64_t year = yearOfEra + era * 400 + (month <= 2);

    out.tm_year = static_cast<int>(year - 1900);
    out.tm_mon = static_cast<int>(month - 1);
    out.tm_mday = static_cast<int>(day);
    out.tm_yday = static_cast<int>(days - daysFromCivil(year, 1, 1));
    out.tm_isdst = 0;
}

int64_t GmtStructTm::calendarToSeconds(const std::tm& tm) {
    int64_t month = tm.tm_mon;
    int64_t year = int64_t{tm.tm_year} + 1900 + floorDiv(month, 12);
    month -= floorDiv(month, 12) * 12;
    int64_t days = daysFromCivil(year, month + 1, 1) + tm.tm_mday - 1;
    return days * SECONDS_PER_DAY + int64_t{tm.tm_hour} * 3600 + int64_t{tm.tm_min} * 60 +
           tm.tm_sec;
}

bool GmtStructTm::isCalendarSeconds(int64_t seconds) {
    return seconds >= MIN_CALENDAR_SECONDS &&
           seconds <= LocalTimeZoneProvider::MAX_CALENDAR_SECONDS;
}

bool GmtStructTm::fromUnixTime(int64_t seconds) {
    if (!isCalendarSeconds(seconds)) {
        return false;
    }
    secondsToCalendar(seconds, *this);
    return true;
}

bool GmtStructTm::toUnixTime(int64_t& seconds) const {
    int64_t result = calendarToSeconds(*this);
    if (!isCalendarSeconds(result)) {
        logToUnixTimeFailure("GmtStructTm::toUnixTime", *this);
        return false;
    }
    seconds = result;
    return true;
}

// ---- LocalStructTm

LocalStructTm::LocalStructTm() : std::tm{} {}

bool LocalStructTm::fromUnixTime(int64_t seconds) {
    return LocalTimeZoneProvider::toCalendar(seconds, *this);
}

namespace {

bool localToUnixTime(const std::tm& tm, int64_t& seconds, const char* name) {
    int64_t result;
    // The platform refuses times before the epoch on Windows; refuse them everywhere.
    if (!LocalTimeZoneProvider::fromCalendar(tm, result) || result < 0 ||
        result > LocalTimeZoneProvider::MAX_CALENDAR_SECONDS) {
        logToUnixTimeFailure(name, tm);
        return false;
    }
    seconds = result;
    return true;
}

}  // namespace

bool LocalStructTm::toUnixTime(int64_t& seconds) const {
    return localToUnixTime(*this, seconds, "LocalStructTm::toUnixTime");
}

void LocalStructTm::setFallback(std::tm& tm, bool negative) {
    tm = std::tm{};
    if (negative) {
        tm.tm_mday = 1;
        tm.tm_wday = 1;
        return;
    }
    tm.tm_sec = 59;
    tm.tm_min = 59;
    tm.tm_hour = 23;
    tm.tm_mday = 31;
    tm.tm_mon = 11;
    tm.tm_year = 9999 - 1900;
    tm.tm_wday = 5;
    tm.tm_yday = 364;
}

bool LocalStructTmHires::toUnixTime(int64_t& seconds) const {
    return localToUnixTime(*this, seconds, "LocalStructTmHires::toUnixTime");
}

bool LocalStructTmHires::fromTimeval(Timeval t) {
    int64_t seconds;
    uint32_t ticks;
    t.toEpochSeconds(seconds, ticks);
    if (!fromUnixTime(seconds)) {
        return false;
    }
    subSeconds = ticks;
    return true;
}

bool LocalStructTmHires::toTimeval(Timeval& out) const {
    int64_t seconds;
    if (!toUnixTime(seconds) || subSeconds >= Timeval::TICKS_PER_SECOND) {
        return false;
    }
    return out.fromSeconds(false, static_cast<uint64_t>(seconds), subSeconds);
}

// ---- StructTmInTimezone

StructTmInTimezone::StructTmInTimezone(int32_t offsetSeconds, const char* zoneName)
    : std::tm{}, zone_(offsetSeconds, zoneName) {}

bool StructTmInTimezone::fromUnixTimeNamed(int64_t seconds, const char* name) {
    if (!GmtStructTm::isCalendarSeconds(seconds)) {
        diagnostics.warn("%s(%lld) failed!", name, static_cast<long long>(seconds));
        return false;
    }
    GmtStructTm::secondsToCalendar(seconds + zone_.offset(), *this);
    return true;
}

bool StructTmInTimezone::toUnixTimeNamed(int64_t& seconds, const char* name) const {
    int64_t result = GmtStructTm::calendarToSeconds(*this) - zone_.offset();
    if (!GmtStructTm::isCalendarSeconds(result)) {
        logToUnixTimeFailure(name, *this);
        return false;
    }
    seconds = result;
    return true;
}

bool StructTmInTimezone::fromUnixTime(int64_t seconds) {
    return fromUnixTimeNamed(seconds, "StructTmInTimezone::fromUnixTime");
}

bool StructTmInTimezone::toUnixTime(int64_t& seconds) const {
    return toUnixTimeNamed(seconds, "StructTmInTimezone::toUnixTime");
}

bool StructTmInTimezoneHires::fromUnixTime(int64_t seconds) {
    if (!fromUnixTimeNamed(seconds, "StructTmInTimezoneHires::fromUnixTime")) {
        return false;
    }
    subSeconds = 0;
    return true;
}

bool StructTmInTimezoneHires::toUnixTime(int64_t& seconds) const {
    return toUnixTimeNamed(seconds, "StructTmInTimezoneHires::toUnixTime");
}

bool StructTmInTimezoneHires::fromTimeval(Timeval t) {
    int64_t seconds;
    uint32_t ticks;
    t.toEpochSeconds(seconds, ticks);
    if (!fromUnixTimeNamed(seconds, "StructTmInTimezoneHires::fromUnixTime")) {
        return false;
    }
    subSeconds = ticks;
    return true;
}

bool StructTmInTimezoneHires::toTimeval(Timeval& out) const {
    int64_t seconds;
    if (!toUnixTime(seconds) || subSeconds >= Timeval::TICKS_PER_SECOND) {
        return false;
    }
    // The sub-second part counts away from the epoch, as toEpochSeconds() splits it.
    if (seconds < 0) {
        return out.fromSeconds(true, static_cast<uint64_t>(-seconds), subSeconds);
    }
    return out.fromSeconds(false, static_cast<uint64_t>(seconds), subSeconds);
}

}  // namespace morvax
