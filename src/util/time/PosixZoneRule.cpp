#include "util/time/PosixZoneRule.h"

#include <algorithm>

#include "util/base/Ascii.h"
#include "util/time/StructTm.h"

namespace morvax {

namespace {

constexpr int64_t SECONDS_PER_DAY = 86400;

class RuleReader {
  public:
    explicit RuleReader(StrSegment text) : p_(text.begin()), end_(text.end()) {}

    bool atEnd() const { return p_ == end_; }
    char peek() const { return p_ < end_ ? *p_ : '\0'; }
    bool take(char c) {
        if (atEnd() || *p_ != c) {
            return false;
        }
        ++p_;
        return true;
    }

    // "<+0530>" (letters, digits, signs) or plain letters; at least three either way.
    bool name(Str& out) {
        const char* first = p_;
        if (take('<')) {
            first = p_;
            while (!atEnd() && (isAlnum(*p_) || *p_ == '+' || *p_ == '-')) {
                ++p_;
            }
            const char* last = p_;
            if (!take('>') || last - first < 3) {
                return false;
            }
            out.assign(first, static_cast<size_t>(last - first));
            return true;
        }
        while (!atEnd() && isLetter(*p_)) {
            ++p_;
        }
        if (p_ - first < 3) {
            return false;
        }
        out.assign(first, static_cast<size_t>(p_ - first));
        return true;
    }

    bool number(int32_t minDigits, int32_t maxDigits, int32_t maxValue, int32_t& out) {
        int32_t value = 0;
        int32_t digits = 0;
        while (!atEnd() && isDigit(*p_) && digits < maxDigits) {
            value = value * 10 + (*p_++ - '0');
            ++digits;
        }
        if (digits < minDigits || value > maxValue) {
            return false;
        }
        out = value;
        return true;
    }

    // [+-]hh[:mm[:ss]], in seconds with its sign.
    bool signedTime(int32_t maxHours, int32_t& out) {
        bool negative = false;
        if (peek() == '+' || peek() == '-') {
            negative = *p_++ == '-';
        }
        int32_t hours = 0;
        int32_t minutes = 0;
        int32_t seconds = 0;
        if (!number(1, 3, maxHours, hours)) {
            return false;
        }
        if (take(':')) {
            if (!number(1, 2, 59, minutes)) {
                return false;
            }
            if (take(':') && !number(1, 2, 59, seconds)) {
                return false;
            }
        }
        out = hours * 3600 + minutes * 60 + seconds;
        if (negative) {
            out = -out;
        }
        return true;
    }

    bool date(PosixZoneRule::Date& out) {
        PosixZoneRule::Date date;
        int32_t value = 0;
        if (take('J')) {
            if (!number(1, 3, 365, value) || value < 1) {
                return false;
            }
            date.kind = PosixZoneRule::Date::JULIAN;
            date.day = static_cast<uint16_t>(value);
        } else if (take('M')) {
            int32_t month = 0;
            int32_t week = 0;
            if (!number(1, 2, 12, month) || month < 1 || !take('.') || !number(1, 1, 5, week) ||
                week < 1 || !take('.') || !number(1, 1, 6, value)) {
                return false;
            }
            date.kind = PosixZoneRule::Date::MONTH_WEEK_DAY;
            date.month = static_cast<uint8_t>(month);
            date.week = static_cast<uint8_t>(week);
            date.day = static_cast<uint16_t>(value);
        } else {
            if (!number(1, 3, 365, value)) {
                return false;
            }
            date.kind = PosixZoneRule::Date::DAY_OF_YEAR;
            date.day = static_cast<uint16_t>(value);
        }
        if (take('/') && !signedTime(167, date.time)) {
            return false;
        }
        out = date;
        return true;
    }

