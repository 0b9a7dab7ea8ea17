#pragma once

#include <cstdint>

#include "util/base/Str.h"
#include "util/time/Timeval.h"

namespace morvax {

// The printable difference of two times in a unit fit for a person: "3.500 seconds",
// "-12.34 milliseconds", "1 microsecond".
class TimeDifference {
  public:
    // later - earlier; negative when `later` is before `earlier`.
    TimeDifference(Timeval later, Timeval earlier);

    void appendTo(Str& target) const;
    Str toText() const;

    const char* unitText() const { return unitText_; }
    bool isNegative() const { return negative_ != 0; }
    bool isInteger() const { return isInteger_ != 0; }
    double value() const { return isInteger_ ? static_cast<double>(value_.integer) : value_.real; }

  private:
    const char* unitText_;
    union {
        double real;
        uint64_t integer;
    } value_;
    uint8_t negative_;
    uint8_t isInteger_;
};

}  // namespace morvax
