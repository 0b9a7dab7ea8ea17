#pragma once

#include <compare>
#include <cstdint>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"

namespace morvax {

class LocalStructTm;
class LocalStructTmHires;

// A wall-clock point: 100 ns ticks since 1 January 1601 UTC, the platform's file-time form.
// 0 is MIN_TIME; all ones is MAX_TIME, which schedules read as "never".
class Timeval {
  public:
    static constexpr uint64_t TICKS_PER_SECOND = 10000000;
    static constexpr uint64_t TICKS_PER_MILLISECOND = 10000;
    // The Unix epoch as a tick count.
    static constexpr uint64_t UNIX_EPOCH_TICKS = 116444736000000000ULL;
    // Seconds from 1601 to the Unix epoch: the furthest a time may lie before the epoch.
    static constexpr uint64_t MAX_SECONDS_BEFORE_EPOCH = 11644473600ULL;
    // Positive seconds since the epoch must stay below this.
    static constexpr uint64_t SECONDS_AFTER_EPOCH_LIMIT = 1833029933771ULL;

    static const Timeval MIN_TIME;
    static const Timeval MAX_TIME;

    constexpr Timeval() = default;
    constexpr explicit Timeval(uint64_t ticks) : ticks_(ticks) {}

    constexpr uint64_t ticks() const { return ticks_; }
    constexpr bool isBefore(Timeval other) const { return ticks_ < other.ticks_; }
    constexpr bool isNotAfter(Timeval other) const { return ticks_ <= other.ticks_; }
    constexpr bool isMax() const { return ticks_ == ~uint64_t{0}; }
    constexpr bool isZero() const { return ticks_ == 0; }
    void setMax() { ticks_ = ~uint64_t{0}; }
    void setZero() { ticks_ = 0; }

    friend constexpr bool operator==(Timeval a, Timeval b) = default;
    friend constexpr auto operator<=>(Timeval a, Timeval b) = default;

    // The clock override if one is set, else the platform's system time.
    static Timeval now();
    // As now(), from the platform's cheaper clock of a few milliseconds' grain: for deadlines
    // looked at on every record, not for times that are printed.
    static Timeval coarseNow();
    // Test hook: while `source` is non-null, now() reads *source. Set it before threads start.
    // Returns the previous pointer.
    static const Timeval* setClockOverride(const Timeval* source);

    // `t` plus `intervalMs` milliseconds; MAX_TIME when `t` or the sum does not fit 63 bits.
    static Timeval addInterval(Timeval t, uint64_t intervalMs);
    // (later - earlier) in milliseconds, rounded up. Unsigned: the caller keeps the order.
    static uint64_t differenceMs(Timeval later, Timeval earlier);
    // a - b in whole seconds, truncated toward zero.
    static int64_t differenceSeconds(Timeval a, Timeval b);

    // Sets the time `seconds` (plus `ticks`, 0 to 9999999) after the epoch, or before it when
    // `negative`. False, leaving the value alone, when the result cannot be represented.
    bool fromSeconds(bool negative, uint64_t seconds, uint32_t ticks);
    // "[-]digits[.digits]" in seconds since the epoch; fraction digits beyond 100 ns are dropped.
    bool parseSeconds(StrSegment text);
    // Seconds since the epoch with `digits` fractional digits (none when 0); "0" for MIN_TIME.
    void appendDecimalSeconds(Str& target, unsigned digits) const;
    Str toDecimalSeconds(unsigned digits) const;

    // Splits into seconds since the epoch and 100 ns ticks, both taken from the magnitude: a
    // time 1.3 s before the epoch gives -1 and 3000000.
    void toEpochSeconds(int64_t& seconds, uint32_t& subTicks) const;
    static Timeval fromUnixTime(int64_t seconds);
    // Seconds since the epoch; 0 for anything before it.
    int64_t unixTime() const;

    // Local calendar time. When the platform cannot convert, logs a warning and gives the
    // fallback (31 December 9999 23:59:59, or 1 January 1900 for times before the epoch).
    void toLocal(LocalStructTm& out) const;
    void toLocalHires(LocalStructTmHires& out) const;

    // "MIN_TIME", "MAX_TIME", "INVALID_TIME (<seconds>)" or the 24 characters of asctime.
    void appendText(Str& target) const;
    Str toText() const;

  private:
    // The platform's system time.
    static uint64_t systemNow();
    static uint64_t systemCoarseNow();

    uint64_t ticks_ = 0;
};

inline constexpr Timeval Timeval::MIN_TIME{0};
inline constexpr Timeval Timeval::MAX_TIME{~uint64_t{0}};

}  // namespace morvax