  private:
    const char* p_;
    const char* end_;
};

bool isLeapYear(int64_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int64_t daysBefore(int64_t year, int32_t month) {
    std::tm tm{};
    tm.tm_year = static_cast<int>(year - 1900);
    tm.tm_mon = month - 1;
    tm.tm_mday = 1;
    return GmtStructTm::calendarToSeconds(tm) / SECONDS_PER_DAY;
}

int64_t floorDiv(int64_t a, int64_t b) {
    int64_t q = a / b;
    return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

// Days from 1 January of `year` to the date.
int64_t dayOfYear(const PosixZoneRule::Date& date, int64_t year) {
    switch (date.kind) {
        case PosixZoneRule::Date::JULIAN:
            return date.day - 1 + (isLeapYear(year) && date.day >= 60 ? 1 : 0);
        case PosixZoneRule::Date::DAY_OF_YEAR:
            return date.day;
        case PosixZoneRule::Date::MONTH_WEEK_DAY:
            break;
    }
    static constexpr int32_t MONTH_DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int64_t first = daysBefore(year, date.month);
    // 1970-01-01 was a Thursday.
    int64_t firstWeekday = (first + 4) - floorDiv(first + 4, 7) * 7;
    int64_t day = (date.day - firstWeekday + 7) % 7 + (date.week - 1) * 7;
    int32_t length = MONTH_DAYS[date.month - 1] + (date.month == 2 && isLeapYear(year) ? 1 : 0);
    while (day >= length) {
        day -= 7;
    }
    return first - daysBefore(year, 1) + day;
}

int64_t clampInstant(int64_t utc) {
    return std::clamp(utc, -PosixZoneRule::INSTANT_LIMIT, PosixZoneRule::INSTANT_LIMIT);
}

int64_t yearOf(int64_t utc) {
    std::tm tm{};
    GmtStructTm::secondsToCalendar(utc, tm);
    return int64_t{tm.tm_year} + 1900;
}

}  // namespace

bool PosixZoneRule::parse(StrSegment text, PosixZoneRule& out) {
    if (text.size() > MAX_TEXT) {
        return false;
    }
    RuleReader reader(text);
    PosixZoneRule rule;
    int32_t west = 0;
    if (!reader.name(rule.standardName) || !reader.signedTime(24, west)) {
        return false;
    }
    rule.standardOffset = -west;
    if (reader.atEnd()) {
        out = std::move(rule);
        return true;
    }
    if (!reader.name(rule.daylightName)) {
        return false;
    }
    rule.hasDaylight = true;
    rule.daylightOffset = rule.standardOffset + 3600;
    if (reader.peek() == '+' || reader.peek() == '-' || isDigit(reader.peek())) {
        if (!reader.signedTime(24, west)) {
            return false;
        }
        rule.daylightOffset = -west;
    }
    if (reader.atEnd()) {
        rule.start = Date{Date::MONTH_WEEK_DAY, 0, 3, 2, 2 * 3600};
        rule.end = Date{Date::MONTH_WEEK_DAY, 0, 11, 1, 2 * 3600};
    } else if (!reader.take(',') || !reader.date(rule.start) || !reader.take(',') ||
               !reader.date(rule.end) || !reader.atEnd()) {
        return false;
    }
    out = std::move(rule);
    return true;
}

void PosixZoneRule::changesOfYear(int64_t year, int64_t& into, int64_t& outOf) const {
    int64_t yearStart = daysBefore(year, 1);
    into = (yearStart + dayOfYear(start, year)) * SECONDS_PER_DAY + start.time - standardOffset;
    outOf = (yearStart + dayOfYear(end, year)) * SECONDS_PER_DAY + end.time - daylightOffset;
}

bool PosixZoneRule::daylightAt(int64_t utc) const {
    if (!hasDaylight) {
        return false;
    }
    utc = clampInstant(utc);
    int64_t into;
    int64_t outOf;
    // The changes of the instant's own UTC year decide, as the C library decides: a year whose
    // daylight time spans New Year is daylight outside (outOf, into).
    changesOfYear(yearOf(utc), into, outOf);
    return into > outOf ? (utc < outOf || utc >= into) : (utc >= into && utc < outOf);
}

int64_t PosixZoneRule::nextChange(int64_t utc) const {
    if (!hasDaylight || utc >= INSTANT_LIMIT) {
        return INT64_MAX;
    }
    if (utc < -INSTANT_LIMIT) {
        return -INSTANT_LIMIT;
    }
    int64_t year = yearOf(utc);
    // New Year is a candidate too: the year whose changes decide begins there.
    int64_t next = daysBefore(year + 1, 1) * SECONDS_PER_DAY;
    for (int64_t y : {year, year + 1}) {
        int64_t into;
        int64_t outOf;
        changesOfYear(y, into, outOf);
        for (int64_t change : {into, outOf}) {
            if (change > utc && change < next) {
                next = change;
            }
        }
    }
    return next;
}

}  // namespace morvax
