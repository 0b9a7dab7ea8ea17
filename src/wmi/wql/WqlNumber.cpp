#include "wmi/wql/WqlNumber.h"
#include "util/base/Ascii.h"

#include <charconv>
#include <cmath>
#include <string>

namespace morvax::wmi {

namespace {}  // namespace

bool WqlNumber::parse(std::u16string_view text, WqlNumber& out) {
    if (text.empty() || text.size() > 400) {
        return false;
    }
    std::string narrow;
    narrow.reserve(text.size());
    for (char16_t c : text) {
        if (c >= 0x80) {
            return false;
        }
        narrow.push_back(static_cast<char>(c));
    }
    size_t pos = 0;
    bool negative = false;
    if (narrow[0] == '+' || narrow[0] == '-') {
        negative = narrow[0] == '-';
        pos = 1;
    }
    const size_t digitsStart = pos;
    size_t digits = 0;
    while (pos < narrow.size() && isDigit(narrow[pos])) {
        ++pos, ++digits;
    }
    const size_t integerEnd = pos;
    bool real = false;
    if (pos < narrow.size() && narrow[pos] == '.') {
        real = true;
        ++pos;
        while (pos < narrow.size() && isDigit(narrow[pos])) {
            ++pos, ++digits;
        }
    }
    if (digits == 0) {
        return false;
    }
    if (pos < narrow.size() && (narrow[pos] == 'e' || narrow[pos] == 'E')) {
        real = true;
        ++pos;
        if (pos < narrow.size() && (narrow[pos] == '+' || narrow[pos] == '-')) {
            ++pos;
        }
        if (pos >= narrow.size() || !isDigit(narrow[pos])) {
            return false;
        }
        while (pos < narrow.size() && isDigit(narrow[pos])) {
            ++pos;
        }
    }
    if (pos != narrow.size()) {
        return false;
    }
    const char* first = narrow.data() + digitsStart;
    if (!real) {
        uint64_t value = 0;
        auto [end, ec] = std::from_chars(first, narrow.data() + integerEnd, value);
        if (ec == std::errc()) {
            out = WqlNumber();
            out.negative = negative && value != 0;
            out.magnitude = value;
            return true;
        }
    }
    double value = 0;
    auto [end, ec] = std::from_chars(first, narrow.data() + narrow.size(), value);
    if (ec != std::errc() && ec != std::errc::result_out_of_range) {
        return false;
    }
    if (ec == std::errc::result_out_of_range) {
        // from_chars leaves the value alone: a negative exponent underflowed, anything else
        // overflowed.
        size_t e = narrow.find_first_of("eE");
        bool tiny = e != std::string::npos && narrow[e + 1] == '-';
        value = tiny ? 0.0 : HUGE_VAL;
    }
    out = WqlNumber();
    out.isReal = true;
    out.real = negative ? -value : value;
    return true;
}

bool WqlNumber::fromVariant(const Variant& value, WqlNumber& out) {
    out = WqlNumber();
    switch (value.vt) {
        case VT_I1:
        case VT_I2:
        case VT_I4:
        case VT_I8:
        case VT_INT:
            out.negative = value.i < 0;
            out.magnitude = value.i < 0 ? uint64_t{0} - static_cast<uint64_t>(value.i)
                                        : static_cast<uint64_t>(value.i);
            return true;
        case VT_UI1:
        case VT_UI2:
        case VT_UI4:
        case VT_UI8:
        case VT_UINT:
            out.magnitude = value.u;
            return true;
        case VT_R4:
        case VT_R8:
            out.isReal = true;
            out.real = value.d;
            return true;
        default:
            return false;
    }
}

double WqlNumber::toDouble() const {
    if (isReal) {
        return real;
    }
    double d = static_cast<double>(magnitude);
    return negative ? -d : d;
}

bool WqlNumber::compare(const WqlNumber& a, const WqlNumber& b, int& result) {
    if (a.isReal || b.isReal) {
        double x = a.toDouble(), y = b.toDouble();
        if (std::isnan(x) || std::isnan(y)) {
            return false;
        }
        result = x < y ? -1 : (x > y ? 1 : 0);
        return true;
    }
    if (a.negative != b.negative) {
        result = a.negative ? -1 : 1;
        return true;
    }
    int byMagnitude = a.magnitude < b.magnitude ? -1 : (a.magnitude > b.magnitude ? 1 : 0);
    result = a.negative ? -byMagnitude : byMagnitude;
    return true;
}

Variant WqlNumber::toConstant() const {
    if (isReal) {
        return Variant::fromDouble(VT_R8, real);
    }
    if (!negative) {
        if (magnitude <= INT32_MAX) {
            return Variant::fromInt(VT_I4, static_cast<int64_t>(magnitude));
        }
        if (magnitude <= INT64_MAX) {
            return Variant::fromInt(VT_I8, static_cast<int64_t>(magnitude));
        }
        return Variant::fromUInt(VT_UI8, magnitude);
    }
    if (magnitude <= uint64_t{1} << 63) {
        int64_t value = static_cast<int64_t>(uint64_t{0} - magnitude);
        return Variant::fromInt(value >= INT32_MIN ? VT_I4 : VT_I8, value);
    }
    return Variant::fromDouble(VT_R8, -static_cast<double>(magnitude));
}

}  // namespace morvax::wmi
