#include "util/time/TimeFormat.h"

#include <cstring>

#include "util/base/Ascii.h"
#include "util/base/CharSet.h"
#include "util/time/StructTm.h"

namespace morvax {

namespace {

using Field = TimeFormatField;
using Atom = TimeFormatAtom;

// Where a run of digits stops growing: ten times it plus a digit still fits in 64 bits.
constexpr int64_t SATURATED = 100000000000000000LL;

// "00" to "99", for offsets and two-digit fields.
constexpr char DIGIT_PAIRS[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

const char* const WEEKDAY_NAMES[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};
const char* const MONTH_NAMES[] = {"January",   "February", "March",    "April",
                                   "May",       "June",     "July",     "August",
                                   "September", "October",  "November", "December"};

// AM and PM in Japanese, Chinese and Korean, as UTF-8.
struct MeridiemWord {
    const char* bytes;
    bool pm;
};
const MeridiemWord MERIDIEM_WORDS[] = {
    {"\xE5\x8D\x88\xE5\x89\x8D", false},  // Japanese gozen
    {"\xE5\x8D\x88\xE5\xBE\x8C", true},   // Japanese gogo
    {"\xE4\xB8\x8A\xE5\x8D\x88", false},  // Chinese shangwu
    {"\xE4\xB8\x8B\xE5\x8D\x88", true},   // Chinese xiawu
    {"\xEC\x98\xA4\xEC\xA0\x84", false},  // Korean ojeon
    {"\xEC\x98\xA4\xED\x9B\x84", true},   // Korean ohu
};

enum class Kind { NUMBER, TEXT, SUB_SECONDS, OFFSET };

struct Conversion {
    char letter;
    Field field;
    uint32_t width;
    uint32_t fill;
    Kind kind;
    bool allowsE;
    bool allowsO;
};

const Conversion CONVERSIONS[] = {
    {'Y', Field::YEAR, 4, Atom::FILL_ZERO, Kind::NUMBER, true, false},
    {'o', Field::YEAR, 4, Atom::FILL_ZERO, Kind::NUMBER, false, false},
    {'C', Field::CENTURY, 2, Atom::FILL_ZERO, Kind::NUMBER, true, false},
    {'y', Field::YEAR_OF_CENTURY, 2, Atom::FILL_ZERO, Kind::NUMBER, true, true},
    {'G', Field::ISO_YEAR, 4, Atom::FILL_ZERO, Kind::NUMBER, false, false},
    {'g', Field::ISO_YEAR_OF_CENTURY, 2, Atom::FILL_ZERO, Kind::NUMBER, false, false},
    {'m', Field::MONTH, 2, Atom::FILL_ZERO, Kind::NUMBER, false, true},
    {'U', Field::WEEK_SUNDAY, 2, Atom::FILL_ZERO, Kind::NUMBER, false, true},
    {'W', Field::WEEK_MONDAY, 2, Atom::FILL_ZERO, Kind::NUMBER, false, true},
    {'V', Field::ISO_WEEK, 2, Atom::FILL_ZERO, Kind::NUMBER, false, true},
    {'d', Field::DAY_OF_MONTH, 2, Atom::FILL_ZERO, Kind::NUMBER, false, true},
    {'e', Field::DAY_OF_MONTH, 2, Atom::FILL_BLANK, Kind::NUMBER, false, false},
    {'j', Field::DAY_OF_YEAR, 3, Atom::FILL_ZERO, Kind::NUMBER, false, false},
    {'w', Field::WEEKDAY, 1, Atom::FILL_NONE, Kind::NUMBER, false, true},
    {'u', Field::ISO_WEEKDAY, 1, Atom::FILL_NONE, Kind::NUMBER, false, true},
    {'H', Field::HOUR, 2, Atom::FILL_ZERO, Kind::NUMBER, false, true},
    {'k', Field::HOUR, 2, Atom::FILL_BLANK, Kind::NUMBER, false, false},
    {'I', Field::HOUR_12, 2, Atom::FILL_ZERO, Kind::NUMBER, false, true},
    {'l', Field::HOUR_12, 2, Atom::FILL_BLANK, Kind::NUMBER, false, false},
    {'M', Field::MINUTE, 2, Atom::FILL_ZERO, Kind::NUMBER, false, true},
    {'S', Field::SECOND, 2, Atom::FILL_ZERO, Kind::NUMBER, false, true},
    {'s', Field::EPOCH_SECONDS, 0, Atom::FILL_NONE, Kind::NUMBER, false, false},
    {'N', Field::SUB_SECONDS, 9, Atom::FILL_ZERO, Kind::SUB_SECONDS, false, false},
    {'Q', Field::SUB_SECONDS, 3, Atom::FILL_ZERO, Kind::SUB_SECONDS, false, false},
    {'f', Field::SUB_SECONDS, 6, Atom::FILL_ZERO, Kind::SUB_SECONDS, false, false},
    {'q', Field::SUB_SECONDS, 6, Atom::FILL_ZERO, Kind::SUB_SECONDS, false, false},
    {'a', Field::WEEKDAY_NAME, 3, Atom::FILL_BLANK, Kind::TEXT, false, false},
    {'A', Field::WEEKDAY_FULL, 0, Atom::FILL_BLANK, Kind::TEXT, false, false},
    {'b', Field::MONTH_NAME, 3, Atom::FILL_BLANK, Kind::TEXT, false, false},
    {'h', Field::MONTH_NAME, 3, Atom::FILL_BLANK, Kind::TEXT, false, false},
    {'B', Field::MONTH_FULL, 0, Atom::FILL_BLANK, Kind::TEXT, false, true},
    {'p', Field::AM_PM_UPPER, 2, Atom::FILL_BLANK, Kind::TEXT, false, false},
    {'P', Field::AM_PM_LOWER, 2, Atom::FILL_BLANK, Kind::TEXT, false, false},
    {'Z', Field::ZONE_NAME, 0, Atom::FILL_BLANK, Kind::TEXT, false, false},
    {'z', Field::OFFSET, 5, Atom::FILL_ZERO, Kind::OFFSET, true, false},
};

const Conversion* findConversion(char letter) {
    for (const Conversion& c : CONVERSIONS) {
        if (c.letter == letter) {
            return &c;
        }
    }
    return nullptr;
}

// Compound conversions and what they stand for; the long forms serve `#` on %c and %x.
const char* compoundExpansion(char letter, bool longForm) {
    switch (letter) {
        case 'D':
            return "%m/%d/%y";
        case 'F':
            return "%Y-%m-%d";
        case 'R':
            return "%H:%M";
        case 'T':
        case 'X':
            return "%H:%M:%S";
        case 'r':
            return "%I:%M:%S %p";
        case 'x':
            return longForm ? "%A, %B %#d, %Y" : "%m/%d/%y";
        case 'v':
            return "%e-%b-%Y";
        case 'c':
            return longForm ? "%A, %B %#d, %Y %H:%M:%S" : "%a %b %e %H:%M:%S %Y";
        case '+':
            return "%a %b %e %H:%M:%S %Z %Y";
        default:
            return nullptr;
    }
}

bool isLiteralField(Field f) {
    return f == Field::LITERAL || f == Field::WHITESPACE;
}

bool isNumberField(Field f) {
    return f >= Field::YEAR && f <= Field::SUB_SECONDS;
}

bool isOffsetField(Field f) {
    return f >= Field::OFFSET && f <= Field::OFFSET_MINUTES;
}

// The width of an offset without padding: sign and digits, with the colons of its form.
uint64_t naturalOffsetWidth(Field f) {
    switch (f) {
        case Field::OFFSET:
            return 5;
        case Field::OFFSET_COLON:
            return 6;
        case Field::OFFSET_SECONDS:
            return 9;
        default:
            return 3;
    }
}

bool isSpace(char c) {
    return CharSet::whitespace().contains(c);
}

bool equalsIgnoringCase(const char* a, const char* b, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        if (toLowerAscii(a[i]) != toLowerAscii(b[i])) {
            return false;
        }
    }
    return true;
}

// The unit of a field, for coarsest()/finest(); 1 means none.
int32_t unitOf(const Atom& atom) {
    switch (atom.field) {
        case Field::YEAR:
        case Field::CENTURY:
        case Field::YEAR_OF_CENTURY:
        case Field::ISO_YEAR:
        case Field::ISO_YEAR_OF_CENTURY:
            return -6;
        case Field::MONTH:
        case Field::MONTH_NAME:
        case Field::MONTH_FULL:
            return -5;
        case Field::WEEK_SUNDAY:
        case Field::WEEK_MONDAY:
        case Field::ISO_WEEK:
            return -4;
        case Field::DAY_OF_MONTH:
        case Field::DAY_OF_YEAR:
        case Field::WEEKDAY:
        case Field::ISO_WEEKDAY:
        case Field::WEEKDAY_NAME:
        case Field::WEEKDAY_FULL:
            return -3;
        case Field::HOUR:
        case Field::HOUR_12:
        case Field::AM_PM_UPPER:
        case Field::AM_PM_LOWER:
            return -2;
        case Field::MINUTE:
            return -1;
        case Field::SECOND:
        case Field::EPOCH_SECONDS:
            return 0;
        case Field::SUB_SECONDS:
            return static_cast<int32_t>(atom.width);
        default:
            return 1;
    }
}

// ---- formatting helpers

void appendNumber(Str& target, int64_t value, uint64_t width, uint32_t fill) {
    bool negative = value < 0;
    uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    char digits[24];
    size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    uint64_t length = count + (negative ? 1 : 0);
    uint64_t pad = fill != Atom::FILL_NONE && width > length ? width - length : 0;
    if (fill == Atom::FILL_ZERO) {
        if (negative) {
            target.append('-');
        }
        target.append(static_cast<size_t>(pad), '0');
    } else {
        target.append(static_cast<size_t>(pad), ' ');
        if (negative) {
            target.append('-');
        }
    }
    while (count > 0) {
        target.append(digits[--count]);
    }
}

void appendText(Str& target, const char* text, size_t length, const Atom& atom) {
    if (atom.fill != Atom::FILL_NONE && atom.width > length) {
        target.append(static_cast<size_t>(atom.width - length), ' ');
    }
    size_t start = target.size();
    target.append(text, length);
    if (atom.caseMode == Atom::CASE_AS_IS) {
        return;
    }
    for (size_t i = start; i < target.size(); ++i) {
        char c = target[i];
        if (isLower(c)) {
            target[i] = static_cast<char>(c - 'a' + 'A');
        } else if (isUpper(c) && atom.caseMode == Atom::CASE_SWAP) {
            target[i] = static_cast<char>(c - 'A' + 'a');
        }
    }
}

// A name, "???" when the index is out of range; `letters` cuts it (0: whole).
void appendName(Str& target, const char* const* names, int count, int index, size_t letters,
                const Atom& atom) {
    const char* name = index >= 0 && index < count ? names[index] : "???";
    size_t length = std::strlen(name);
    if (letters != 0 && letters < length) {
        length = letters;
    }
    appendText(target, name, length, atom);
}

void appendPair(char*& p, int64_t value) {
    std::memcpy(p, DIGIT_PAIRS + 2 * value, 2);
    p += 2;
}

void appendOffset(Str& target, const Atom& atom, int32_t offset) {
    int64_t magnitude = offset < 0 ? -int64_t{offset} : offset;
    int64_t minutes = magnitude / 60;
    int64_t seconds = magnitude % 60;
    int64_t hours = minutes / 60 > 99 ? 99 : minutes / 60;
    int64_t minuteOfHour = minutes % 60;
    char body[16];
    char* p = body;
    switch (atom.field) {
        case Field::OFFSET:
            appendPair(p, hours);
            appendPair(p, minuteOfHour);
            break;
        case Field::OFFSET_COLON:
            appendPair(p, hours);
            *p++ = ':';
            appendPair(p, minuteOfHour);
            break;
        case Field::OFFSET_SECONDS:
            appendPair(p, hours);
            *p++ = ':';
            appendPair(p, minuteOfHour);
            *p++ = ':';
            appendPair(p, seconds);
            break;
        case Field::OFFSET_SHORTEST:
            appendPair(p, hours);
            if (minuteOfHour != 0 || seconds != 0) {
                *p++ = ':';
                appendPair(p, minuteOfHour);
                if (seconds != 0) {
                    *p++ = ':';
                    appendPair(p, seconds);
                }
            }
            break;
        default: {
            int64_t capped = minutes > 999 ? 999 : minutes;
            if (atom.fill != Atom::FILL_NONE || capped >= 100) {
                *p++ = static_cast<char>('0' + capped / 100);
                appendPair(p, capped % 100);
            } else if (capped >= 10) {
                appendPair(p, capped);
            } else {
                *p++ = static_cast<char>('0' + capped);
            }
            break;
        }
    }
    int64_t bodyLength = p - body;
    char sign = offset < 0 ? '-' : '+';
    int64_t room = static_cast<int64_t>(atom.width) - bodyLength - 1;
    if (room >= 1 && atom.fill == Atom::FILL_BLANK) {
        target.append(static_cast<size_t>(room), ' ');
    }
    target.append(sign);
    if (room >= 1 && atom.fill == Atom::FILL_ZERO) {
        target.append(static_cast<size_t>(room), '0');
    }
    target.append(body, static_cast<size_t>(bodyLength));
}

// Week-based year and ISO week of a record.
void isoWeek(const std::tm& tm, int64_t& isoYear, int64_t& week) {
    auto weeksIn = [](int64_t year) {
        auto p = [](int64_t y) { return (y + y / 4 - y / 100 + y / 400) % 7; };
        return (p(year) == 4 || p(year - 1) == 3) ? 53 : 52;
    };
    int64_t year = int64_t{tm.tm_year} + 1900;
    int64_t isoWeekday = tm.tm_wday == 0 ? 7 : tm.tm_wday;
    week = (tm.tm_yday + 1 - isoWeekday + 10) / 7;
    isoYear = year;
    if (week < 1) {
        isoYear = year - 1;
        week = weeksIn(isoYear);
    } else if (week > weeksIn(year)) {
        isoYear = year + 1;
        week = 1;
    }
}

// ---- parsing helpers

enum Slot {
    SLOT_YEAR,
    SLOT_CENTURY,
    SLOT_YEAR_OF_CENTURY,
    SLOT_ISO_YEAR,
    SLOT_ISO_YEAR_OF_CENTURY,
    SLOT_MONTH,
    SLOT_WEEK_SUNDAY,
    SLOT_WEEK_MONDAY,
    SLOT_ISO_WEEK,
    SLOT_DAY_OF_MONTH,
    SLOT_DAY_OF_YEAR,
    SLOT_WEEKDAY,
    SLOT_HOUR,
    SLOT_HOUR_12,
    SLOT_PM,
    SLOT_MINUTE,
    SLOT_SECOND,
    SLOT_EPOCH_SECONDS,
    SLOT_SUB_SECONDS,
    SLOT_OFFSET,
    SLOT_COUNT
};

struct ParsedFields {
    int64_t value[SLOT_COUNT] = {};
    bool set[SLOT_COUNT] = {};
    uint32_t mismatches = 0;

