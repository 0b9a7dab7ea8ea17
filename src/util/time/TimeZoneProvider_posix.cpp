#include <time.h>

#include <cstring>

#include "util/time/TimeZoneProvider.h"

namespace morvax {

namespace {

// mktime answers -1 both for failure and for one real second; tell them apart.
bool localMktime(std::tm& tm, time_t& result) {
    result = mktime(&tm);
    if (result != static_cast<time_t>(-1)) {
        return true;
    }
    std::tm check{};
    time_t minusOne = -1;
    return localtime_r(&minusOne, &check) != nullptr && check.tm_year == tm.tm_year &&
           check.tm_yday == tm.tm_yday && check.tm_hour == tm.tm_hour &&
           check.tm_min == tm.tm_min && check.tm_sec == tm.tm_sec;
}

}  // namespace

bool LocalTimeZoneProvider::toCalendar(int64_t seconds, std::tm& out) {
    if (seconds < 0 || seconds > MAX_CALENDAR_SECONDS) {
        return false;
    }
    time_t t = static_cast<time_t>(seconds);
    return localtime_r(&t, &out) != nullptr;
}

bool LocalTimeZoneProvider::fromCalendar(const std::tm& tm, int64_t& seconds) {
    std::tm copy = tm;
    time_t result;
    if (!localMktime(copy, result)) {
        return false;
    }
    seconds = static_cast<int64_t>(result);
    return true;
}

int64_t LocalTimeZoneProvider::epochSeconds(const std::tm& tm) const {
    int64_t seconds;
    return fromCalendar(tm, seconds) ? seconds : INVALID_SECONDS;
}

size_t LocalTimeZoneProvider::zoneName(const std::tm& tm, char* buffer, size_t size) const {
    if (size == 0) {
        return 0;
    }
    std::tm copy = tm;
    time_t ignored;
    const char* name = localMktime(copy, ignored) && copy.tm_zone ? copy.tm_zone : "";
    return copyName(name, buffer, size);
}

int32_t LocalTimeZoneProvider::offsetSeconds(const std::tm& tm) const {
    std::tm copy = tm;
    time_t ignored;
    if (!localMktime(copy, ignored)) {
        return UNKNOWN_OFFSET;
    }
    return static_cast<int32_t>(copy.tm_gmtoff);
}

}  // namespace morvax
