#pragma once

#include <cstdint>

#include "util/base/LogFormatter.h"
#include "util/base/Str.h"
#include "util/base/StrSegment.h"

namespace morvax {

// A duration is an unsigned 64-bit count of milliseconds; all ones means for ever and 0 means
// no time. This class holds the operations on such values.
class Interval {
  public:
    static constexpr uint64_t FOREVER = ~uint64_t{0};
    // 2^64 / 1000, rounded up: the most milliseconds a microsecond count can round to.
    static constexpr uint64_t MAX_FROM_MICROSECONDS = 0x4189374BC6A7F0ULL;

    static constexpr uint64_t forever() { return FOREVER; }

    // Rounds up to whole milliseconds; FOREVER stays FOREVER.
    static uint64_t fromMicroseconds(uint64_t microseconds);

    // Seconds as "digits[.digits]", rounded to the nearest millisecond. Four fraction digits
    // count; later ones only tell that the value is not zero, and a non-zero text never gives
    // 0. A huge integer part gives FOREVER. False, leaving `out` alone, on anything else.
    static bool parse(StrSegment text, uint64_t& out);

    // "%llu.%03u": seconds and thousandths.
    static void appendText(uint64_t milliseconds, Str& target);
    static Str toText(uint64_t milliseconds);

    // For crash reports: no heap, no locks. "<zero>", "<max>" or "%08X%08X".
    static void printCrashSafe(uint64_t milliseconds, FormatSink& sink);
};

}  // namespace morvax