    void put(Slot slot, int64_t v) {
        if (set[slot] && value[slot] != v) {
            ++mismatches;
        }
        set[slot] = true;
        value[slot] = v;
    }
    int64_t get(Slot slot, int64_t fallback) const { return set[slot] ? value[slot] : fallback; }
};

// Range and slot of a numeric field; `giveBack` lets digits go back to the text until the
// value fits `max`.
struct NumberRule {
    Slot slot;
    int64_t min;
    int64_t max;
    bool giveBack;
};

bool numberRule(Field field, NumberRule& rule) {
    switch (field) {
        case Field::YEAR:
            rule = {SLOT_YEAR, 1971, 2999, false};
            return true;
        case Field::CENTURY:
            rule = {SLOT_CENTURY, 19, 29, true};
            return true;
        case Field::YEAR_OF_CENTURY:
            rule = {SLOT_YEAR_OF_CENTURY, 0, 99, true};
            return true;
        case Field::ISO_YEAR:
            rule = {SLOT_ISO_YEAR, 1971, 2999, false};
            return true;
        case Field::ISO_YEAR_OF_CENTURY:
            rule = {SLOT_ISO_YEAR_OF_CENTURY, 0, 99, true};
            return true;
        case Field::MONTH:
            rule = {SLOT_MONTH, 1, 12, true};
            return true;
        case Field::WEEK_SUNDAY:
            rule = {SLOT_WEEK_SUNDAY, 0, 53, true};
            return true;
        case Field::WEEK_MONDAY:
            rule = {SLOT_WEEK_MONDAY, 0, 53, true};
            return true;
        case Field::ISO_WEEK:
            rule = {SLOT_ISO_WEEK, 1, 53, true};
            return true;
        case Field::DAY_OF_MONTH:
            rule = {SLOT_DAY_OF_MONTH, 1, 31, true};
            return true;
        case Field::DAY_OF_YEAR:
            rule = {SLOT_DAY_OF_YEAR, 1, 366, true};
            return true;
        case Field::WEEKDAY:
            rule = {SLOT_WEEKDAY, 0, 6, true};
            return true;
        case Field::ISO_WEEKDAY:
            rule = {SLOT_WEEKDAY, 1, 7, true};
            return true;
        case Field::HOUR:
            rule = {SLOT_HOUR, 0, 24, true};
            return true;
        case Field::HOUR_12:
            rule = {SLOT_HOUR_12, 1, 12, true};
            return true;
        case Field::MINUTE:
            rule = {SLOT_MINUTE, 0, 59, true};
            return true;
        case Field::SECOND:
            rule = {SLOT_SECOND, 0, 60, true};
            return true;
        default:
            return false;
    }
}

// Value of `count` digits, saturated far above any field's range.
int64_t digitsValue(const char* digits, size_t count) {
    int64_t value = 0;
    for (size_t i = 0; i < count; ++i) {
        value = value >= SATURATED ? SATURATED : value * 10 + (digits[i] - '0');
    }
    return value;
}

// At `pos`: a sign when `signAllowed`, then a run of digits. False without digits; else `pos`
// stands on the first digit and `count` is the length of the run.
bool scanSignAndDigits(StrSegment text, size_t& pos, bool signAllowed, bool& negative,
                       size_t& count) {
    negative = false;
    if (signAllowed && pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
        negative = text[pos] == '-';
        ++pos;
    }
    count = 0;
    while (pos + count < text.size() && isDigit(text[pos + count])) {
        ++count;
    }
    return count > 0;
}

// The longest prefix, at least one digit, whose value stays within `max`.
size_t digitsFitting(const char* digits, size_t count, int64_t max) {
    int64_t value = 0;
    size_t best = 1;
    for (size_t i = 0; i < count; ++i) {
        value = value * 10 + (digits[i] - '0');
        if (value > max) {
            break;
        }
        best = i + 1;
    }
    return best;
}

// Letters from `pos` up to a change from lower to upper case; with `dots`, '.' belongs too.
size_t wordLength(StrSegment text, size_t pos, bool dots) {
    size_t end = pos;
    while (end < text.size() && (isLetter(text[end]) || (dots && text[end] == '.'))) {
        if (end > pos && isUpper(text[end]) && isLower(text[end - 1])) {
            break;
        }
        ++end;
    }
    return end - pos;
}

// Index of the name that `word` spells: three letters, the whole name, or `shortLetters`.
int matchName(const char* word, size_t length, const char* const* names, int count,
              size_t shortLetters) {
    for (int i = 0; i < count; ++i) {
        size_t full = std::strlen(names[i]);
        if ((length == 3 || length == full || (shortLetters != 0 && length == shortLetters)) &&
            length <= full && equalsIgnoringCase(word, names[i], length)) {
            return i;
        }
    }
    return -1;
}

int64_t weekdayOf(int64_t year, int month, int day) {
    std::tm tm{};
    tm.tm_year = static_cast<int>(year - 1900);
    tm.tm_mon = month;
    tm.tm_mday = day;
    int64_t days = GmtStructTm::calendarToSeconds(tm) / 86400;
    int64_t weekday = (days + 4) % 7;  // 1970-01-01 was a Thursday
    return weekday < 0 ? weekday + 7 : weekday;
}

}  // namespace

// ---- compiling

void TimeFormat::clear() {
    atoms_.clear();
    literals_.clear();
    estimatedLength_ = 0;
    coarsest_ = -7;
    finest_ = 1;
}

void TimeFormat::appendLiteral(const char* bytes, size_t length) {
    size_t i = 0;
    while (i < length) {
        bool space = isSpace(bytes[i]);
        size_t end = i + 1;
        while (end < length && isSpace(bytes[end]) == space) {
            ++end;
        }
        Field field = space ? Field::WHITESPACE : Field::LITERAL;
        if (!atoms_.empty() && atoms_.back().field == field &&
            atoms_.back().text + atoms_.back().width == literals_.size()) {
            atoms_.back().width += end - i;
        } else {
            Atom atom;
            atom.field = field;
            atom.text = literals_.size();
            atom.width = end - i;
            atom.fill = Atom::FILL_NONE;
            atoms_.push_back(atom);
        }
        literals_.append(bytes + i, end - i);
        i = end;
    }
}

bool TimeFormat::compile(const char* format, size_t length) {
    clear();
    std::vector<size_t> plainL;
    if (!compilePart(format, length, plainL) || atoms_.empty()) {
        clear();
        return false;
    }
    resolveL(plainL);
    computeSummary();
    return true;
}

bool TimeFormat::compilePart(const char* format, size_t length, std::vector<size_t>& plainL) {
    size_t i = 0;
    while (i < length) {
        if (format[i] != '%') {
            size_t end = i;
            while (end < length && format[end] != '%') {
                ++end;
            }
            appendLiteral(format + i, end - i);
            i = end;
            continue;
        }
        ++i;
        uint32_t caseMode = Atom::CASE_AS_IS;
        uint32_t fill = 0;
        uint32_t modifier = Atom::MODIFIER_NONE;
        bool hasWidth = false;
        uint64_t width = 0;
        size_t colons = 0;

        if (i < length && (format[i] == '^' || format[i] == '#')) {
            caseMode = format[i] == '^' ? Atom::CASE_UPPER : Atom::CASE_SWAP;
            ++i;
        }
        if (i < length && (format[i] == '_' || format[i] == '0' || format[i] == '-')) {
            fill = format[i] == '_' ? Atom::FILL_BLANK
                                    : (format[i] == '0' ? Atom::FILL_ZERO : Atom::FILL_NONE);
            ++i;
        }
        while (i < length && isDigit(format[i])) {
            hasWidth = true;
            width = width * 10 + static_cast<uint64_t>(format[i] - '0');
            if (width > MAX_WIDTH) {
                return false;
            }
            ++i;
        }
        if (i < length && (format[i] == 'E' || format[i] == 'O')) {
            modifier = format[i] == 'E' ? Atom::MODIFIER_E : Atom::MODIFIER_O;
            ++i;
        }
        while (i < length && format[i] == ':' && colons < 3) {
            ++colons;
            ++i;
        }
        if (i >= length) {
            return false;
        }
        char letter = format[i++];
        bool anyOption = caseMode != Atom::CASE_AS_IS || fill != 0 || hasWidth;

        if (colons != 0 && (letter != 'z' || modifier != Atom::MODIFIER_NONE)) {
            return false;
        }
        if (letter == '%' || letter == 'n' || letter == 't') {
            if (anyOption || modifier != Atom::MODIFIER_NONE) {
                return false;
            }
            appendLiteral(letter == '%' ? "%" : (letter == 'n' ? "\n" : "\t"), 1);
            continue;
        }
        bool longForm = caseMode == Atom::CASE_SWAP && (letter == 'c' || letter == 'x');
        if (const char* expansion = compoundExpansion(letter, longForm)) {
            if (fill != 0 || hasWidth || (caseMode != Atom::CASE_AS_IS && !longForm)) {
                return false;
            }
            if (modifier == Atom::MODIFIER_O ||
                (modifier == Atom::MODIFIER_E && letter != 'c' && letter != 'x' && letter != 'X')) {
                return false;
            }
            if (!compilePart(expansion, std::strlen(expansion), plainL)) {
                return false;
            }
            continue;
        }
        const Conversion* conversion = findConversion(letter);
        if (!conversion) {
            return false;
        }
        if ((modifier == Atom::MODIFIER_E && !conversion->allowsE) ||
            (modifier == Atom::MODIFIER_O && !conversion->allowsO)) {
            return false;
        }
        Atom atom;
        atom.field = conversion->field;
        atom.width = hasWidth ? width : conversion->width;
        atom.fill = fill != 0 ? fill : conversion->fill;
        atom.caseMode = caseMode;
        atom.modifier = modifier;
        switch (conversion->kind) {
            case Kind::TEXT:
                if (fill == Atom::FILL_ZERO) {
                    return false;
                }
                if (hasWidth &&
                    ((letter == 'a' && width == 1) ||
                     ((letter == 'b' || letter == 'h') && (width == 1 || width == 2)))) {
                    return false;
                }
                break;
            case Kind::SUB_SECONDS:
                if (caseMode != Atom::CASE_AS_IS || (fill != 0 && fill != Atom::FILL_ZERO)) {
                    return false;
                }
                break;
            case Kind::OFFSET:
                if (modifier == Atom::MODIFIER_E) {
                    atom.field = Field::OFFSET_MINUTES;
                    atom.width = hasWidth ? width : 4;
                    atom.fill = fill != 0 ? fill : Atom::FILL_NONE;
                } else if (colons != 0) {
                    static const Field colonFields[] = {Field::OFFSET_COLON, Field::OFFSET_SECONDS,
                                                        Field::OFFSET_SHORTEST};
                    static const uint32_t colonWidths[] = {6, 9, 0};
                    atom.field = colonFields[colons - 1];
                    atom.width = hasWidth ? width : colonWidths[colons - 1];
                }
                break;
            case Kind::NUMBER:
                // `#` on a number removes the zeros.
                if (caseMode == Atom::CASE_SWAP && fill == 0) {
                    atom.fill = Atom::FILL_NONE;
                }
                break;
        }
        if (letter == 'l' && !anyOption) {
            plainL.push_back(atoms_.size());
        }
        atoms_.push_back(atom);
    }
    return true;
}

// A bare %l after seconds (or epoch seconds), maybe across one ',' or '.', means milliseconds;
// elsewhere it is the 12-hour clock. After %S it is milliseconds only when the format has an
// hour or lacks minutes, so "%M:%S,%l" still ends in the hour.
void TimeFormat::resolveL(const std::vector<size_t>& plainL) {
    bool hasMinute = false;
    size_t hourAtoms = 0;
    for (const Atom& atom : atoms_) {
        hasMinute |= atom.field == Field::MINUTE;
        hourAtoms += atom.field == Field::HOUR || atom.field == Field::HOUR_12;
    }
    std::vector<size_t> toMilliseconds;
    for (size_t index : plainL) {
        if (index == 0) {
            continue;
        }
        size_t look = index - 1;
        const Atom& before = atoms_[look];
        if (before.field == Field::LITERAL && before.width == 1 && look > 0) {
            char c = literals_[static_cast<size_t>(before.text)];
            if (c == ',' || c == '.') {
                --look;
            }
        }
        Field field = atoms_[look].field;
        // This %l is itself one of the hour atoms.
        bool otherHour = hourAtoms > 1;
        if (field == Field::EPOCH_SECONDS ||
            (field == Field::SECOND && (!hasMinute || otherHour))) {
            toMilliseconds.push_back(index);
        }
    }
    for (size_t index : toMilliseconds) {
        Atom& atom = atoms_[index];
        atom.field = Field::SUB_SECONDS;
        atom.width = 3;
        atom.fill = Atom::FILL_ZERO;
    }
}

void TimeFormat::computeSummary() {
    estimatedLength_ = 0;
    bool anyUnit = false;
    for (const Atom& atom : atoms_) {
        uint64_t typical = 0;
        if (isLiteralField(atom.field)) {
            typical = atom.width;
        } else if (atom.field == Field::EPOCH_SECONDS) {
            typical = 11;
        } else if (atom.field == Field::WEEKDAY_FULL || atom.field == Field::MONTH_FULL ||
                   isOffsetField(atom.field)) {
            typical = 9;
        } else if (atom.field == Field::ZONE_NAME) {
            typical = 32;
        }
        estimatedLength_ += atom.width > typical ? atom.width : typical;

        int32_t unit = unitOf(atom);
        if (unit > 0 && atom.field != Field::SUB_SECONDS) {
            continue;
        }
        if (!anyUnit) {
            coarsest_ = finest_ = unit;
            anyUnit = true;
        } else {
            coarsest_ = unit < coarsest_ ? unit : coarsest_;
            finest_ = unit > finest_ ? unit : finest_;
        }
    }
}

// ---- formatting

void TimeFormat::format(const std::tm& tm, Str& target, uint32_t subSeconds,
                        const TimeZoneProvider& provider) const {
    bool haveEpoch = false;
    int64_t epoch = 0;
    auto epochSeconds = [&]() {
        if (!haveEpoch) {
            epoch = provider.epochSeconds(tm);
            haveEpoch = true;
        }
        return epoch;
    };
    bool haveOffset = false;
    int32_t offset = 0;

    for (const Atom& atom : atoms_) {
        int64_t number = 0;
        switch (atom.field) {
            case Field::LITERAL:
            case Field::WHITESPACE:
                target.append(literals_.data() + atom.text, static_cast<size_t>(atom.width));
                continue;
            case Field::YEAR:
                number = int64_t{tm.tm_year} + 1900;
                break;
            case Field::CENTURY: {
                int64_t quotient = tm.tm_year / 100;
                number = quotient + (quotient < 0 ? 20 : 19);
                break;
            }
            case Field::YEAR_OF_CENTURY:
                number = ((int64_t{tm.tm_year} + 1900) % 100 + 100) % 100;
                break;
            case Field::ISO_YEAR:
            case Field::ISO_YEAR_OF_CENTURY:
            case Field::ISO_WEEK: {
                int64_t isoYear;
                int64_t week;
                isoWeek(tm, isoYear, week);
                number =
                    atom.field == Field::ISO_WEEK
                        ? week
                        : (atom.field == Field::ISO_YEAR ? isoYear : (isoYear % 100 + 100) % 100);
                break;
            }
            case Field::MONTH:
                number = int64_t{tm.tm_mon} + 1;
                break;
            case Field::WEEK_SUNDAY:
                number = (int64_t{tm.tm_yday} - tm.tm_wday + 7) / 7;
                break;
            case Field::WEEK_MONDAY:
                number = tm.tm_wday == 0 ? (int64_t{tm.tm_yday} + 1) / 7
                                         : (int64_t{tm.tm_yday} + 8 - tm.tm_wday) / 7;
                break;
            case Field::DAY_OF_MONTH:
                number = tm.tm_mday;
                break;
            case Field::DAY_OF_YEAR:
                number = int64_t{tm.tm_yday} + 1;
                break;
            case Field::WEEKDAY:
                number = tm.tm_wday;
                break;
            case Field::ISO_WEEKDAY:
                number = tm.tm_wday == 0 ? 7 : tm.tm_wday;
                break;
            case Field::HOUR:
                number = tm.tm_hour;
                break;
            case Field::HOUR_12:
                number = tm.tm_hour % 12 == 0 ? 12 : tm.tm_hour % 12;
                break;
            case Field::MINUTE:
                number = tm.tm_min;
                break;
            case Field::SECOND:
                number = tm.tm_sec;
                break;
            case Field::EPOCH_SECONDS:
                number = epochSeconds();
                if (number == TimeZoneProvider::INVALID_SECONDS) {
                    continue;
                }
                break;
            case Field::SUB_SECONDS: {
                uint32_t value = subSeconds;
                // Times before the epoch carry their sub-second part counted toward the epoch.
                // The year decides without asking the provider unless it is near 1970.
                bool negative =
                    tm.tm_year < 69 || (tm.tm_year <= 70 && epochSeconds() < 0 &&
                                        epochSeconds() != TimeZoneProvider::INVALID_SECONDS);
                if (negative) {
                    value = static_cast<uint32_t>(Timeval::TICKS_PER_SECOND) - value;
                }
                uint32_t scale = 1000000;
                for (uint64_t i = 0; i < atom.width; ++i) {
                    if (scale == 0) {
                        target.append('0');
                        continue;
                    }
                    target.append(static_cast<char>('0' + value / scale % 10));
                    scale /= 10;
                }
                continue;
            }
            case Field::WEEKDAY_NAME:
                appendName(target, WEEKDAY_NAMES, 7, tm.tm_wday, atom.width == 2 ? 2 : 3, atom);
                continue;
            case Field::WEEKDAY_FULL:
                appendName(target, WEEKDAY_NAMES, 7, tm.tm_wday, 0, atom);
                continue;
            case Field::MONTH_NAME:
                appendName(target, MONTH_NAMES, 12, tm.tm_mon, 3, atom);
                continue;
            case Field::MONTH_FULL:
                appendName(target, MONTH_NAMES, 12, tm.tm_mon, 0, atom);
                continue;
            case Field::AM_PM_UPPER:
                appendText(target, tm.tm_hour >= 12 ? "PM" : "AM", 2, atom);
                continue;
            case Field::AM_PM_LOWER:
                appendText(target, tm.tm_hour >= 12 ? "pm" : "am", 2, atom);
                continue;
            case Field::ZONE_NAME: {
                char name[64];
                size_t length = provider.zoneName(tm, name, sizeof(name));
                appendText(target, name, length, atom);
                continue;
            }
            case Field::OFFSET:
            case Field::OFFSET_COLON:
            case Field::OFFSET_SECONDS:
            case Field::OFFSET_SHORTEST:
            case Field::OFFSET_MINUTES:
                if (!haveOffset) {
                    offset = provider.offsetSeconds(tm);
                    haveOffset = true;
                }
                if (offset != TimeZoneProvider::UNKNOWN_OFFSET) {
                    appendOffset(target, atom, offset);
                }
                continue;
        }
        appendNumber(target, number, atom.width, atom.fill);
    }
}

void TimeFormat::format(const LocalStructTmHires& tm, Str& target) const {
    format(tm, target, tm.subSeconds, TimeZoneProvider::local());
}

void TimeFormat::format(const StructTmInTimezoneHires& tm, Str& target) const {
    format(tm, target, tm.subSeconds, tm.provider());
}

// ---- parsing

int64_t TimeFormat::parse(Timeval& out, StrSegment text, const TimeZoneProvider& provider) const {
    uint32_t mismatches = 0;
    return parse(out, text, provider, mismatches);
}

int64_t TimeFormat::parse(Timeval& out, StrSegment text, const TimeZoneProvider& provider,
                          uint32_t& mismatches) const {
    if (atoms_.empty()) {
        return -1;
    }
    const size_t n = text.size();
    size_t pos = 0;
    ParsedFields fields;

    // Whether the atom after `index` would begin with a digit, so that a run of digits must be
    // shared with it.
    auto nextBeginsWithDigit = [&](size_t index) {
        if (index + 1 >= atoms_.size()) {
            return false;
        }
        const Atom& next = atoms_[index + 1];
        if (next.field == Field::LITERAL) {
            return next.width > 0 && isDigit(literals_[static_cast<size_t>(next.text)]);
        }
        return isNumberField(next.field);
    };

    for (size_t index = 0; index < atoms_.size(); ++index) {
        const Atom& atom = atoms_[index];
        if (atom.field == Field::WHITESPACE) {
            while (pos < n && isSpace(text[pos])) {
                ++pos;
            }
            continue;
        }
        if (atom.field == Field::LITERAL) {
            StrSegment literal = literalText(atom);
            if (literal.size() == 1 && (literal[0] == ',' || literal[0] == '.') &&
                index + 1 < atoms_.size() && atoms_[index + 1].field == Field::SUB_SECONDS) {
                if (pos < n && (text[pos] == ',' || text[pos] == '.')) {
                    ++pos;
                } else {
                    ++index;  // no separator: no sub-second part either
                }
                continue;
            }
            if (n - pos < literal.size() ||
                std::memcmp(text.data() + pos, literal.data(), literal.size()) != 0) {
                return -1;
            }
            pos += literal.size();
            continue;
        }

        while (pos < n && isSpace(text[pos])) {
            ++pos;
        }

        if (isNumberField(atom.field)) {
            bool negative = false;
            size_t count = 0;
            if (!scanSignAndDigits(text, pos, atom.field == Field::EPOCH_SECONDS, negative,
                                   count)) {
                return -1;
            }
            const char* digits = text.data() + pos;
            uint64_t limit = atom.width;
            if (atom.field == Field::EPOCH_SECONDS && limit == 0) {
                limit = 10;
            }
            NumberRule rule{};
            bool ruled = numberRule(atom.field, rule);
            size_t keep = count;
            if (limit > 0 && count > limit && nextBeginsWithDigit(index)) {
                keep = static_cast<size_t>(limit);
            } else if (ruled && rule.giveBack) {
                keep = digitsFitting(digits, count, rule.max);
            }
            pos += keep;

            if (atom.field == Field::SUB_SECONDS) {
                int64_t value = 0;
                for (size_t i = 0; i < 7; ++i) {
                    value = value * 10 + (i < keep ? digits[i] - '0' : 0);
                }
                fields.put(SLOT_SUB_SECONDS, value);
                continue;
            }
            int64_t value = digitsValue(digits, keep);
            if (atom.field == Field::EPOCH_SECONDS) {
                fields.put(SLOT_EPOCH_SECONDS, negative ? -value : value);
                continue;
            }
            if (value < rule.min || value > rule.max) {
                return -1;
            }
            if (atom.field == Field::ISO_WEEKDAY || atom.field == Field::HOUR_12) {
                value %= atom.field == Field::ISO_WEEKDAY ? 7 : 12;
            }
            fields.put(rule.slot, value);
            continue;
        }

        if (isOffsetField(atom.field)) {
            bool negative = false;
            size_t count = 0;
            if (!scanSignAndDigits(text, pos, true, negative, count)) {
                return -1;
            }
            const bool colon = pos + count < n && text[pos + count] == ':';
            // A zero-filled offset wider than its form has zeros before its hours.
            if (atom.fill == Atom::FILL_ZERO && atom.field != Field::OFFSET_MINUTES &&
                atom.width > naturalOffsetWidth(atom.field)) {
                const size_t formDigits = atom.field == Field::OFFSET && !colon ? 4 : 2;
                while (count > formDigits && text[pos] == '0') {
                    ++pos;
                    --count;
                }
            }
            const char* digits = text.data() + pos;
            int64_t magnitude = 0;
            if (atom.field != Field::OFFSET_MINUTES && colon) {
                // hh:mm or hh:mm:ss
                if (count > 2) {
                    return -1;
                }
                int64_t hours = digitsValue(digits, count);
                pos += count + 1;
                if (n - pos < 2 || !isDigit(text[pos]) || !isDigit(text[pos + 1])) {
                    return -1;
                }
                int64_t minutes = digitsValue(text.data() + pos, 2);
                pos += 2;
                int64_t seconds = 0;
                if (n - pos >= 3 && text[pos] == ':' && isDigit(text[pos + 1]) &&
                    isDigit(text[pos + 2])) {
                    seconds = digitsValue(text.data() + pos + 1, 2);
                    pos += 3;
                }
                if (minutes > 59 || seconds > 59) {
                    return -1;
                }
                magnitude = hours * 3600 + minutes * 60 + seconds;
            } else {
                size_t limit = atom.field == Field::OFFSET_MINUTES ? 3 : (atom.width == 0 ? 2 : 4);
                size_t keep = count > limit && nextBeginsWithDigit(index) ? limit : count;
                pos += keep;
                if (atom.field == Field::OFFSET_MINUTES) {
                    int64_t minutes = digitsValue(digits, keep);
                    if (minutes > 99 * 60 + 59) {
                        return -1;
                    }
                    magnitude = minutes * 60;
                } else if (keep <= 2) {
                    magnitude = digitsValue(digits, keep) * 3600;
                } else if (keep <= 4 || keep == 6) {
                    size_t hourDigits = keep == 6 ? 2 : keep - 2;
                    int64_t minutes = digitsValue(digits + hourDigits, 2);
                    int64_t seconds = keep == 6 ? digitsValue(digits + 4, 2) : 0;
                    if (minutes > 59 || seconds > 59) {
                        return -1;
                    }
                    magnitude = digitsValue(digits, hourDigits) * 3600 + minutes * 60 + seconds;
                } else {
                    return -1;
                }
            }
            fields.put(SLOT_OFFSET, negative ? -magnitude : magnitude);
            continue;
        }

        // Text atoms.
        if (atom.field == Field::AM_PM_UPPER || atom.field == Field::AM_PM_LOWER) {
            bool matched = false;
            for (const MeridiemWord& word : MERIDIEM_WORDS) {
                size_t length = std::strlen(word.bytes);
                if (n - pos >= length && std::memcmp(text.data() + pos, word.bytes, length) == 0) {
                    fields.put(SLOT_PM, word.pm ? 1 : 0);
                    pos += length;
                    matched = true;
                    break;
                }
            }
            if (matched) {
                continue;
            }
            size_t length = wordLength(text, pos, true);
            const char* word = text.data() + pos;
            bool am = (length == 2 && equalsIgnoringCase(word, "am", 2)) ||
                      (length == 4 && equalsIgnoringCase(word, "a.m.", 4));
            bool pm = (length == 2 && equalsIgnoringCase(word, "pm", 2)) ||
                      (length == 4 && equalsIgnoringCase(word, "p.m.", 4));
            if (!am && !pm) {
                return -1;
            }
            fields.put(SLOT_PM, pm ? 1 : 0);
            pos += length;
            continue;
        }
        size_t length = wordLength(text, pos, false);
        if (length == 0) {
            return -1;
        }
        const char* word = text.data() + pos;
        if (atom.field == Field::WEEKDAY_NAME || atom.field == Field::WEEKDAY_FULL) {
            size_t shortLetters = atom.field == Field::WEEKDAY_NAME && atom.width == 2 ? 2 : 0;
            int day = matchName(word, length, WEEKDAY_NAMES, 7, shortLetters);
            if (day < 0) {
                return -1;
            }
            fields.put(SLOT_WEEKDAY, day);
        } else if (atom.field == Field::MONTH_NAME || atom.field == Field::MONTH_FULL) {
            int month = matchName(word, length, MONTH_NAMES, 12, 0);
            if (month < 0) {
                return -1;
            }
            fields.put(SLOT_MONTH, month + 1);
        }
        // A zone name only has to be a word: the offset, when given, comes from its own atom.
        pos += length;
    }

    mismatches += fields.mismatches;

    if (fields.set[SLOT_EPOCH_SECONDS]) {
        int64_t seconds = fields.value[SLOT_EPOCH_SECONDS];
        uint64_t magnitude =
            seconds < 0 ? 0 - static_cast<uint64_t>(seconds) : static_cast<uint64_t>(seconds);
        Timeval result;
        if (!result.fromSeconds(seconds < 0, magnitude,
                                static_cast<uint32_t>(fields.get(SLOT_SUB_SECONDS, 0)))) {
            return -1;
        }
        out = result;
        return static_cast<int64_t>(pos);
    }

    // The year: %Y, else century and year of century, else the ISO year; 1970 without any.
    int64_t year = 1970;
    if (fields.set[SLOT_YEAR]) {
        year = fields.value[SLOT_YEAR];
    } else if (fields.set[SLOT_CENTURY]) {
        year = fields.value[SLOT_CENTURY] * 100 + fields.get(SLOT_YEAR_OF_CENTURY, 0);
    } else if (fields.set[SLOT_YEAR_OF_CENTURY]) {
        int64_t y = fields.value[SLOT_YEAR_OF_CENTURY];
        year = y < 69 ? 2000 + y : 1900 + y;
    } else if (fields.set[SLOT_ISO_YEAR]) {
        year = fields.value[SLOT_ISO_YEAR];
    } else if (fields.set[SLOT_ISO_YEAR_OF_CENTURY]) {
        year = 2000 + fields.value[SLOT_ISO_YEAR_OF_CENTURY];
    }

    std::tm tm{};
    tm.tm_isdst = -1;
    tm.tm_year = static_cast<int>(year - 1900);
    tm.tm_mday = 1;
    int64_t weekday = fields.get(SLOT_WEEKDAY, -1);
    if (fields.set[SLOT_MONTH] || fields.set[SLOT_DAY_OF_MONTH]) {
        tm.tm_mon = static_cast<int>(fields.get(SLOT_MONTH, 1) - 1);
        tm.tm_mday = static_cast<int>(fields.get(SLOT_DAY_OF_MONTH, 1));
    } else if (fields.set[SLOT_DAY_OF_YEAR]) {
        tm.tm_mday = static_cast<int>(fields.value[SLOT_DAY_OF_YEAR]);
    } else if (fields.set[SLOT_ISO_WEEK]) {
        int64_t isoYear = fields.set[SLOT_ISO_YEAR] ? fields.value[SLOT_ISO_YEAR]
                          : fields.set[SLOT_ISO_YEAR_OF_CENTURY]
                              ? 2000 + fields.value[SLOT_ISO_YEAR_OF_CENTURY]
                              : year;
        // Week 1 holds 4 January; days count from its Monday.
        int64_t jan4 = weekdayOf(isoYear, 0, 4);
        int64_t isoJan4 = jan4 == 0 ? 7 : jan4;
        int64_t isoWeekday = weekday < 0 ? 1 : (weekday == 0 ? 7 : weekday);
        tm.tm_year = static_cast<int>(isoYear - 1900);
        tm.tm_mday = static_cast<int>(4 - (isoJan4 - 1) + (fields.value[SLOT_ISO_WEEK] - 1) * 7 +
                                      isoWeekday - 1);
    } else if (fields.set[SLOT_WEEK_SUNDAY] || fields.set[SLOT_WEEK_MONDAY]) {
        int64_t jan1 = weekdayOf(year, 0, 1);
        int64_t dayOfYear;
        if (fields.set[SLOT_WEEK_SUNDAY]) {
            int64_t firstSunday = (7 - jan1) % 7;
            dayOfYear = firstSunday + (fields.value[SLOT_WEEK_SUNDAY] - 1) * 7 +
                        (weekday < 0 ? 0 : weekday);
        } else {
            int64_t firstMonday = (8 - jan1) % 7;
            dayOfYear = firstMonday + (fields.value[SLOT_WEEK_MONDAY] - 1) * 7 +
                        (weekday < 0 ? 0 : (weekday + 6) % 7);
        }
        tm.tm_mday = static_cast<int>(dayOfYear + 1);
    }
    if (fields.set[SLOT_HOUR_12]) {
        tm.tm_hour =
            static_cast<int>(fields.value[SLOT_HOUR_12] + (fields.get(SLOT_PM, 0) ? 12 : 0));
    } else {
        tm.tm_hour = static_cast<int>(fields.get(SLOT_HOUR, 0));
    }
    tm.tm_min = static_cast<int>(fields.get(SLOT_MINUTE, 0));
    tm.tm_sec = static_cast<int>(fields.get(SLOT_SECOND, 0));

    int64_t seconds;
    if (fields.set[SLOT_OFFSET]) {
        seconds = GmtStructTm::calendarToSeconds(tm) - fields.value[SLOT_OFFSET];
    } else {
        seconds = provider.epochSeconds(tm);
        if (seconds == TimeZoneProvider::INVALID_SECONDS) {
            return -1;
        }
    }
    // The calendar fields name a whole second; the fraction lies after it.
    uint32_t subSeconds = static_cast<uint32_t>(fields.get(SLOT_SUB_SECONDS, 0));
    Timeval result;
    bool ok;
    if (seconds >= 0) {
        ok = result.fromSeconds(false, static_cast<uint64_t>(seconds), subSeconds);
    } else if (subSeconds == 0) {
        ok = result.fromSeconds(true, static_cast<uint64_t>(-seconds), 0);
    } else {
        ok = result.fromSeconds(true, static_cast<uint64_t>(-seconds) - 1,
                                static_cast<uint32_t>(Timeval::TICKS_PER_SECOND) - subSeconds);
    }
    if (!ok) {
        return -1;
    }
    out = result;
    return static_cast<int64_t>(pos);
}

}  // namespace morvax
