#include "util/time/StructTm.h"

#include <gtest/gtest.h>

#include <ctime>
#include <vector>

#include "support/Calendar.h"
#include "support/DiagnosticsCapture.h"

namespace morvax {
namespace {

using test::calendar;

void expectCalendar(const std::tm& tm, int year, int month, int day, int hour, int minute,
                    int second, int weekday, int dayOfYear) {
    EXPECT_EQ(tm.tm_year + 1900, year);
    EXPECT_EQ(tm.tm_mon + 1, month);
    EXPECT_EQ(tm.tm_mday, day);
    EXPECT_EQ(tm.tm_hour, hour);
    EXPECT_EQ(tm.tm_min, minute);
    EXPECT_EQ(tm.tm_sec, second);
    EXPECT_EQ(tm.tm_wday, weekday);
    EXPECT_EQ(tm.tm_yday, dayOfYear);
}

TEST(StructTmTest, GmtArithmetic) {
    struct Case {
        int64_t seconds;
        int year, month, day, hour, minute, second, weekday, dayOfYear;
    };
    const Case cases[] = {
        {0, 1970, 1, 1, 0, 0, 0, 4, 0},
        {-1, 1969, 12, 31, 23, 59, 59, 3, 364},
        {951782400, 2000, 2, 29, 0, 0, 0, 2, 59},
        {1794670862, 2026, 11, 14, 15, 41, 2, 6, 317},
        {-11644473600LL, 1601, 1, 1, 0, 0, 0, 1, 0},
        {4107542399LL, 2100, 2, 28, 23, 59, 59, 0, 58},
        {32535244799LL, 3001, 1, 1, 7, 59, 59, 4, 0},
    };
    for (const Case& c : cases) {
        GmtStructTm tm;
        ASSERT_TRUE(tm.fromUnixTime(c.seconds)) << c.seconds;
        expectCalendar(tm, c.year, c.month, c.day, c.hour, c.minute, c.second, c.weekday,
                       c.dayOfYear);
        int64_t back = 0;
        ASSERT_TRUE(tm.toUnixTime(back));
        EXPECT_EQ(back, c.seconds);
    }
    GmtStructTm tm;
    EXPECT_FALSE(tm.fromUnixTime(32535244800LL));
    EXPECT_FALSE(tm.fromUnixTime(-11644473601LL));

    // Fields out of range carry over, as timegm does.
    EXPECT_EQ(GmtStructTm::calendarToSeconds(calendar(2026, 13, 1)),
              GmtStructTm::calendarToSeconds(calendar(2027, 1, 1)));
    EXPECT_EQ(GmtStructTm::calendarToSeconds(calendar(2026, 1, 0)),
              GmtStructTm::calendarToSeconds(calendar(2025, 12, 31)));
    EXPECT_EQ(GmtStructTm::calendarToSeconds(calendar(2026, 3, 1, 24, 0, 60)),
              GmtStructTm::calendarToSeconds(calendar(2026, 3, 2, 0, 1, 0)));
    std::tm minusMonth = calendar(2026, 1, 1);
    minusMonth.tm_mon = -1;
    EXPECT_EQ(GmtStructTm::calendarToSeconds(minusMonth),
              GmtStructTm::calendarToSeconds(calendar(2025, 12, 1)));
}

TEST(StructTmTest, FailuresAreLogged) {
    test::DiagnosticsCapture capture;
    int64_t seconds = 0;
    GmtStructTm gmt;
    static_cast<std::tm&>(gmt) = calendar(3002, 1, 2, 3, 4, 5);
    EXPECT_FALSE(gmt.toUnixTime(seconds));

    StructTmInTimezone zoned(3600);
    static_cast<std::tm&>(zoned) = calendar(1500, 6, 7, 8, 9, 10);
    EXPECT_FALSE(zoned.toUnixTime(seconds));
    EXPECT_FALSE(zoned.fromUnixTime(40000000000LL));

    StructTmInTimezoneHires hires(0);
    EXPECT_FALSE(hires.fromTimeval(Timeval::MAX_TIME));

    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{
                  "Timeval WARN GmtStructTm::toUnixTime(3002-1-2 3:04:05) failed!",
                  "Timeval WARN StructTmInTimezone::toUnixTime(1500-6-7 8:09:10) failed!",
                  "Timeval WARN StructTmInTimezone::fromUnixTime(40000000000) failed!",
                  "Timeval WARN StructTmInTimezoneHires::fromUnixTime(1833029933770) failed!"}));
}

