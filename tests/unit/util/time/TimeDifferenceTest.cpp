#include "util/time/TimeDifference.h"

#include <gtest/gtest.h>

namespace morvax {
namespace {

Str differenceText(uint64_t laterTicks, uint64_t earlierTicks) {
    const uint64_t base = Timeval::UNIX_EPOCH_TICKS;
    return TimeDifference(Timeval(base + laterTicks), Timeval(base + earlierTicks)).toText();
}

constexpr uint64_t US = 10;  // ticks per microsecond

TEST(TimeDifferenceTest, UnitsAndPrecision) {
    EXPECT_EQ(differenceText(1 * US, 0), "1 microsecond");
    EXPECT_EQ(differenceText(0, 1 * US), "-1 microsecond");
    EXPECT_EQ(differenceText(0, 0), "0 microseconds");
    EXPECT_EQ(differenceText(9, 0), "0 microseconds");
    EXPECT_EQ(differenceText(3000 * US, 0), "3000 microseconds");
    EXPECT_EQ(differenceText(3001 * US, 0), "3.001 milliseconds");
    EXPECT_EQ(differenceText(12345 * US, 0), "12.35 milliseconds");
    EXPECT_EQ(differenceText(9949 * US, 0), "9.949 milliseconds");
    // "%5.*f": short values are padded to five characters.
    EXPECT_EQ(differenceText(9950 * US, 0), " 9.95 milliseconds");
    EXPECT_EQ(differenceText(99500 * US, 0), " 99.5 milliseconds");
    EXPECT_EQ(differenceText(99499 * US, 0), "99.50 milliseconds");
    EXPECT_EQ(differenceText(3000000 * US, 0), "3000.0 milliseconds");
    EXPECT_EQ(differenceText(3500000 * US, 0), "3.500 seconds");
    EXPECT_EQ(differenceText(0, 3500000 * US), "-3.500 seconds");
    EXPECT_EQ(differenceText(250000000 * US, 0), "250.0 seconds");
    EXPECT_EQ(differenceText(8000000000ULL * US, 0), "8000.0 seconds");
    EXPECT_EQ(differenceText(9000000000ULL * US, 0), "2.500 hours");
    EXPECT_EQ(differenceText(36000000000ULL * US, 0), "10.00 hours");

    TimeDifference d(Timeval(10), Timeval(20));
    EXPECT_TRUE(d.isInteger());
    EXPECT_TRUE(d.isNegative());
    EXPECT_STREQ(d.unitText(), " microseconds");
    EXPECT_EQ(d.value(), 1.0);
}

}  // namespace
}  // namespace morvax
