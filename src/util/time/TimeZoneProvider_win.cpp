#include <time.h>

#include <cstring>

#include "util/time/StructTm.h"
#include "util/time/TimeZoneProvider.h"

namespace morvax {

namespace {

// The CRT reads its zone (TZ, else the system's) once; the names need it read.
void ensureZoneRead() {
    static const bool done = [] {
        _tzset();
        return true;
    }();
    (void)done;
}

}  // namespace

bool LocalTimeZoneProvider::toCalendar(int64_t seconds, std::tm& out) {
    if (seconds < 0 || seconds > MAX_CALENDAR_SECONDS) {
        return false;
    }
    __time64_t t = seconds;
    return _localtime64_s(&out, &t) == 0;
}

bool LocalTimeZoneProvider::fromCalendar(const std::tm& tm, int64_t& seconds) {
    std::tm copy = tm;
    __time64_t result = _mktime64(&copy);
    if (result == -1) {
        return false;
    }
    seconds = result;
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
    ensureZoneRead();
    std::tm copy = tm;
    bool daylight = _mktime64(&copy) != -1 ? copy.tm_isdst > 0 : tm.tm_isdst > 0;
    // The CRT's own names, so that name and offset always come from one reading of the zone.
    const char* name = _tzname[daylight ? 1 : 0];
    if (!name) {
        name = "";
    }
    return copyName(name, buffer, size);
}

int32_t LocalTimeZoneProvider::offsetSeconds(const std::tm& tm) const {
    std::tm copy = tm;
    __time64_t seconds = _mktime64(&copy);
    if (seconds == -1) {
        return UNKNOWN_OFFSET;
    }
    // The normalised local record read as UTC, less the real instant.
    return static_cast<int32_t>(GmtStructTm::calendarToSeconds(copy) - seconds);
}

}  // namespace morvax
