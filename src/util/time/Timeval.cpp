#include "util/time/Timeval.h"

#include <atomic>

#include "util/base/Diagnostics.h"
#include "util/time/StructTm.h"

namespace morvax {

namespace {

DiagnosticsChannel diagnostics("Timeval");

constexpr uint64_t TOP_BIT = uint64_t{1} << 63;

std::atomic<const Timeval*>& clockOverride() {
    static std::atomic<const Timeval*> source{nullptr};
    return source;
}

void appendUnsigned(Str& target, uint64_t value) {
    char digits[20];
    size_t n = 0;
    do {
        digits[n++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (n > 0) {
        target.append(digits[--n]);
    }
}

}  // namespace

Timeval Timeval::now() {
    const Timeval* source = clockOverride().load(std::memory_order_acquire);
    return source ? *source : Timeval(systemNow());
}

Timeval Timeval::coarseNow() {
    const Timeval* source = clockOverride().load(std::memory_order_acquire);
    return source ? *source : Timeval(systemCoarseNow());
}

const Timeval* Timeval::setClockOverride(const Timeval* source) {
    return clockOverride().exchange(source, std::memory_order_acq_rel);
}

Timeval Timeval::addInterval(Timeval t, uint64_t intervalMs) {
    if (intervalMs == 0) {
        return t;
    }
    if ((t.ticks_ & TOP_BIT) != 0 || intervalMs >= TOP_BIT / TICKS_PER_MILLISECOND) {
        return MAX_TIME;
    }
    uint64_t sum = t.ticks_ + intervalMs * TICKS_PER_MILLISECOND;
    return (sum & TOP_BIT) != 0 ? MAX_TIME : Timeval(sum);
}

uint64_t Timeval::differenceMs(Timeval later, Timeval earlier) {
    uint64_t ticks = later.ticks_ - earlier.ticks_;
    return ticks / TICKS_PER_MILLISECOND + (ticks % TICKS_PER_MILLISECOND != 0 ? 1 : 0);
}

int64_t Timeval::differenceSeconds(Timeval a, Timeval b) {
    if (a.ticks_ >= b.ticks_) {
        return static_cast<int64_t>((a.ticks_ - b.ticks_) / TICKS_PER_SECOND);
    }
    return -static_cast<int64_t>((b.ticks_ - a.ticks_) / TICKS_PER_SECOND);
}

bool Timeval::fromSeconds(bool negative, uint64_t seconds, uint32_t ticks) {
    if (ticks >= TICKS_PER_SECOND) {
        return false;
    }
    if (negative) {
        if (seconds > MAX_SECONDS_BEFORE_EPOCH) {
            return false;
        }
        uint64_t before = seconds * TICKS_PER_SECOND + ticks;
        if (before > UNIX_EPOCH_TICKS) {
            return false;
        }
        ticks_ = UNIX_EPOCH_TICKS - before;
        return true;
    }
    if (seconds >= SECONDS_AFTER_EPOCH_LIMIT) {
        return false;
    }
    uint64_t after = seconds * TICKS_PER_SECOND + ticks;
    if (after > ~uint64_t{0} - UNIX_EPOCH_TICKS) {
        return false;
    }
    ticks_ = UNIX_EPOCH_TICKS + after;
    return true;
}

bool Timeval::parseSeconds(StrSegment text) {
    size_t i = 0;
    size_t n = text.size();
    bool negative = false;
    if (i < n && text[i] == '-') {
        negative = true;
        ++i;
    }
    size_t firstDigit = i;
    uint64_t seconds = 0;
    for (; i < n && text[i] >= '0' && text[i] <= '9'; ++i) {
        if (seconds >= SECONDS_AFTER_EPOCH_LIMIT) {
            return false;
        }
        seconds = seconds * 10 + static_cast<uint64_t>(text[i] - '0');
    }
    if (i == firstDigit) {
        return false;
    }
    uint32_t ticks = 0;
    if (i < n && text[i] == '.') {
        ++i;
        size_t fractionStart = i;
        uint32_t scale = TICKS_PER_SECOND / 10;
        for (; i < n && text[i] >= '0' && text[i] <= '9'; ++i) {
            ticks += static_cast<uint32_t>(text[i] - '0') * scale;
            scale /= 10;
        }
        if (i == fractionStart) {
            return false;
        }
    }
    if (i != n) {
        return false;
    }
    return fromSeconds(negative, seconds, ticks);
}

void Timeval::toEpochSeconds(int64_t& seconds, uint32_t& subTicks) const {
    if (ticks_ >= UNIX_EPOCH_TICKS) {
        uint64_t after = ticks_ - UNIX_EPOCH_TICKS;
        seconds = static_cast<int64_t>(after / TICKS_PER_SECOND);
        subTicks = static_cast<uint32_t>(after % TICKS_PER_SECOND);
    } else {
        uint64_t before = UNIX_EPOCH_TICKS - ticks_;
        seconds = -static_cast<int64_t>(before / TICKS_PER_SECOND);
        subTicks = static_cast<uint32_t>(before % TICKS_PER_SECOND);
    }
}

Timeval Timeval::fromUnixTime(int64_t seconds) {
    Timeval t;
    if (seconds >= 0) {
        if (!t.fromSeconds(false, static_cast<uint64_t>(seconds), 0)) {
            t.setMax();
        }
    } else if (!t.fromSeconds(true, static_cast<uint64_t>(-(seconds + 1)) + 1, 0)) {
        t.setZero();
    }
    return t;
}

int64_t Timeval::unixTime() const {
    if (ticks_ < UNIX_EPOCH_TICKS) {
        return 0;
    }
    return static_cast<int64_t>((ticks_ - UNIX_EPOCH_TICKS) / TICKS_PER_SECOND);
}

void Timeval::appendDecimalSeconds(Str& target, unsigned digits) const {
    if (ticks_ == 0) {
        target.append('0');
        return;
    }
    int64_t seconds;
    uint32_t subTicks;
    toEpochSeconds(seconds, subTicks);
    if (ticks_ < UNIX_EPOCH_TICKS) {
        target.append('-');
    }
    appendUnsigned(target,
                   seconds < 0 ? static_cast<uint64_t>(-seconds) : static_cast<uint64_t>(seconds));
    if (digits == 0) {
        return;
    }
    target.append('.');
    uint32_t scale = TICKS_PER_SECOND / 10;
    for (unsigned i = 0; i < digits; ++i) {
        if (scale == 0) {
            target.append('0');
            continue;
        }
        target.append(static_cast<char>('0' + subTicks / scale % 10));
        scale /= 10;
    }
}

Str Timeval::toDecimalSeconds(unsigned digits) const {
    Str text;
    appendDecimalSeconds(text, digits);
    return text;
}

void Timeval::toLocal(LocalStructTm& out) const {
    int64_t seconds;
    uint32_t subTicks;
    toEpochSeconds(seconds, subTicks);
    if (!out.fromUnixTime(seconds)) {
        diagnostics.warn("%s(%lld) failed!", "_localtime64_s", static_cast<long long>(seconds));
        LocalStructTm::setFallback(out, seconds < 0);
    }
}

void Timeval::toLocalHires(LocalStructTmHires& out) const {
    if (out.fromTimeval(*this)) {
        return;
    }
    int64_t seconds;
    uint32_t subTicks;
    toEpochSeconds(seconds, subTicks);
    diagnostics.warn("%s(%lld) failed!", "_localtime64_s", static_cast<long long>(seconds));
    LocalStructTm::setFallback(out, seconds < 0);
    out.subSeconds = seconds < 0 ? 0 : TICKS_PER_SECOND - 1;
}

void Timeval::appendText(Str& target) const {
    if (isZero()) {
        target.append("MIN_TIME");
        return;
    }
    if (isMax()) {
        target.append("MAX_TIME");
        return;
    }
    int64_t seconds;
    uint32_t subTicks;
    toEpochSeconds(seconds, subTicks);
    LocalStructTm tm;
    if (!tm.fromUnixTime(seconds)) {
        target.appendFormat("INVALID_TIME (%lld)", static_cast<long long>(seconds));
        return;
    }
    // The CRT's asctime form, without its line end.
    static const char weekdays[] = "SunMonTueWedThuFriSat";
    static const char months[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    int weekday = tm.tm_wday >= 0 && tm.tm_wday < 7 ? tm.tm_wday : 0;
    int month = tm.tm_mon >= 0 && tm.tm_mon < 12 ? tm.tm_mon : 0;
    target.appendFormat("%.3s %.3s %02d %02d:%02d:%02d %d", weekdays + weekday * 3,
                        months + month * 3, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                        tm.tm_year + 1900);
}

Str Timeval::toText() const {
    Str text;
    appendText(text);
    return text;
}

}  // namespace morvax
