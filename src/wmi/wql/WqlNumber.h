#pragma once

#include <cstdint>
#include <string_view>

#include "wmi/Wmi.h"

namespace morvax::wmi {

// A number of a query or of a property value, exact while it is an integer so that 64-bit
// values (which WMI hands out as strings) compare without rounding.
struct WqlNumber {
    bool isReal = false;
    bool negative = false;  // integers: the sign of `magnitude`
    uint64_t magnitude = 0;
    double real = 0;

    // Decimal text: an optional sign, digits with an optional fraction and exponent, nothing
    // else. Integers beyond 64 bits become reals.
    static bool parse(std::u16string_view text, WqlNumber& out);
    // Signed, unsigned and real variants; false for any other type.
    static bool fromVariant(const Variant& value, WqlNumber& out);
    // Sets `result` to <0, 0 or >0; false when the two are unordered (a NaN).
    static bool compare(const WqlNumber& a, const WqlNumber& b, int& result);

    double toDouble() const;
    // The value as a query constant: VT_I4 when it fits, else VT_I8, VT_UI8 or VT_R8.
    Variant toConstant() const;
};

}  // namespace morvax::wmi
