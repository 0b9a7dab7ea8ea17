// Fuzz target of the time formats. The first bytes of an input pick a time and a zone offset,
// the rest is a format and, after a NUL, a text to parse with it. Compiling never crashes and a
// compiled format keeps its bounds; any text parses to a time or to -1, never past its end; a
// time formatted with the format stays within the atoms' widths, and when the format names
// the time completely and without ambiguity, parsing what it wrote gives the time back.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "FuzzDiscardLog.h"
#include "FuzzSupport.h"
#include "util/base/CharSet.h"
#include "util/base/Str.h"
#include "util/time/StructTm.h"
#include "util/time/TimeFormat.h"
#include "util/time/TimeZoneProvider.h"
#include "util/time/Timeval.h"

namespace morvax {
namespace {

using fuzz::check;
using Field = TimeFormatField;
using Atom = TimeFormatAtom;

// 1971-01-05 and 2999-12-20 UTC: inside the years that %Y and %G parse, at any offset.
constexpr int64_t kFirstSecond = 31881600;
constexpr int64_t kLastSecond = 32502643200;
// The most a non-literal atom writes beside its width: a zone name or 20 digits and a sign.
constexpr uint64_t kMaxAtomText = 64;

bool isNumber(Field f) {
    return f >= Field::YEAR && f <= Field::SUB_SECONDS;
}

bool isOffset(Field f) {
    return f >= Field::OFFSET && f <= Field::OFFSET_MINUTES;
}

bool isText(Field f) {
    return f >= Field::WEEKDAY_NAME && f <= Field::ZONE_NAME;
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The digits a number field takes at most in the years formatted here; 0 when unbounded.
uint64_t maxDigits(const Atom& atom) {
    switch (atom.field) {
        case Field::YEAR:
        case Field::ISO_YEAR:
            return 4;
        case Field::DAY_OF_YEAR:
            return 3;
        case Field::WEEKDAY:
        case Field::ISO_WEEKDAY:
            return 1;
        case Field::EPOCH_SECONDS:
            return 0;
        case Field::SUB_SECONDS:
            return atom.width;
        default:
            return 2;
    }
}

// Whether the text one atom writes ends where the parser will end it, given what follows.
bool endsClearly(const TimeFormat& format, size_t index) {
    const std::vector<Atom>& atoms = format.atoms();
    const Atom& atom = atoms[index];
    if (index + 1 == atoms.size()) {
        return true;
    }
    const Atom& next = atoms[index + 1];
    const char first = next.field == Field::LITERAL ? format.literalText(next)[0] : '\0';
    const bool nextDigits = isNumber(next.field) || isOffset(next.field) ||
                            (next.field == Field::LITERAL && first >= '0' && first <= '9');
    if (isNumber(atom.field)) {
        // Digits followed by digits split only where a fixed, zero-filled width says.
        return !nextDigits || isOffset(next.field) ||
               (atom.fill == Atom::FILL_ZERO && maxDigits(atom) != 0 &&
                atom.width >= maxDigits(atom));
    }
    if (isOffset(atom.field)) {
        return next.field == Field::WHITESPACE ||
               (next.field == Field::LITERAL && !nextDigits && first != ':' && first != '+' &&
                first != '-') ||
               isText(next.field);
    }
    if (isText(atom.field)) {
        return !isText(next.field) &&
               !(next.field == Field::LITERAL && (isLetter(first) || first == '.'));
    }
    return true;
}

// A format that names the instant, and whose every atom the parser reads back as written.
bool namesTheInstant(const TimeFormat& format, int32_t offset, int64_t seconds) {
    bool has[static_cast<size_t>(Field::OFFSET_MINUTES) + 1] = {};
    const std::vector<Atom>& atoms = format.atoms();
    for (size_t i = 0; i < atoms.size(); ++i) {
        const Atom& atom = atoms[i];
        has[static_cast<size_t>(atom.field)] = true;
        if (!endsClearly(format, i)) {
            return false;
        }
        // Offsets other than these drop the seconds of the offset.
        if (isOffset(atom.field) && atom.field != Field::OFFSET_SECONDS &&
            atom.field != Field::OFFSET_SHORTEST && offset % 60 != 0) {
            return false;
        }
        // Swapped case splits a name where a lower-case letter meets an upper-case one.
        if (isText(atom.field) && atom.caseMode == Atom::CASE_SWAP) {
            return false;
        }
        // No digit is written, and the parser asks for one.
        if (atom.field == Field::SUB_SECONDS && atom.width == 0) {
            return false;
        }
    }
    auto present = [&](Field f) { return has[static_cast<size_t>(f)]; };
    if (present(Field::EPOCH_SECONDS)) {
        return true;
    }
    // 2069 and later read back as 19xx from two digits alone.
    const bool year = present(Field::YEAR) ||
                      (present(Field::CENTURY) && present(Field::YEAR_OF_CENTURY)) ||
                      (present(Field::YEAR_OF_CENTURY) && seconds + offset < 3124137600);
    const bool day =
        ((present(Field::MONTH) || present(Field::MONTH_NAME) || present(Field::MONTH_FULL)) &&
         present(Field::DAY_OF_MONTH)) ||
        (present(Field::DAY_OF_YEAR) && !present(Field::MONTH) && !present(Field::MONTH_NAME) &&
         !present(Field::MONTH_FULL) && !present(Field::DAY_OF_MONTH));
    const bool hour =
        (present(Field::HOUR) && !present(Field::HOUR_12)) ||
        (present(Field::HOUR_12) && (present(Field::AM_PM_UPPER) || present(Field::AM_PM_LOWER)));
    return year && day && hour && present(Field::MINUTE) && present(Field::SECOND);
}

// The sub-second ticks the format keeps: the last sub-second atom's digits. `agree` is false
// when sub-second atoms of different widths give different values.
uint32_t keptTicks(const TimeFormat& format, uint32_t ticks, bool& agree) {
    uint64_t digits = 0;
    agree = true;
    for (const Atom& atom : format.atoms()) {
        if (atom.field == Field::SUB_SECONDS) {
            agree =
                agree && (digits == 0 || (digits >= 7 && atom.width >= 7) || digits == atom.width);
            digits = atom.width;
        }
    }
    uint32_t scale = 10000000;
    for (uint64_t i = 0; i < digits && scale > 1; ++i) {
        scale /= 10;
    }
    return digits == 0 ? 0 : ticks - ticks % scale;
}

void checkCompiled(const TimeFormat& format) {
    check(format.isCompiled(), "a compiled format has atoms");
    for (const Atom& atom : format.atoms()) {
        if (atom.field == Field::LITERAL || atom.field == Field::WHITESPACE) {
            check(atom.width > 0, "a literal holds bytes");
            // literalText() must stay inside the literal text; reading it proves that under ASan.
            const StrSegment text = format.literalText(atom);
            check(atom.field == Field::LITERAL || CharSet::whitespace().contains(text[0]),
                  "white space atoms hold white space");
        } else {
            check(atom.width <= TimeFormat::MAX_WIDTH, "widths within their bound");
        }
    }
    check(format.coarsest() <= format.finest(), "the coarsest unit is not finer than the finest");
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    fuzz::DiscardLog::install();
    constexpr size_t kHeader = 15;
    uint8_t header[kHeader] = {};
    std::memcpy(header, data, size < kHeader ? size : kHeader);
    uint64_t pick;
    uint32_t ticks;
    int16_t minutes;
    std::memcpy(&pick, header, 8);
    std::memcpy(&ticks, header + 8, 4);
    std::memcpy(&minutes, header + 12, 2);
    const int64_t seconds =
        kFirstSecond +
        static_cast<int64_t>(pick % static_cast<uint64_t>(kLastSecond - kFirstSecond));
    ticks %= static_cast<uint32_t>(Timeval::TICKS_PER_SECOND);
    int32_t offset = (minutes % 841) * 60;
    if (header[14] & 1) {
        offset += (offset < 0 ? -1 : 1) * ((header[14] >> 1) % 60);
    }

    const size_t rest = size > kHeader ? size - kHeader : 0;
    const char* bytes = reinterpret_cast<const char*>(data) + (size - rest);
    const char* nul = static_cast<const char*>(std::memchr(bytes, '\0', rest));
    const StrSegment formatText(bytes, nul ? static_cast<size_t>(nul - bytes) : rest);
    const StrSegment parseText =
        nul ? StrSegment(nul + 1, static_cast<size_t>(bytes + rest - nul - 1)) : StrSegment();

    TimeFormat format;
    const FixedOffsetTimeZoneProvider zone(offset, "Zone");
    Timeval parsed;
    if (!format.compile(formatText)) {
        check(!format.isCompiled() && format.atoms().empty(), "a refused format holds nothing");
        check(format.parse(parsed, parseText, zone) == -1, "a refused format parses nothing");
        return 0;
    }
    checkCompiled(format);

    const int64_t end = format.parse(parsed, parseText, zone);
    check(end >= -1 && end <= static_cast<int64_t>(parseText.size()),
          "a parse ends inside its text");

    Timeval instant;
    check(instant.fromSeconds(false, static_cast<uint64_t>(seconds), ticks), "a time in range");
    StructTmInTimezoneHires tm(offset, "Zone");
    check(tm.fromTimeval(instant), "the time has a calendar");
    Str written;
    format.format(tm, written);
    uint64_t bound = 0;
    for (const Atom& atom : format.atoms()) {
        const bool literal = atom.field == Field::LITERAL || atom.field == Field::WHITESPACE;
        bound += literal ? atom.width : (atom.width > kMaxAtomText ? atom.width : kMaxAtomText);
    }
    check(written.size() <= bound, "formatted text within the atoms' widths");

    Timeval back;
    uint32_t mismatches = 0;
    const int64_t read = format.parse(back, written, zone, mismatches);
    if (namesTheInstant(format, offset, seconds)) {
        check(read == static_cast<int64_t>(written.size()), "a formatted time parses whole");
        bool agree;
        Timeval expected;
        expected.fromSeconds(false, static_cast<uint64_t>(seconds),
                             keptTicks(format, ticks, agree));
        check(mismatches == 0 || !agree, "a formatted time has no conflicting fields");
        check(back == expected, "a formatted time parses to itself");
    }
    return 0;
}
