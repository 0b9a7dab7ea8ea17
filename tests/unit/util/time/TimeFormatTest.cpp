#include "util/time/TimeFormat.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "support/Calendar.h"
#include "util/time/StructTm.h"

namespace morvax {
namespace {

constexpr int32_t FIVE_WEST = -5 * 3600;

using test::utcTime;

// 2026-11-14 10:41:02.1234567 at -05:00, a Saturday.
const Timeval SAMPLE = utcTime(2026, 11, 14, 15, 41, 2, 1234567);

Str formatIn(const char* format, Timeval t, int32_t offset, const char* zoneName = nullptr) {
    TimeFormat compiled;
    EXPECT_TRUE(compiled.compile(format)) << format;
    StructTmInTimezoneHires tm(offset, zoneName);
    EXPECT_TRUE(tm.fromTimeval(t));
    Str out;
    compiled.format(tm, out);
    return out;
}

Str formatSample(const char* format) {
    return formatIn(format, SAMPLE, FIVE_WEST);
}

// The parsed time, or MAX_TIME when the parse fails; `end` receives the result.
Timeval parseIn(const char* format, const char* text, int32_t offset = 0, int64_t* end = nullptr,
                uint32_t* mismatches = nullptr) {
    TimeFormat compiled;
    EXPECT_TRUE(compiled.compile(format)) << format;
    FixedOffsetTimeZoneProvider zone(offset);
    Timeval out = Timeval::MAX_TIME;
    uint32_t count = 0;
    int64_t result = compiled.parse(out, text, zone, count);
    if (end) {
        *end = result;
    }
    if (mismatches) {
        *mismatches = count;
    }
    return result < 0 ? Timeval::MAX_TIME : out;
}

TEST(TimeFormatTest, DmtfBothWays) {
    const char* dmtf = "%Y%m%d%H%M%S.%6Q%03Ez";
    EXPECT_EQ(formatSample(dmtf), "20261114104102.123456-300");
    EXPECT_EQ(formatIn(dmtf, SAMPLE, 0), "20261114154102.123456+000");
    EXPECT_EQ(formatIn(dmtf, SAMPLE, 5 * 3600 + 1800), "20261114211102.123456+330");

    int64_t end = 0;
    const char* text = "20261114104102.123456-300";
    EXPECT_EQ(parseIn(dmtf, text, 0, &end), utcTime(2026, 11, 14, 15, 41, 2, 1234560));
    EXPECT_EQ(end, 25);
    // The offset in the text wins over the provider's zone.
    EXPECT_EQ(parseIn(dmtf, text, 9 * 3600), utcTime(2026, 11, 14, 15, 41, 2, 1234560));
    TimeFormat compiled;
    ASSERT_TRUE(compiled.compile(dmtf));
    Timeval local;
    EXPECT_EQ(compiled.parse(local, text, TimeZoneProvider::local()), 25);
    EXPECT_EQ(local, utcTime(2026, 11, 14, 15, 41, 2, 1234560));

    EXPECT_EQ(parseIn(dmtf, "20261114211102.123456+330"),
              utcTime(2026, 11, 14, 15, 41, 2, 1234560));
    // Years before 1971 fail, the DMTF "zero" date of 1601 among them.
    EXPECT_EQ(parseIn(dmtf, "16010101000000.000000+000"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn(dmtf, "19701231000000.000000+000"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn(dmtf, "19710101000000.000000+000"), utcTime(1971, 1, 1, 0, 0, 0));
    EXPECT_EQ(parseIn(dmtf, "30000101000000.000000+000"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn(dmtf, "2026111410410"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn(dmtf, "20261114104102.******+***"), Timeval::MAX_TIME);
}

TEST(TimeFormatTest, LocalTimeLineMatchesPlatform) {
    TimeFormat compiled;
    ASSERT_TRUE(compiled.compile("%Y%m%d%H%M%S.%6q"));
    LocalStructTmHires tm;
    SAMPLE.toLocalHires(tm);
    Str out;
    compiled.format(tm, out);

    std::time_t instant = static_cast<std::time_t>(SAMPLE.unixTime());
    char expected[64];
    std::strftime(expected, sizeof(expected), "%Y%m%d%H%M%S.123456", std::localtime(&instant));
    EXPECT_EQ(out, expected);

    // And back through the local zone.
    Timeval back;
    EXPECT_EQ(compiled.parse(back, out, TimeZoneProvider::local()), 21);
    EXPECT_EQ(back, utcTime(2026, 11, 14, 15, 41, 2, 1234560));
}

TEST(TimeFormatTest, LetterLMeansMillisecondsOrHour) {
    EXPECT_EQ(formatSample("%H:%M:%S,%l"), "10:41:02,123");
    EXPECT_EQ(formatSample("%Y-%m-%d %H:%M:%S.%l"), "2026-11-14 10:41:02.123");
    EXPECT_EQ(formatSample("%S%l"), "02123");
    EXPECT_EQ(formatSample("%s,%l"), "1794670862,123");
    EXPECT_EQ(formatSample("%l"), "10");
    EXPECT_EQ(formatIn("%l", SAMPLE, 0), " 3");
    EXPECT_EQ(formatIn("%l", utcTime(2026, 1, 1, 0, 5, 0), 0), "12");
    // Minutes but no hour: the %l is the hour, at the end.
    EXPECT_EQ(formatSample("%M:%S,%l"), "41:02,10");
    EXPECT_EQ(formatSample("%l:%M:%S,%l"), "10:41:02,123");
    EXPECT_EQ(formatSample("%S;%l"), "02;10");
    EXPECT_EQ(formatSample("%S,%_l"), "02,10");
    EXPECT_EQ(formatIn("%S,%0l", SAMPLE, 0), "02,03");
    EXPECT_EQ(formatSample("%d %b %Y %H:%M:%S,%l"), "14 Nov 2026 10:41:02,123");
}

TEST(TimeFormatTest, SubSecondDigitsAreTruncated) {
    EXPECT_EQ(formatSample("%3N"), "123");
    EXPECT_EQ(formatSample("%N"), "123456700");
    EXPECT_EQ(formatSample("%12N"), "123456700000");
    EXPECT_EQ(formatSample("%Q|%f|%q|%1N|%7N"), "123|123456|123456|1|1234567");
    EXPECT_EQ(formatIn("%6q", utcTime(2026, 1, 1, 0, 0, 0, 9999999), 0), "999999");
    // Before the epoch the value counts the other way.
    EXPECT_EQ(formatIn("%S.%3N", Timeval(Timeval::UNIX_EPOCH_TICKS - 13000000), 0), "59.700");
}

TEST(TimeFormatTest, ZoneOffsets) {
    const Timeval t = SAMPLE;
    EXPECT_EQ(formatIn("%Ez", t, 0), "+0");
    EXPECT_EQ(formatIn("%Ez", t, FIVE_WEST), "-300");
    EXPECT_EQ(formatIn("%Ez", t, 1800), "+30");
    EXPECT_EQ(formatIn("%03Ez", t, 0), "+000");
    EXPECT_EQ(formatIn("%05Ez", t, 0), "+0000");
    EXPECT_EQ(formatIn("%_6Ez", t, FIVE_WEST), "  -300");
    EXPECT_EQ(formatIn("%-9Ez", t, 60), "+1");
    EXPECT_EQ(formatIn("%03Ez", t, 20 * 3600), "+999");  // capped

    EXPECT_EQ(formatIn("%z", t, FIVE_WEST), "-0500");
    EXPECT_EQ(formatIn("%z", t, 0), "+0000");
    EXPECT_EQ(formatIn("%:z", t, 5 * 3600 + 1800), "+05:30");
    EXPECT_EQ(formatIn("%::z", t, 3600 + 125), "+01:02:05");
    EXPECT_EQ(formatIn("%:::z", t, FIVE_WEST), "-05");
    EXPECT_EQ(formatIn("%:::z", t, 5 * 3600 + 1800), "+05:30");
    EXPECT_EQ(formatIn("%:::z", t, 3600 + 125), "+01:02:05");
    EXPECT_EQ(formatIn("%8z", t, 3600), "+0000100");
    EXPECT_EQ(formatIn("%_8z", t, 3600), "   +0100");
    EXPECT_EQ(formatIn("%z", t, 100 * 3600), "+9900");

    EXPECT_EQ(formatIn("%Z|%10Z|%^Z", t, 3600, "cet"), "cet|       cet|CET");

    class UnknownZone : public FixedOffsetTimeZoneProvider {
      public:
        int32_t offsetSeconds(const std::tm&) const override { return UNKNOWN_OFFSET; }
    };
    TimeFormat compiled;
    ASSERT_TRUE(compiled.compile("[%z%Ez]"));
    Str out;
    compiled.format(std::tm{}, out, 0, UnknownZone());
    EXPECT_EQ(out, "[]");
}

TEST(TimeFormatTest, NumbersAndNames) {
    EXPECT_EQ(formatSample("%Y %o %C %y %G %g %m %U %W %V %d %e %j %w %u"),
              "2026 2026 20 26 2026 26 11 45 45 46 14 14 318 6 6");
    EXPECT_EQ(formatSample("%H %k %I %M %S %p %P %#p %^P"), "10 10 10 41 02 AM am am AM");
    EXPECT_EQ(formatSample("%a|%A|%b|%h|%B|%^a|%#A|%2a|%5a|%-5a|%12B"),
              "Sat|Saturday|Nov|Nov|November|SAT|sATURDAY|Sa|  Sat|Sat|    November");
    const Timeval early = utcTime(2026, 3, 5, 7, 8, 9);
    EXPECT_EQ(formatIn("%d|%e|%-d|%#d|%_d|%5d|%-5d|%05e|%_m|%k", early, 0),
              "05| 5|5|5| 5|00005|5|00005| 3| 7");
    EXPECT_EQ(formatIn("%I %p|%u %w|%j|%U %W", utcTime(2026, 3, 8, 13, 0, 0), 0),
              "01 PM|7 0|067|10 09");
    EXPECT_EQ(formatIn("%G-W%V-%u %g", utcTime(2021, 1, 3, 0, 0, 0), 0), "2020-W53-7 20");
    EXPECT_EQ(formatIn("%G %V", utcTime(2026, 12, 31, 0, 0, 0), 0), "2026 53");
    EXPECT_EQ(formatIn("%G %V", utcTime(2024, 12, 30, 0, 0, 0), 0), "2025 01");

    EXPECT_EQ(formatSample("%s"), "1794670862");
    const Timeval beforeEpoch = utcTime(1969, 12, 31, 23, 59, 50);
    EXPECT_EQ(formatIn("%s|%05s|%_5s|%2s|%Y", beforeEpoch, 0), "-10|-0010|  -10|-10|1969");
    EXPECT_EQ(formatIn("%C %y", utcTime(1999, 1, 1, 0, 0, 0), 0), "19 99");

    std::tm odd{};
    odd.tm_wday = 9;
    odd.tm_mon = 12;
    TimeFormat compiled;
    ASSERT_TRUE(compiled.compile("%a %A %b %B"));
    Str out;
    compiled.format(odd, out, 0, TimeZoneProvider::utc());
    EXPECT_EQ(out, "??? ??? ??? ???");
}

TEST(TimeFormatTest, CompoundsAndLiterals) {
    EXPECT_EQ(formatSample("%c"), "Sat Nov 14 10:41:02 2026");
    EXPECT_EQ(formatSample("%#c"), "Saturday, November 14, 2026 10:41:02");
    EXPECT_EQ(formatSample("%x|%#x|%Ex|%EX|%Ec"),
              "11/14/26|Saturday, November 14, 2026|11/14/26|10:41:02|Sat Nov 14 10:41:02 2026");
    EXPECT_EQ(formatSample("%D|%F|%R|%T|%X|%r|%v"),
              "11/14/26|2026-11-14|10:41|10:41:02|10:41:02|10:41:02 AM|14-Nov-2026");
    EXPECT_EQ(formatIn("%+", SAMPLE, FIVE_WEST, "EST"), "Sat Nov 14 10:41:02 EST 2026");
    EXPECT_EQ(formatSample("100%% at%n%t|"), "100% at\n\t|");
    EXPECT_EQ(formatSample("%Oy %Om %OB %OS %EY %EC %Ey"), "26 11 November 02 2026 20 26");

    Str appended("keep:");
    TimeFormat compiled;
    ASSERT_TRUE(compiled.compile("%Y"));
    compiled.format(StructTmInTimezoneHires(0), appended);
    EXPECT_EQ(appended, "keep:1900");
}

TEST(TimeFormatTest, CompileRejectsBadFormats) {
    const char* bad[] = {"",     "%",    "abc%", "%K",  "%5%", "%E%",   "%Ed",  "%OY",  "%Oe",
                         "%0a",  "%1a",  "%1b",  "%2h", "%0B", "%_Q",   "%-3N", "%^N",  "%#q",
                         "%5D",  "%#D",  "%^c",  "%_c", "%Oc", "%ED",   "%:d",  "%:Ez", "%::::z",
                         "%_^d", "%^#d", "%__d", "%5n", "%Et", "%2000d"};
    for (const char* format : bad) {
        TimeFormat compiled;
        EXPECT_FALSE(compiled.compile(format)) << format;
        EXPECT_FALSE(compiled.isCompiled()) << format;
        Timeval out;
        EXPECT_EQ(compiled.parse(out, "2026", TimeZoneProvider::utc()), -1) << format;
    }
    TimeFormat reused;
    ASSERT_TRUE(reused.compile("%Y"));
    EXPECT_FALSE(reused.compile("%Y%"));
    EXPECT_TRUE(reused.atoms().empty());
    EXPECT_TRUE(reused.compile("%^_5d %#c %0:z %Oy %2a %3b"));
}

TEST(TimeFormatTest, AtomsAndSummary) {
    TimeFormat compiled;
    ASSERT_TRUE(compiled.compile("%H:%M:%S,%l"));
    ASSERT_EQ(compiled.atoms().size(), 7u);
    const TimeFormatAtom& last = compiled.atoms().back();
    EXPECT_EQ(last.field, TimeFormatField::SUB_SECONDS);
    EXPECT_EQ(last.width, 3u);
    EXPECT_EQ(last.fill, TimeFormatAtom::FILL_ZERO);
    EXPECT_EQ(compiled.literalText(compiled.atoms()[5]), ",");
    EXPECT_EQ(compiled.coarsest(), -2);
    EXPECT_EQ(compiled.finest(), 3);
    EXPECT_GE(compiled.estimatedLength(), 12u);

    ASSERT_TRUE(compiled.compile("%Y-%m-%d"));
    EXPECT_EQ(compiled.coarsest(), -6);
    EXPECT_EQ(compiled.finest(), -3);
    ASSERT_TRUE(compiled.compile("at  %n"));
    ASSERT_EQ(compiled.atoms().size(), 2u);
    EXPECT_EQ(compiled.atoms()[1].field, TimeFormatField::WHITESPACE);
    EXPECT_EQ(compiled.literalText(compiled.atoms()[1]), "  \n");
    EXPECT_EQ(compiled.coarsest(), -7);
    EXPECT_EQ(compiled.finest(), 1);
}

TEST(TimeFormatTest, ParseFieldsAndSeparators) {
    int64_t end = 0;
    const char* full = "%Y-%m-%d %H:%M:%S,%l";
    EXPECT_EQ(parseIn(full, "2026-11-14 10:41:02,123", FIVE_WEST, &end),
              utcTime(2026, 11, 14, 15, 41, 2, 1230000));
    EXPECT_EQ(end, 23);
    // '.' for ',', the fraction left out, white space stretched, trailing text left alone.
    EXPECT_EQ(parseIn(full, "2026-11-14 10:41:02.5", FIVE_WEST),
              utcTime(2026, 11, 14, 15, 41, 2, 5000000));
    EXPECT_EQ(parseIn(full, "2026-11-14 \t 10:41:02 and more", FIVE_WEST, &end),
              utcTime(2026, 11, 14, 15, 41, 2));
    EXPECT_EQ(end, 21);
    EXPECT_EQ(parseIn(full, "2026-11-14 10:41:02,", FIVE_WEST), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn(full, "2026/11/14 10:41:02", FIVE_WEST), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%Y-%m-%d", "  2026-11-14"), utcTime(2026, 11, 14, 0, 0, 0));
    EXPECT_EQ(parseIn("%S.%Q", "05.123456789"), utcTime(1970, 1, 1, 0, 0, 5, 1234567));

    // Ranges: hour 24 and second 60 carry over; month 13, minute 60, day 0 fail.
    EXPECT_EQ(parseIn("%Y-%m-%d %H:%M:%S", "2026-11-14 24:00:60"), utcTime(2026, 11, 15, 0, 1, 0));
    EXPECT_EQ(parseIn("%Y-%m-%d", "2026-13-01"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%Y-%m-%d", "2026-00-01"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%Y-%m-%d", "2026-01-00"), Timeval::MAX_TIME);
    // A minute of 60 gives its last digit back, leaving it unparsed.
    EXPECT_EQ(parseIn("%H:%M", "10:60", 0, &end), utcTime(1970, 1, 1, 10, 6, 0));
    EXPECT_EQ(end, 4);
    EXPECT_EQ(parseIn("%Y", "19999"), Timeval::MAX_TIME);
    // Runs of digits far beyond 64 bits stop growing instead of overflowing, and fail.
    const std::string nines(20, '9');
    EXPECT_EQ(parseIn("%s", nines.c_str()), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%s", ("-" + nines).c_str()), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%G-W%V-%u", (nines + "-W01-1").c_str()), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%C%y", "3026"), Timeval::MAX_TIME);

    // Digits shared with the next numeric atom, and given back to a literal.
    EXPECT_EQ(parseIn("%H%M%S", "104102"), utcTime(1970, 1, 1, 10, 41, 2));
    EXPECT_EQ(parseIn("%Y %j", "2026 4000", 0, &end), utcTime(2026, 2, 9, 0, 0, 0));
    EXPECT_EQ(end, 7);
    EXPECT_EQ(parseIn("%-m%%", "123%"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%Y %-m3", "2026 123"), utcTime(2026, 12, 1, 0, 0, 0));

    EXPECT_EQ(parseIn("%y%m%d", "261114"), utcTime(2026, 11, 14, 0, 0, 0));
    EXPECT_EQ(parseIn("%C%y-%m-%d", "2026-11-14"), utcTime(2026, 11, 14, 0, 0, 0));
    EXPECT_EQ(parseIn("%Y-%j", "2026-318"), utcTime(2026, 11, 14, 0, 0, 0));
    EXPECT_EQ(parseIn("%G-W%V-%u", "2026-W46-6"), utcTime(2026, 11, 14, 0, 0, 0));
    EXPECT_EQ(parseIn("%G-W%V-%u", "2021-W01-1"), utcTime(2021, 1, 4, 0, 0, 0));
    EXPECT_EQ(parseIn("%Y %U %w", "2026 45 6"), utcTime(2026, 11, 14, 0, 0, 0));
    EXPECT_EQ(parseIn("%Y %W %w", "2026 45 6"), utcTime(2026, 11, 14, 0, 0, 0));
}

TEST(TimeFormatTest, ParseNamesAndMeridiem) {
    const Timeval day = utcTime(2026, 11, 14, 0, 0, 0);
    EXPECT_EQ(parseIn("%a %b %d %Y", "sat NOV 14 2026"), day);
    EXPECT_EQ(parseIn("%A %B %d %Y", "Saturday november 14 2026"), day);
    EXPECT_EQ(parseIn("%a %B %d %Y", "SATURDAY Nov 14 2026"), day);
    EXPECT_EQ(parseIn("%a%b%d%Y", "SatNov142026"), day);
    EXPECT_EQ(parseIn("%2a %b %d %Y", "Sa Nov 14 2026"), day);
    EXPECT_EQ(parseIn("%a %b %d %Y", "Satu Nov 14 2026"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%a %b %d %Y", "Sat No 14 2026"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%c", "Sat Nov 14 10:41:02 2026"), utcTime(2026, 11, 14, 10, 41, 2));
    EXPECT_EQ(parseIn("%H:%M %Z", "10:41 EST"), utcTime(1970, 1, 1, 10, 41, 0));

    EXPECT_EQ(parseIn("%I:%M %p", "12:30 a.m."), utcTime(1970, 1, 1, 0, 30, 0));
    EXPECT_EQ(parseIn("%I:%M %p", "12:30 PM"), utcTime(1970, 1, 1, 12, 30, 0));
    EXPECT_EQ(parseIn("%I:%M %P", "01:05 p.M."), utcTime(1970, 1, 1, 13, 5, 0));
    EXPECT_EQ(parseIn("%I:%M %p", "01:05 xm"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%p%I:%M",
                      "\xE5\x8D\x88\xE5\xBE\x8C"
                      "3:00"),
              utcTime(1970, 1, 1, 15, 0, 0));
    EXPECT_EQ(parseIn("%p %I:%M", "\xE4\xB8\x8A\xE5\x8D\x88 9:15"), utcTime(1970, 1, 1, 9, 15, 0));
    EXPECT_EQ(parseIn("%p %l:%M", "\xEC\x98\xA4\xED\x9B\x84 9:15"), utcTime(1970, 1, 1, 21, 15, 0));
}

TEST(TimeFormatTest, ParseOffsetsEpochAndMismatches) {
    const Timeval instant = utcTime(2026, 11, 14, 15, 41, 0);
    EXPECT_EQ(parseIn("%Y-%m-%d %H:%M %z", "2026-11-14 10:41 -0500"), instant);
    EXPECT_EQ(parseIn("%Y-%m-%d %H:%M %z", "2026-11-14 10:41 -05:00"), instant);
    EXPECT_EQ(parseIn("%Y-%m-%d %H:%M %z", "2026-11-14 10:41 -5"), instant);
    EXPECT_EQ(parseIn("%Y-%m-%d %H:%M %::z", "2026-11-14 21:11 +05:30:00"), instant);
    EXPECT_EQ(parseIn("%Y-%m-%d %H:%M%:::z", "2026-11-14 10:41-05"), instant);
    EXPECT_EQ(parseIn("%Y-%m-%d %H:%M %Ez", "2026-11-14 10:41 -300"), instant);
    EXPECT_EQ(parseIn("%Y-%m-%d %H:%M %z", "2026-11-14 10:41 -0560"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%Y-%m-%d %H:%M %z", "2026-11-14 10:41 EST"), Timeval::MAX_TIME);
    // Without an offset in the text, the provider's zone is used.
    EXPECT_EQ(parseIn("%Y-%m-%d %H:%M", "2026-11-14 10:41", FIVE_WEST), instant);

    EXPECT_EQ(parseIn("%s", "1794670860"), instant);
    EXPECT_EQ(parseIn("%s,%l", "-10.250"), Timeval(Timeval::UNIX_EPOCH_TICKS - 102500000));
    EXPECT_EQ(parseIn("%s%H", "179467086012"), instant);
    EXPECT_EQ(parseIn("%s", "99999999999999999999"), Timeval::MAX_TIME);
    EXPECT_EQ(parseIn("%s", "-11644473601"), Timeval::MAX_TIME);

    uint32_t mismatches = 0;
    EXPECT_EQ(parseIn("%Y %Y %m %b", "2026 2027 11 Nov", 0, nullptr, &mismatches),
              utcTime(2027, 11, 1, 0, 0, 0));
    EXPECT_EQ(mismatches, 1u);
    EXPECT_EQ(parseIn("%a %Y-%m-%d", "Mon 2026-11-14", 0, nullptr, &mismatches),
              utcTime(2026, 11, 14, 0, 0, 0));
    EXPECT_EQ(mismatches, 0u);
}

TEST(TimeFormatTest, ParseSurvivesHostileText) {
    TimeFormat compiled;
    ASSERT_TRUE(compiled.compile("%Y%m%d%H%M%S.%6Q%03Ez %a %p %Z %s"));
    Str digits(std::string(5000, '9'));
    const char* texts[] = {"",
                           " ",
                           "2",
                           "+",
                           "-",
                           ".",
                           "20261114104102.",
                           "\xE5\x8D",
                           "20261114104102.123456-",
                           "20261114104102.123456+99999999999"};
    Timeval out(77);
    for (const char* text : texts) {
        EXPECT_EQ(compiled.parse(out, text, TimeZoneProvider::utc()), -1) << text;
    }
    EXPECT_EQ(compiled.parse(out, digits, TimeZoneProvider::utc()), -1);
    EXPECT_EQ(out.ticks(), 77u);
}

}  // namespace
}  // namespace morvax
