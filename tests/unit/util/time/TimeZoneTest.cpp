#include "util/time/TimeZone.h"

#include <gtest/gtest.h>

#include <string>

#include "support/Calendar.h"
#include "util/time/PosixZoneRule.h"
#include "util/time/StructTm.h"
#include "util/time/TimeZoneProvider.h"

namespace morvax {
namespace {

using test::calendar;

int64_t utcOf(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    return GmtStructTm::calendarToSeconds(calendar(year, month, day, hour, minute, second));
}

TimeZone zoneOfRule(const char* text) {
    TimeZone zone;
    EXPECT_TRUE(TimeZone::fromRule(text, zone)) << text;
    return zone;
}

TEST(TimeZoneTest, RulesParse) {
    PosixZoneRule rule;
    ASSERT_TRUE(PosixZoneRule::parse("EST5EDT,M3.2.0,M11.1.0", rule));
    EXPECT_EQ(rule.standardName, "EST");
    EXPECT_EQ(rule.standardOffset, -5 * 3600);
    EXPECT_EQ(rule.daylightName, "EDT");
    EXPECT_EQ(rule.daylightOffset, -4 * 3600);
    EXPECT_EQ(rule.start,
              (PosixZoneRule::Date{PosixZoneRule::Date::MONTH_WEEK_DAY, 0, 3, 2, 7200}));
    EXPECT_EQ(rule.end, (PosixZoneRule::Date{PosixZoneRule::Date::MONTH_WEEK_DAY, 0, 11, 1, 7200}));

    ASSERT_TRUE(PosixZoneRule::parse("<+0530>-5:30", rule));
    EXPECT_EQ(rule.standardName, "+0530");
    EXPECT_EQ(rule.standardOffset, 5 * 3600 + 30 * 60);
    EXPECT_FALSE(rule.hasDaylight);

    // Daylight time without dates: an hour ahead, on the US dates.
    ASSERT_TRUE(PosixZoneRule::parse("AAA3BBB", rule));
    EXPECT_EQ(rule.daylightOffset, -2 * 3600);
    EXPECT_EQ(rule.start.month, 3);
    EXPECT_EQ(rule.end.month, 11);

    ASSERT_TRUE(PosixZoneRule::parse("<-03>+3:00:00<-02>,J60/-2:30:15,300/167", rule));
    EXPECT_EQ(rule.start, (PosixZoneRule::Date{PosixZoneRule::Date::JULIAN, 60, 0, 0, -9015}));
    EXPECT_EQ(rule.end,
              (PosixZoneRule::Date{PosixZoneRule::Date::DAY_OF_YEAR, 300, 0, 0, 167 * 3600}));

    for (const char* bad :
         {"", "EST", "ES5", "<AB>5", "<A B>5", "EST25", "EST5:60", "EST5EDT,M13.1.0,M11.1.0",
          "EST5EDT,M3.6.0,M11.1.0", "EST5EDT,M3.2.7,M11.1.0", "EST5EDT,J0,J365", "EST5EDT,366,1",
          "EST5EDT,M3.2.0/168,M11.1.0", "EST5EDT,M3.2.0", "EST5EDT,M3.2.0,",
          "EST5EDT,M3.2.0,M11.1.0x", "EST5EDT4x", "EST5 "}) {
        EXPECT_FALSE(PosixZoneRule::parse(bad, rule)) << bad;
    }
    std::string longName = "<" + std::string(PosixZoneRule::MAX_TEXT, 'A') + ">5";
    EXPECT_FALSE(PosixZoneRule::parse(std::string_view(longName), rule));
}

TEST(TimeZoneTest, RuleChangesAndReadings) {
    PosixZoneRule rule;
    ASSERT_TRUE(PosixZoneRule::parse("EST5EDT,M3.2.0,M11.1.0", rule));
    int64_t into;
    int64_t outOf;
    rule.changesOfYear(2024, into, outOf);
    EXPECT_EQ(into, utcOf(2024, 3, 10, 7));
    EXPECT_EQ(outOf, utcOf(2024, 11, 3, 6));

    // Day forms in a leap year: J60 is 1 March, day 59 is 29 February, M2.5.4 the last
    // Thursday of February.
    ASSERT_TRUE(PosixZoneRule::parse("AAA0BBB-1,J60/0,59/1", rule));
    rule.changesOfYear(2024, into, outOf);
    EXPECT_EQ(into, utcOf(2024, 3, 1));
    EXPECT_EQ(outOf, utcOf(2024, 2, 29));
    ASSERT_TRUE(PosixZoneRule::parse("AAA0BBB-1,M2.5.4/0,M5.5.0/1", rule));
    rule.changesOfYear(2024, into, outOf);
    EXPECT_EQ(into, utcOf(2024, 2, 29));
    EXPECT_EQ(outOf, utcOf(2024, 5, 26));

    // A southern zone is in daylight time over New Year.
    TimeZone lordHowe = zoneOfRule("<+1030>-10:30<+11>-11,M10.1.0,M4.1.0");
    TimeZone::Reading summer = lordHowe.at(utcOf(2025, 1, 1));
    EXPECT_EQ(summer.offset, 11 * 3600);
    EXPECT_TRUE(summer.daylight);
    EXPECT_STREQ(summer.abbreviation, "+11");
    TimeZone::Reading winter = lordHowe.at(utcOf(2025, 7, 1));
    EXPECT_EQ(winter.offset, 10 * 3600 + 1800);
    EXPECT_FALSE(winter.daylight);
    EXPECT_STREQ(winter.abbreviation, "+1030");
    // 2:00 local standard time on 5 October 2025 is 15:30 UTC the day before.
    EXPECT_EQ(lordHowe.nextChange(utcOf(2025, 7, 1)), utcOf(2025, 10, 4, 15, 30));
}

TEST(TimeZoneTest, LocalTimesAroundChangesAsMktime) {
    TimeZone newYork = zoneOfRule("EST5EDT,M3.2.0,M11.1.0");
    auto utcOfLocal = [&](int month, int day, int hour, int minute, int isdst) {
        std::tm tm = calendar(2021, month, day, hour, minute);
        tm.tm_isdst = isdst;
        int64_t utc = 0;
        EXPECT_TRUE(newYork.toUtc(tm, utc));
        return utc;
    };
    // 02:30 on 14 March does not exist.
    EXPECT_EQ(utcOfLocal(3, 14, 2, 30, -1), utcOf(2021, 3, 14, 7, 30));
    EXPECT_EQ(utcOfLocal(3, 14, 2, 30, 0), utcOf(2021, 3, 14, 7, 30));
    EXPECT_EQ(utcOfLocal(3, 14, 2, 30, 1), utcOf(2021, 3, 14, 6, 30));
    // 01:30 on 7 November comes twice.
    EXPECT_EQ(utcOfLocal(11, 7, 1, 30, -1), utcOf(2021, 11, 7, 5, 30));
    EXPECT_EQ(utcOfLocal(11, 7, 1, 30, 1), utcOf(2021, 11, 7, 5, 30));
    EXPECT_EQ(utcOfLocal(11, 7, 1, 30, 0), utcOf(2021, 11, 7, 6, 30));
    // A daylight flag that no reading has takes the offset of the nearest time that has it.
    EXPECT_EQ(utcOfLocal(7, 1, 12, 0, 0), utcOf(2021, 7, 1, 17));
    EXPECT_EQ(utcOfLocal(1, 1, 12, 0, 1), utcOf(2021, 1, 1, 16));

    // Where no time has the flag asked for, an hour's shift.
    TimeZone utc = TimeZone::fixed(0, "UTC", "UTC");
    std::tm tm = calendar(2021, 7, 1, 12);
    tm.tm_isdst = 1;
    int64_t seconds = 0;
    ASSERT_TRUE(utc.toUtc(tm, seconds));
    EXPECT_EQ(seconds, utcOf(2021, 7, 1, 11));

    // The provider over the zone answers for the reading chosen.
    ZoneTimeZoneProvider provider(newYork);
    std::tm skipped = calendar(2021, 3, 14, 2, 30);
    EXPECT_EQ(provider.epochSeconds(skipped), utcOf(2021, 3, 14, 7, 30));
    EXPECT_EQ(provider.offsetSeconds(skipped), -4 * 3600);
    char name[4];
    EXPECT_EQ(provider.zoneName(skipped, name, sizeof(name)), 3u);
    EXPECT_STREQ(name, "EDT");
}

TEST(TimeZoneTest, UnloadedZoneAndBounds) {
    TimeZone empty;
    EXPECT_FALSE(empty.loaded());
    EXPECT_EQ(empty.at(0).offset, TimeZone::UNKNOWN_OFFSET);
    std::tm tm{};
    int64_t seconds = 0;
    EXPECT_FALSE(empty.toCalendar(0, tm));
    EXPECT_FALSE(empty.toUtc(calendar(2021, 1, 1), seconds));
    ZoneTimeZoneProvider provider(empty);
    EXPECT_EQ(provider.offsetSeconds(calendar(2021, 1, 1)), TimeZoneProvider::UNKNOWN_OFFSET);
    EXPECT_EQ(provider.epochSeconds(calendar(2021, 1, 1)), TimeZoneProvider::INVALID_SECONDS);

    TimeZone zone;
    EXPECT_EQ(zone.addType(TimeZone::MAX_OFFSET + 1, false, "X"), -1);
    EXPECT_EQ(zone.addType(-TimeZone::MAX_OFFSET - 1, false, "X"), -1);
    EXPECT_EQ(zone.addType(3600, true, std::string_view("A\0B", 3)), -1);
    // Equal types are one; the first standard type rules the times before the first transition.
    EXPECT_EQ(zone.addType(3600, true, "DST"), 0);
    EXPECT_EQ(zone.addType(0, false, "STD"), 1);
    EXPECT_EQ(zone.addType(3600, true, "DST"), 0);
    EXPECT_EQ(zone.at(0).offset, 0);
    for (int i = 2; i < static_cast<int>(TimeZone::MAX_TYPES); ++i) {
        ASSERT_EQ(zone.addType(i, false, "STD"), i);
    }
    EXPECT_EQ(zone.addType(-1, false, "STD"), -1);
    EXPECT_EQ(zone.typeCount(), TimeZone::MAX_TYPES);

    EXPECT_FALSE(zone.addTransition(0, 256));
    for (size_t i = 0; i < TimeZone::MAX_TRANSITIONS; ++i) {
        ASSERT_TRUE(zone.addTransition(static_cast<int64_t>(i) * 10, static_cast<int>(i % 2)));
    }
    EXPECT_FALSE(zone.addTransition(INT64_MAX, 0));
    EXPECT_FALSE(zone.toUtc(calendar(2000000000, 1, 1), seconds));

    // Five abbreviations of 200 bytes fill the pool.
    TimeZone pool;
    std::string name(200, 'a');
    for (char c : {'a', 'b', 'c', 'd', 'e'}) {
        name[0] = c;
        EXPECT_GE(pool.addType(0, false, std::string_view(name)), 0);
    }
    name[0] = 'z';
    EXPECT_EQ(pool.addType(0, false, std::string_view(name)), -1);
}

}  // namespace
}  // namespace morvax
