// The zones read by this program against the C library's own reading of the same TZ, over two
// centuries and at every change.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/Environment.h"
#include "util/time/LocalZone.h"
#include "util/time/StructTm.h"
#include "util/time/TimeZone.h"

namespace morvax {
namespace {

// 1900-01-01 and 2100-01-01.
constexpr int64_t FIRST = -2208988800LL;
constexpr int64_t LAST = 4102444800LL;
// The C library computes no rule changes for the years before 1970: a zone that is a rule alone
// is compared from there.
constexpr int64_t FIRST_FOR_RULES = 0;
// A little over six hours, so that the times of day drift through the day.
constexpr int64_t STEP = 6 * 3600 + 7 * 60 + 13;

// TZ for the library, which reads it again; the old value is back at the end.
class LibraryZone {
  public:
    explicit LibraryZone(const char* tz) : old_(test::getEnvironment("TZ")) {
        test::setEnvironment("TZ", tz);
        tzset();
    }
    ~LibraryZone() {
        test::setEnvironment("TZ", old_ ? old_->c_str() : nullptr);
        tzset();
    }

  private:
    std::optional<std::string> old_;
};

std::string describe(int64_t t, const std::tm& tm) {
    char text[96];
    std::snprintf(text, sizeof(text), "t=%lld %04d-%02d-%02d %02d:%02d:%02d isdst=%d",
                  static_cast<long long>(t), tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                  tm.tm_hour, tm.tm_min, tm.tm_sec, tm.tm_isdst);
    return text;
}

bool sameCalendar(const std::tm& a, const std::tm& b) {
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
           a.tm_hour == b.tm_hour && a.tm_min == b.tm_min && a.tm_sec == b.tm_sec &&
           a.tm_wday == b.tm_wday && a.tm_yday == b.tm_yday && a.tm_isdst == b.tm_isdst;
}

// Compares one instant; returns false after the first difference, to keep the output short.
bool agreeAt(const TimeZone& zone, int64_t t) {
    time_t instant = static_cast<time_t>(t);
    std::tm theirs{};
    if (!localtime_r(&instant, &theirs)) {
        ADD_FAILURE() << "localtime_r failed at " << t;
        return false;
    }
    std::tm ours{};
    if (!zone.toCalendar(t, ours)) {
        ADD_FAILURE() << "toCalendar failed at " << t;
        return false;
    }
    TimeZone::Reading reading = zone.at(t);
    if (!sameCalendar(ours, theirs) || reading.offset != theirs.tm_gmtoff ||
        std::strcmp(reading.abbreviation, theirs.tm_zone) != 0) {
        ADD_FAILURE() << "at " << describe(t, theirs) << " " << theirs.tm_zone << " "
                      << theirs.tm_gmtoff << ", ours " << describe(t, ours) << " "
                      << reading.abbreviation << " " << reading.offset;
        return false;
    }

    // Back from the calendar time, the daylight flag given as the library gave it.
    std::tm copy = theirs;
    int64_t back = 0;
    time_t made = mktime(&copy);
    if (!zone.toUtc(ours, back)) {
        ADD_FAILURE() << "toUtc failed for " << describe(t, ours);
        return false;
    }
    if (back != made) {
        // Both may be right: a time repeated with the same daylight flag both times, which the
        // library resolves by its last guess.
        std::tm fromBack{};
        std::tm fromMade{};
        zone.toCalendar(back, fromBack);
        zone.toCalendar(made, fromMade);
        if (!sameCalendar(fromBack, ours) || !sameCalendar(fromMade, ours)) {
            ADD_FAILURE() << "mktime of " << describe(t, ours) << " gives " << made << ", ours "
                          << back;
            return false;
        }
    }
    return true;
}

void expectAgreement(const char* tz, int64_t first) {
    SCOPED_TRACE(tz);
    LibraryZone library(tz);
    TimeZone zone;
    Str id;
    uint32_t flags = 0;
    ASSERT_TRUE(findLocalZone(zone, id, flags, true));
    EXPECT_EQ(id.view(), tz);

    std::vector<int64_t> changes(zone.transitionTimes().begin(), zone.transitionTimes().end());
    if (zone.rule() && zone.rule()->hasDaylight) {
        for (int64_t year = 1900; year <= 2100; ++year) {
            int64_t into;
            int64_t outOf;
            zone.rule()->changesOfYear(year, into, outOf);
            changes.push_back(into);
            changes.push_back(outOf);
        }
    }
    for (int64_t change : changes) {
        if (change - 1 < first || change + 1 > LAST) {
            continue;
        }
        for (int64_t t : {change - 1, change, change + 1}) {
            if (!agreeAt(zone, t)) {
                return;
            }
        }
    }
    for (int64_t t = first; t < LAST; t += STEP) {
        if (!agreeAt(zone, t)) {
            return;
        }
    }
}

TEST(TimeZoneAgreementTest, ZoneFilesReadAsTheLibraryReadsThem) {
    // Half-hour daylight saving, a zone with its daylight flag in winter, a day skipped, daylight
    // saving abolished, and rules of the footers.
    for (const char* tz :
         {"UTC", "Europe/London", "America/New_York", "Australia/Lord_Howe", "Asia/Kolkata",
          "America/Sao_Paulo", "Pacific/Apia", "Europe/Dublin", "America/Nuuk", "Asia/Jerusalem"}) {
        expectAgreement(tz, FIRST);
    }
}

TEST(TimeZoneAgreementTest, RulesReadAsTheLibraryReadsThem) {
    // Southern rules across New Year, Julian days, and change times beyond the day.
    for (const char* tz : {"EST5EDT,M3.2.0,M11.1.0", "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0",
                           "<+0330>-3:30<+0430>,J79/24,J263/24", "<-03>3<-02>,M3.5.0/-2,M10.5.0/-1",
                           "IST-2IDT,M3.4.4/26,M10.5.0", "XXX-5:45"}) {
        expectAgreement(tz, FIRST_FOR_RULES);
    }
}

TEST(TimeZoneAgreementTest, SkippedRepeatedAndMislabelledTimesAsMktimeReadsThem) {
    // Around each change, and a month away from it: local times asked for with either daylight
    // flag, and without one where the time is not repeated (the library's answer for a repeated
    // time without a flag depends on its previous call).
    for (const char* tz : {"America/New_York", "Australia/Lord_Howe", "Europe/Dublin"}) {
        SCOPED_TRACE(tz);
        LibraryZone library(tz);
        TimeZone zone;
        Str id;
        uint32_t flags = 0;
        ASSERT_TRUE(findLocalZone(zone, id, flags, true));
        for (int64_t year = 2005; year <= 2030; ++year) {
            int64_t changes[2];
            zone.rule()->changesOfYear(year, changes[0], changes[1]);
            for (int64_t change : changes) {
                int32_t before = zone.at(change - 1).offset;
                int32_t after = zone.at(change).offset;
                std::vector<int64_t> wallTimes{change + before + 30 * 86400,
                                               change + after - 30 * 86400};
                for (int64_t k = -4; k <= 4; ++k) {
                    wallTimes.push_back(change + before + k * 900);
                    wallTimes.push_back(change + after + k * 900);
                }
                for (int64_t wall : wallTimes) {
                    std::tm local{};
                    GmtStructTm::secondsToCalendar(wall, local);
                    bool repeated = zone.at(wall - before).offset == before &&
                                    zone.at(wall - after).offset == after && before != after;
                    for (int isdst : {-1, 0, 1}) {
                        if (isdst < 0 && repeated) {
                            continue;
                        }
                        std::tm asked = local;
                        asked.tm_isdst = isdst;
                        std::tm copy = asked;
                        int64_t ours = 0;
                        ASSERT_TRUE(zone.toUtc(asked, ours));
                        ASSERT_EQ(ours, mktime(&copy)) << describe(wall, asked);
                    }
                }
            }
        }
    }
}

}  // namespace
}  // namespace morvax
