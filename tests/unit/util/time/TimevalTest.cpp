#include "util/time/Timeval.h"

#include <gtest/gtest.h>

#include "support/DiagnosticsCapture.h"

#include <ctime>
#include <vector>

#include "util/time/StructTm.h"

namespace morvax {
namespace {

constexpr uint64_t EPOCH = Timeval::UNIX_EPOCH_TICKS;
constexpr uint64_t SECOND = Timeval::TICKS_PER_SECOND;

TEST(TimevalTest, ArithmeticSaturatesAndRounds) {
    EXPECT_EQ(Timeval::addInterval(Timeval::MAX_TIME, 1000), Timeval::MAX_TIME);
    EXPECT_EQ(Timeval::addInterval(Timeval::MAX_TIME, 0), Timeval::MAX_TIME);
    EXPECT_EQ(Timeval::addInterval(Timeval(5), 0), Timeval(5));
    EXPECT_EQ(Timeval::addInterval(Timeval(EPOCH), 1500), Timeval(EPOCH + 15000000));
    // The sum must stay within 63 bits.
    EXPECT_EQ(Timeval::addInterval(Timeval((uint64_t{1} << 63) - 10000), 1), Timeval::MAX_TIME);
    EXPECT_EQ(Timeval::addInterval(Timeval((uint64_t{1} << 63) - 10001), 1),
              Timeval((uint64_t{1} << 63) - 1));
    EXPECT_EQ(Timeval::addInterval(Timeval(0), ~uint64_t{0}), Timeval::MAX_TIME);

    EXPECT_EQ(Timeval::differenceMs(Timeval(EPOCH + 10000), Timeval(EPOCH)), 1u);
    EXPECT_EQ(Timeval::differenceMs(Timeval(EPOCH + 10001), Timeval(EPOCH)), 2u);
    EXPECT_EQ(Timeval::differenceMs(Timeval(EPOCH + 1), Timeval(EPOCH)), 1u);
    EXPECT_EQ(Timeval::differenceMs(Timeval(EPOCH), Timeval(EPOCH)), 0u);

    EXPECT_EQ(Timeval::differenceSeconds(Timeval(EPOCH + 29999999), Timeval(EPOCH)), 2);
    EXPECT_EQ(Timeval::differenceSeconds(Timeval(EPOCH), Timeval(EPOCH + 29999999)), -2);

    EXPECT_TRUE(Timeval(1).isBefore(Timeval(2)));
    EXPECT_FALSE(Timeval(2).isBefore(Timeval(2)));
    EXPECT_TRUE(Timeval(2).isNotAfter(Timeval(2)));
    EXPECT_TRUE(Timeval(5).isBefore(Timeval::MAX_TIME));
    Timeval t(7);
    t.setMax();
    EXPECT_TRUE(t.isMax());
    t.setZero();
    EXPECT_TRUE(t.isZero());
}

TEST(TimevalTest, FromSecondsLimits) {
    Timeval t(42);
    EXPECT_TRUE(t.fromSeconds(false, 1, 5));
    EXPECT_EQ(t.ticks(), EPOCH + SECOND + 5);
    EXPECT_TRUE(t.fromSeconds(true, 1, 5));
    EXPECT_EQ(t.ticks(), EPOCH - SECOND - 5);
    EXPECT_TRUE(t.fromSeconds(true, Timeval::MAX_SECONDS_BEFORE_EPOCH, 0));
    EXPECT_EQ(t, Timeval::MIN_TIME);

    t = Timeval(42);
    EXPECT_FALSE(t.fromSeconds(true, Timeval::MAX_SECONDS_BEFORE_EPOCH, 1));
    EXPECT_FALSE(t.fromSeconds(true, Timeval::MAX_SECONDS_BEFORE_EPOCH + 1, 0));
    EXPECT_FALSE(t.fromSeconds(false, 1833029933771ULL, 0));
    // Below the limit but past 2^64 once the ticks are added.
    EXPECT_FALSE(t.fromSeconds(false, 1833029933770ULL, 9999999));
    EXPECT_FALSE(t.fromSeconds(false, 0, 10000000));
    EXPECT_EQ(t.ticks(), 42u);
    EXPECT_TRUE(t.fromSeconds(false, 1833029933770ULL, 9551615));
    EXPECT_TRUE(t.isMax());
}

TEST(TimevalTest, DecimalSecondsBothWays) {
    Timeval t;
    ASSERT_TRUE(t.parseSeconds("1.5"));
    EXPECT_EQ(t.ticks(), EPOCH + 15000000);
    EXPECT_EQ(t.toDecimalSeconds(3), "1.500");
    EXPECT_EQ(t.toDecimalSeconds(0), "1");
    ASSERT_TRUE(t.parseSeconds("-1.3"));
    EXPECT_EQ(t.ticks(), EPOCH - 13000000);
    EXPECT_EQ(t.toDecimalSeconds(2), "-1.30");
    ASSERT_TRUE(t.parseSeconds("1700000000.123456789"));
    EXPECT_EQ(t.ticks(), EPOCH + 1700000000ULL * SECOND + 1234567);
    EXPECT_EQ(t.toDecimalSeconds(9), "1700000000.123456700");
    ASSERT_TRUE(t.parseSeconds("0"));
    EXPECT_EQ(t.ticks(), EPOCH);
    EXPECT_EQ(t.toDecimalSeconds(1), "0.0");
    EXPECT_EQ(Timeval::MIN_TIME.toDecimalSeconds(3), "0");

    Timeval unchanged(99);
    for (const char* bad :
         {"", "-", ".5", "1.", "1.2.3", "+1", "1e3", " 1", "1 ", "99999999999999999999"}) {
        EXPECT_FALSE(unchanged.parseSeconds(bad)) << bad;
    }
    EXPECT_EQ(unchanged.ticks(), 99u);
}

TEST(TimevalTest, UnixTimeAndEpochSplit) {
    EXPECT_EQ(Timeval(EPOCH - 1).unixTime(), 0);
    EXPECT_EQ(Timeval(EPOCH + 25 * SECOND + 1).unixTime(), 25);
    EXPECT_EQ(Timeval::fromUnixTime(25).ticks(), EPOCH + 25 * SECOND);
    EXPECT_EQ(Timeval::fromUnixTime(-1).ticks(), EPOCH - SECOND);
    EXPECT_EQ(Timeval::fromUnixTime(INT64_MIN), Timeval::MIN_TIME);
    EXPECT_EQ(Timeval::fromUnixTime(INT64_MAX), Timeval::MAX_TIME);

    int64_t seconds;
    uint32_t ticks;
    Timeval(EPOCH - 13000000).toEpochSeconds(seconds, ticks);
    EXPECT_EQ(seconds, -1);
    EXPECT_EQ(ticks, 3000000u);
    Timeval(EPOCH + 13000000).toEpochSeconds(seconds, ticks);
    EXPECT_EQ(seconds, 1);
    EXPECT_EQ(ticks, 3000000u);
}

TEST(TimevalTest, ClockOverride) {
    Timeval fixed(EPOCH + 1234 * SECOND);
    const Timeval* old = Timeval::setClockOverride(&fixed);
    EXPECT_EQ(Timeval::now(), fixed);
    fixed = Timeval(EPOCH + 99);
    EXPECT_EQ(Timeval::now().ticks(), EPOCH + 99);
    EXPECT_EQ(Timeval::coarseNow().ticks(), EPOCH + 99);
    EXPECT_EQ(Timeval::setClockOverride(old), &fixed);

    // The real clock: after 2020 and moving forward; the coarse one within a second of it.
    Timeval a = Timeval::now();
    EXPECT_GT(a.unixTime(), 1577836800);
    EXPECT_TRUE(a.isNotAfter(Timeval::now()));
    const Timeval coarse = Timeval::coarseNow();
    EXPECT_TRUE(coarse.isNotAfter(Timeval::addInterval(Timeval::now(), 1000)));
    EXPECT_TRUE(a.isNotAfter(Timeval::addInterval(coarse, 1000)));
}

TEST(TimevalTest, TextForms) {
    EXPECT_EQ(Timeval::MIN_TIME.toText(), "MIN_TIME");
    EXPECT_EQ(Timeval::MAX_TIME.toText(), "MAX_TIME");
    EXPECT_EQ(Timeval(EPOCH - SECOND).toText(), "INVALID_TIME (-1)");
    EXPECT_EQ(Timeval::fromUnixTime(32535244800LL).toText(), "INVALID_TIME (32535244800)");

    // The CRT's asctime layout, in local time as the platform computes it.
    const std::time_t instant = 1794670862;  // 2026-11-14 15:41:02 UTC
    std::tm expected = *std::localtime(&instant);
    char buffer[64];
    std::strftime(buffer, sizeof(buffer), "%a %b %d %H:%M:%S %Y", &expected);
    EXPECT_EQ(Timeval::fromUnixTime(instant).toText(), buffer);
}

TEST(TimevalTest, LocalCalendarMatchesPlatformAndFallsBack) {
    const std::time_t instant = 1794670862;
    std::tm expected = *std::localtime(&instant);
    LocalStructTmHires tm;
    Timeval(Timeval::fromUnixTime(instant).ticks() + 1234567).toLocalHires(tm);
    EXPECT_EQ(tm.tm_year, expected.tm_year);
    EXPECT_EQ(tm.tm_yday, expected.tm_yday);
    EXPECT_EQ(tm.tm_hour, expected.tm_hour);
    EXPECT_EQ(tm.tm_min, expected.tm_min);
    EXPECT_EQ(tm.tm_sec, expected.tm_sec);
    EXPECT_EQ(tm.tm_isdst, expected.tm_isdst);
    EXPECT_EQ(tm.subSeconds, 1234567u);

    test::DiagnosticsCapture capture;
    Timeval::fromUnixTime(40000000000LL).toLocalHires(tm);
    EXPECT_EQ(tm.tm_year, 9999 - 1900);
    EXPECT_EQ(tm.tm_mon, 11);
    EXPECT_EQ(tm.tm_mday, 31);
    EXPECT_EQ(tm.tm_hour, 23);
    EXPECT_EQ(tm.tm_wday, 5);
    EXPECT_EQ(tm.tm_yday, 364);
    EXPECT_EQ(tm.subSeconds, 9999999u);

    LocalStructTm plain;
    Timeval(EPOCH - 5 * SECOND).toLocal(plain);
    EXPECT_EQ(plain.tm_year, 0);
    EXPECT_EQ(plain.tm_mon, 0);
    EXPECT_EQ(plain.tm_mday, 1);
    EXPECT_EQ(plain.tm_hour, 0);
    EXPECT_EQ(plain.tm_wday, 1);

    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{"Timeval WARN _localtime64_s(40000000000) failed!",
                                        "Timeval WARN _localtime64_s(-5) failed!"}));
}

}  // namespace
}  // namespace morvax
