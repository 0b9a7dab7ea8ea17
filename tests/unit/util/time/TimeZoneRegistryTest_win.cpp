// The registry of the machine itself: Wine's, under test.

#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <cstdio>

#include "support/Calendar.h"
#include "support/Environment.h"
#include "util/time/LocalZone.h"
#include "util/time/StructTm.h"
#include "util/time/TimeZone.h"

namespace morvax {
namespace {

int64_t utcOf(int year, int month, int day, int hour = 0) {
    return GmtStructTm::calendarToSeconds(test::calendar(year, month, day, hour));
}

TEST(TimeZoneRegistryWindowsTest, ZonesOfTheRegistry) {
    TimeZone tokyo;
    ASSERT_TRUE(loadZoneFromRegistry(tokyo, "Tokyo Standard Time", 0));
    for (int64_t t : {utcOf(2024, 1, 15), utcOf(2024, 7, 15)}) {
        TimeZone::Reading reading = tokyo.at(t);
        EXPECT_EQ(reading.offset, 9 * 3600);
        EXPECT_FALSE(reading.daylight);
        EXPECT_STREQ(reading.abbreviation, "Tokyo Standard Time");
    }

    TimeZone pacific;
    ASSERT_TRUE(loadZoneFromRegistry(pacific, "Pacific Standard Time", 0));
    EXPECT_STREQ(pacific.at(utcOf(2024, 1, 15)).abbreviation, "Pacific Standard Time");
    EXPECT_EQ(pacific.at(utcOf(2024, 1, 15)).offset, -8 * 3600);
    TimeZone::Reading summer = pacific.at(utcOf(2024, 7, 15));
    EXPECT_STREQ(summer.abbreviation, "Pacific Daylight Time");
    EXPECT_EQ(summer.offset, -7 * 3600);
    EXPECT_TRUE(summer.daylight);
    // The second Sunday of March and the first of November, at 2:00 local time.
    EXPECT_FALSE(pacific.at(utcOf(2024, 3, 10, 10) - 1).daylight);
    EXPECT_TRUE(pacific.at(utcOf(2024, 3, 10, 10)).daylight);
    EXPECT_TRUE(pacific.at(utcOf(2024, 11, 3, 9) - 1).daylight);
    EXPECT_FALSE(pacific.at(utcOf(2024, 11, 3, 9)).daylight);
    // A year of the key's "Dynamic DST" rules, when it has them: the first Sunday of April.
    if (!pacific.transitionTimes().empty()) {
        EXPECT_FALSE(pacific.at(utcOf(2005, 3, 20)).daylight);
        EXPECT_TRUE(pacific.at(utcOf(2005, 4, 3, 10)).daylight);
    }

    TimeZone unchanged = tokyo;
    EXPECT_FALSE(loadZoneFromRegistry(unchanged, "Nowhere Standard Time", 0));
    EXPECT_EQ(unchanged.id().view(), "Tokyo Standard Time");
}

TEST(TimeZoneRegistryWindowsTest, LocalZoneAgreesWithTheRuntime) {
    TimeZone zone;
    Str id;
    uint32_t flags = 0;
    ASSERT_TRUE(findLocalZone(zone, id, flags, false));
    std::printf("local zone: %s, flags %u, %zu transitions\n", id.c_str(), flags,
                zone.transitionTimes().size());
    ASSERT_TRUE(zone.loaded());

    // The runtime knows the zone's present rule only: compared from the last transition on.
    _tzset();
    int64_t first = utcOf(2010, 1, 1);
    if (!zone.transitionTimes().empty()) {
        first = std::max(first, zone.transitionTimes().back());
    }
    for (int64_t t = first; t < utcOf(2037, 1, 1); t += 6 * 3600 + 7 * 60 + 13) {
        __time64_t instant = t;
        std::tm theirs{};
        ASSERT_EQ(_localtime64_s(&theirs, &instant), 0);
        std::tm ours{};
        ASSERT_TRUE(zone.toCalendar(t, ours));
        ASSERT_EQ(GmtStructTm::calendarToSeconds(ours), GmtStructTm::calendarToSeconds(theirs))
            << t;
        ASSERT_EQ(ours.tm_isdst, theirs.tm_isdst) << t;
        ASSERT_STREQ(zone.at(t).abbreviation, _tzname[theirs.tm_isdst > 0 ? 1 : 0]) << t;
    }

    // TZ naming a key of the zone table.
    test::ScopedEnvironment tz("TZ", "Tokyo Standard Time");
    ASSERT_TRUE(findLocalZone(zone, id, flags, true));
    EXPECT_EQ(id.view(), "Tokyo Standard Time");
    EXPECT_EQ(zone.at(utcOf(2024, 7, 15)).offset, 9 * 3600);
}

}  // namespace
}  // namespace morvax
