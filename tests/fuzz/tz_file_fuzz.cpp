// Fuzz target of the zone readers: any bytes go through the compiled zone file parser and, as
// text, through the TZ rule parser and the lookup of Windows zone names. Nothing may crash, a
// zone that loads keeps its bounds, and every instant's local time reads back to an instant of
// the same local time.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "FuzzSupport.h"
#include "util/base/StrSegment.h"
#include "util/time/PosixZoneRule.h"
#include "util/time/TimeZone.h"
#include "util/time/TimeZoneFile.h"
#include "util/time/TimeZoneNames.h"

namespace morvax {
namespace {

using fuzz::check;

bool sameLocalTime(const std::tm& a, const std::tm& b) {
    return a.tm_year == b.tm_year && a.tm_yday == b.tm_yday && a.tm_hour == b.tm_hour &&
           a.tm_min == b.tm_min && a.tm_sec == b.tm_sec && a.tm_isdst == b.tm_isdst;
}

void checkInstant(const TimeZone& zone, int64_t t) {
    TimeZone::Reading reading = zone.at(t);
    check(reading.offset >= -TimeZone::MAX_OFFSET && reading.offset <= TimeZone::MAX_OFFSET,
          "offset within 26 hours");
    check(reading.abbreviation != nullptr, "an abbreviation");
    check(zone.nextChange(t) > t || t == INT64_MAX, "the next change lies ahead");
    std::tm local{};
    if (!zone.toCalendar(t, local)) {
        return;
    }
    int64_t back = 0;
    check(zone.toUtc(local, back), "a local time of an instant reads back");
    std::tm again{};
    check(zone.toCalendar(back, again) && sameLocalTime(local, again),
          "the instant read back has the same local time");
    local.tm_isdst = -1;
    check(zone.toUtc(local, back), "a local time reads back without a daylight flag");
}

void checkZone(const TimeZone& zone) {
    check(zone.loaded(), "a parsed zone is loaded");
    check(zone.typeCount() <= TimeZone::MAX_TYPES, "at most 256 types");
    std::span<const int64_t> times = zone.transitionTimes();
    check(times.size() <= TimeZone::MAX_TRANSITIONS, "at most 4096 transitions");
    std::vector<int64_t> instants{INT64_MIN, -1, 0, 1, 1700000000, INT64_MAX};
    for (size_t i = 0; i < times.size(); ++i) {
        check(i == 0 || times[i - 1] < times[i], "transitions in ascending order");
        check(zone.transitionType(i) < zone.typeCount(), "transitions to existing types");
        // A sample of them, so that large tables stay quick.
        if (i % 16 == 0 || i + 1 == times.size()) {
            for (int64_t delta : {-1, 0, 1}) {
                int64_t t;
                if (!__builtin_add_overflow(times[i], delta, &t)) {
                    instants.push_back(t);
                }
            }
        }
    }
    for (int64_t t : instants) {
        checkInstant(zone, t);
    }
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    TimeZone zone;
    const char* failure = nullptr;
    if (TimeZoneFile::parse(data, size, zone, failure)) {
        checkZone(zone);
    } else {
        check(failure != nullptr && !zone.loaded(), "a refused file says why and loads nothing");
    }
    TimeZone ruled;
    if (TimeZone::fromRule(StrSegment(reinterpret_cast<const char*>(data), size), ruled)) {
        check(size <= PosixZoneRule::MAX_TEXT, "rules within their bound");
        checkZone(ruled);
    }
    // A zone name of any bytes gives an id or nothing.
    const auto id = windowsNameToZoneId(StrSegment(reinterpret_cast<const char*>(data), size));
    check(!id || id->find('/') != std::string_view::npos, "a zone id names an area");
    return 0;
}