TEST(StructTmTest, ZonedRecordsRoundTrip) {
    StructTmInTimezoneHires tm(-5 * 3600);
    Timeval instant(Timeval::fromUnixTime(1794670862).ticks() + 1234567);
    ASSERT_TRUE(tm.fromTimeval(instant));
    expectCalendar(tm, 2026, 11, 14, 10, 41, 2, 6, 317);
    EXPECT_EQ(tm.subSeconds, 1234567u);
    EXPECT_EQ(tm.tm_isdst, 0);
    Timeval back;
    ASSERT_TRUE(tm.toTimeval(back));
    EXPECT_EQ(back, instant);

    // Across the date line eastward.
    StructTmInTimezone east(14 * 3600);
    ASSERT_TRUE(east.fromUnixTime(1794670862));
    expectCalendar(east, 2026, 11, 15, 5, 41, 2, 0, 318);

    // Before the epoch the sub-second part counts away from it.
    StructTmInTimezoneHires utc(0);
    Timeval early(Timeval::UNIX_EPOCH_TICKS - 13000000);
    ASSERT_TRUE(utc.fromTimeval(early));
    EXPECT_EQ(utc.tm_sec, 59);
    EXPECT_EQ(utc.subSeconds, 3000000u);
    ASSERT_TRUE(utc.toTimeval(back));
    EXPECT_EQ(back, early);
}

TEST(StructTmTest, LocalRecordsFollowThePlatform) {
    // The platform's own reading of the same instants, whatever the machine's zone.
    for (std::time_t instant :
         {std::time_t{86400 * 200}, std::time_t{1794670862}, std::time_t{1719835200}}) {
        std::tm expected = *std::localtime(&instant);
        LocalStructTm tm;
        ASSERT_TRUE(tm.fromUnixTime(instant));
        expectCalendar(tm, expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday,
                       expected.tm_hour, expected.tm_min, expected.tm_sec, expected.tm_wday,
                       expected.tm_yday);
        int64_t back = 0;
        ASSERT_TRUE(tm.toUnixTime(back));
        EXPECT_EQ(back, instant);

        const TimeZoneProvider& local = TimeZoneProvider::local();
        EXPECT_EQ(local.epochSeconds(tm), instant);
        EXPECT_EQ(local.offsetSeconds(tm), GmtStructTm::calendarToSeconds(tm) - instant);
        char name[64];
        EXPECT_LT(local.zoneName(tm, name, sizeof(name)), sizeof(name));
    }
    LocalStructTm tm;
    EXPECT_FALSE(tm.fromUnixTime(-1));
    EXPECT_FALSE(tm.fromUnixTime(32535244800LL));

    LocalStructTmHires hires;
    ASSERT_TRUE(hires.fromTimeval(Timeval(Timeval::fromUnixTime(1794670862).ticks() + 5)));
    EXPECT_EQ(hires.subSeconds, 5u);
    Timeval back;
    ASSERT_TRUE(hires.toTimeval(back));
    EXPECT_EQ(back.ticks(), Timeval::fromUnixTime(1794670862).ticks() + 5);
}

TEST(StructTmTest, FixedOffsetProviderNames) {
    std::tm any{};
    char name[64];
    FixedOffsetTimeZoneProvider utc;
    EXPECT_EQ(utc.zoneName(any, name, sizeof(name)), 3u);
    EXPECT_STREQ(name, "UTC");
    FixedOffsetTimeZoneProvider west(-5 * 3600);
    west.zoneName(any, name, sizeof(name));
    EXPECT_STREQ(name, "UTC-05:00");
    FixedOffsetTimeZoneProvider odd(5 * 3600 + 30 * 60 + 15);
    odd.zoneName(any, name, sizeof(name));
    EXPECT_STREQ(name, "UTC+05:30:15");
    FixedOffsetTimeZoneProvider named(3600, "Central European Standard Time");
    EXPECT_EQ(named.zoneName(any, name, 8), 7u);
    EXPECT_STREQ(name, "Central");
    EXPECT_EQ(named.offsetSeconds(any), 3600);
    EXPECT_EQ(named.epochSeconds(calendar(1970, 1, 1, 1)), 0);
    EXPECT_EQ(TimeZoneProvider::utc().offsetSeconds(any), 0);
}

}  // namespace
}  // namespace morvax
