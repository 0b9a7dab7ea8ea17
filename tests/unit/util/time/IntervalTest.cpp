#include "util/time/Interval.h"

#include <gtest/gtest.h>

#include <string>

#include "support/TextSink.h"
#include "util/time/MonotonicTime.h"
#include "util/time/Sleep.h"

namespace morvax {
namespace {

uint64_t parsed(const char* text) {
    uint64_t value = 777777;
    EXPECT_TRUE(Interval::parse(text, value)) << text;
    return value;
}

TEST(IntervalTest, ParseRoundsToMilliseconds) {
    EXPECT_EQ(parsed("0.0001"), 1u);
    EXPECT_EQ(parsed("0.00001"), 1u);  // a later digit still tells the value is not zero
    EXPECT_EQ(parsed("1.2345"), 1235u);
    EXPECT_EQ(parsed("1.23449"), 1234u);
    EXPECT_EQ(parsed("1.0004"), 1000u);
    EXPECT_EQ(parsed("0"), 0u);
    EXPECT_EQ(parsed("0.0000"), 0u);
    EXPECT_EQ(parsed("5"), 5000u);
    EXPECT_EQ(parsed("5."), 5000u);
    EXPECT_EQ(parsed(".5"), 500u);
    EXPECT_EQ(parsed("18446744073709551"), 18446744073709551000u);
    EXPECT_EQ(parsed("18446744073709551.9999"), Interval::FOREVER);
    EXPECT_EQ(parsed("18446744073709552"), Interval::FOREVER);
    EXPECT_EQ(parsed("99999999999999999999999"), Interval::FOREVER);

    uint64_t value = 42;
    for (const char* bad : {".", "", "-1", "1.2.3", "1s", " 1", "abc", "1,5"}) {
        EXPECT_FALSE(Interval::parse(bad, value)) << bad;
    }
    EXPECT_EQ(value, 42u);
}

TEST(IntervalTest, MicrosecondsAndText) {
    EXPECT_EQ(Interval::fromMicroseconds(0), 0u);
    EXPECT_EQ(Interval::fromMicroseconds(1), 1u);
    EXPECT_EQ(Interval::fromMicroseconds(1000), 1u);
    EXPECT_EQ(Interval::fromMicroseconds(1001), 2u);
    EXPECT_EQ(Interval::fromMicroseconds(Interval::FOREVER), Interval::FOREVER);
    EXPECT_EQ(Interval::fromMicroseconds(Interval::FOREVER - 1), 0x4189374BC6A7F0u);
    EXPECT_EQ(Interval::fromMicroseconds(Interval::FOREVER - 998), 0x4189374BC6A7F0u);
    EXPECT_EQ(Interval::fromMicroseconds(Interval::FOREVER - 999), 0x4189374BC6A7EFu);
    EXPECT_EQ(Interval::forever(), ~uint64_t{0});

    EXPECT_EQ(Interval::toText(1235), "1.235");
    EXPECT_EQ(Interval::toText(5), "0.005");
    EXPECT_EQ(Interval::toText(0), "0.000");
    EXPECT_EQ(Interval::toText(Interval::FOREVER), "18446744073709551.615");
}

TEST(IntervalTest, CrashSafePrinter) {
    test::TextSink sink;
    Interval::printCrashSafe(0, sink);
    sink.text += '|';
    Interval::printCrashSafe(Interval::FOREVER, sink);
    sink.text += '|';
    Interval::printCrashSafe(0x123456789ABCDEF0ULL, sink);
    sink.text += '|';
    Interval::printCrashSafe(1, sink);
    EXPECT_EQ(sink.text, "<zero>|<max>|123456789ABCDEF0|0000000000000001");
}

TEST(IntervalTest, MonotonicClockHookAndSleep) {
    uint64_t fake = 123456;
    const uint64_t* old = MonotonicTime::setTestHook(&fake);
    EXPECT_EQ(MonotonicTime::now(), 123456u);
    fake += 5;
    EXPECT_EQ(MonotonicTime::now(), 123461u);
    EXPECT_EQ(MonotonicTime::setTestHook(old), &fake);

    uint64_t before = MonotonicTime::now();
    sleep(0);
    sleep(40);
    uint64_t after = MonotonicTime::now();
    EXPECT_GE(after, before);
    // The tick counter may be as coarse as 16 ms.
    EXPECT_GE(after - before + 16, 40u);
}

}  // namespace
}  // namespace morvax
