#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <vector>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/time/TimeZoneProvider.h"
#include "util/time/Timeval.h"

namespace morvax {

class LocalStructTmHires;
class StructTmInTimezoneHires;

// What one atom of a compiled format stands for. The literal kinds come first: the parser skips
// white space before every atom after them.
enum class TimeFormatField : uint32_t {
    LITERAL = 0,          // bytes that must match
    WHITESPACE,           // blanks, tabs, line ends; the parser takes any run of white space
    YEAR,                 // %Y %o
    CENTURY,              // %C
    YEAR_OF_CENTURY,      // %y
    ISO_YEAR,             // %G
    ISO_YEAR_OF_CENTURY,  // %g
    MONTH,                // %m
    WEEK_SUNDAY,          // %U
    WEEK_MONDAY,          // %W
    ISO_WEEK,             // %V
    DAY_OF_MONTH,         // %d %e
    DAY_OF_YEAR,          // %j
    WEEKDAY,              // %w, Sunday 0
    ISO_WEEKDAY,          // %u, Sunday 7
    HOUR,                 // %H %k
    HOUR_12,              // %I and the hour form of %l
    MINUTE,               // %M
    SECOND,               // %S
    EPOCH_SECONDS,        // %s
    SUB_SECONDS,          // %N %Q %f %q and the millisecond form of %l; width is the digit count
    WEEKDAY_NAME,         // %a; width 2 gives two letters
    WEEKDAY_FULL,         // %A
    MONTH_NAME,           // %b %h
    MONTH_FULL,           // %B
    AM_PM_UPPER,          // %p
    AM_PM_LOWER,          // %P
    ZONE_NAME,            // %Z
    OFFSET,               // %z: +hhmm
    OFFSET_COLON,         // %:z: +hh:mm
    OFFSET_SECONDS,       // %::z: +hh:mm:ss
    OFFSET_SHORTEST,      // %:::z: +hh, +hh:mm or +hh:mm:ss
    OFFSET_MINUTES,       // %Ez: minutes, the DMTF form
};

struct TimeFormatAtom {
    enum Fill : uint32_t { FILL_BLANK = 1, FILL_ZERO = 2, FILL_NONE = 3 };
    enum Case : uint32_t { CASE_AS_IS = 0, CASE_UPPER = 1, CASE_SWAP = 2 };
    enum Modifier : uint32_t { MODIFIER_NONE = 0, MODIFIER_E = 1, MODIFIER_O = 2 };

    TimeFormatField field = TimeFormatField::LITERAL;
    // Literal kinds: offset of the bytes in the format's literal text.
    uint64_t text = 0;
    uint32_t fill = FILL_NONE;
    uint32_t caseMode = CASE_AS_IS;
    uint32_t modifier = MODIFIER_NONE;
    // Literal kinds: the byte count.
    uint64_t width = 0;
};

// An extended strftime/strptime. A format is compiled once into atoms; formatting and parsing
// then walk the atoms. Immutable after compile(), so threads may share one.
class TimeFormat {
  public:
    // Widths above this fail the compile: no format needs them and they would only pad.
    static constexpr uint64_t MAX_WIDTH = 1024;

    TimeFormat() = default;
    explicit TimeFormat(StrSegment format) { compile(format); }

    // False for a bad format; the object then holds nothing.
    bool compile(const char* format, size_t length);
    bool compile(StrSegment format) { return compile(format.data(), format.size()); }
    bool isCompiled() const { return !atoms_.empty(); }

    // Appends `tm` to `target`. `subSeconds` is in 100 ns units (0 to 9999999).
    void format(const std::tm& tm, Str& target, uint32_t subSeconds,
                const TimeZoneProvider& provider) const;
    void format(const LocalStructTmHires& tm, Str& target) const;
    void format(const StructTmInTimezoneHires& tm, Str& target) const;

    // Parses `text` from its start. Returns the position after the parsed text and sets `out`,
    // or -1 when the text does not fit the format or names no representable time. Fields given
    // twice with different values count in `mismatches` (the last one wins) but do not fail.
    // Without a zone offset or %s in the text, the fields are read in `provider`'s zone.
    int64_t parse(Timeval& out, StrSegment text, const TimeZoneProvider& provider,
                  uint32_t& mismatches) const;
    int64_t parse(Timeval& out, StrSegment text, const TimeZoneProvider& provider) const;

    const std::vector<TimeFormatAtom>& atoms() const { return atoms_; }
    StrSegment literalText(const TimeFormatAtom& atom) const {
        return StrSegment(literals_.data() + atom.text, static_cast<size_t>(atom.width));
    }
    // A length that formatted text usually stays within.
    uint64_t estimatedLength() const { return estimatedLength_; }
    // The coarsest and finest unit present: -6 years, -5 months, -4 weeks, -3 days, -2 hours,
    // -1 minutes, 0 seconds, then the number of sub-second digits. -7 and 1 when none is.
    int32_t coarsest() const { return coarsest_; }
    int32_t finest() const { return finest_; }

  private:
    void clear();
    bool compilePart(const char* format, size_t length, std::vector<size_t>& plainL);
    void appendLiteral(const char* bytes, size_t length);
    void resolveL(const std::vector<size_t>& plainL);
    void computeSummary();

    std::vector<TimeFormatAtom> atoms_;
    Str literals_;
    uint64_t estimatedLength_ = 0;
    int32_t coarsest_ = -7;
    int32_t finest_ = 1;
};

}  // namespace morvax
