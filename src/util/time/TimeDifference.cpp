#include "util/time/TimeDifference.h"

#include <cstring>

namespace morvax {

TimeDifference::TimeDifference(Timeval later, Timeval earlier) {
    negative_ = later.isBefore(earlier) ? 1 : 0;
    uint64_t ticks = negative_ ? earlier.ticks() - later.ticks() : later.ticks() - earlier.ticks();
    uint64_t microseconds = ticks / 10;
    isInteger_ = 0;
    if (microseconds > 8000000000ULL) {
        unitText_ = " hours";
        value_.real = static_cast<double>(microseconds) / 3600e6;
    } else if (microseconds > 3000000) {
        unitText_ = " seconds";
        value_.real = static_cast<double>(microseconds) / 1e6;
    } else if (microseconds > 3000) {
        unitText_ = " milliseconds";
        value_.real = static_cast<double>(microseconds) / 1e3;
    } else {
        unitText_ = " microseconds";
        value_.integer = microseconds;
        isInteger_ = 1;
    }
}

void TimeDifference::appendTo(Str& target) const {
    if (negative_) {
        target.append('-');
    }
    size_t unitLength = std::strlen(unitText_);
    if (isInteger_) {
        target.appendFormat("%llu", static_cast<unsigned long long>(value_.integer));
        if (value_.integer == 1) {
            --unitLength;
        }
    } else {
        int precision = value_.real >= 99.5 ? 1 : (value_.real >= 9.95 ? 2 : 3);
        target.appendFormat("%5.*f", precision, value_.real);
    }
    target.append(unitText_, unitLength);
}

Str TimeDifference::toText() const {
    Str text;
    appendTo(text);
    return text;
}

}  // namespace morvax
