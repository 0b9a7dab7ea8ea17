#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "util/base/Str.h"
#include "wmi/Wmi.h"

namespace morvax::wmi {

namespace {

enum class Family { NONE, SIGNED, UNSIGNED, REAL, BOOLEAN, STRING, OBJECT, NUL, OTHER };

Family familyOf(uint16_t vt) {
    switch (vt) {
        case VT_EMPTY:
            return Family::NONE;
        case VT_NULL:
            return Family::NUL;
        case VT_I1:
        case VT_I2:
        case VT_I4:
        case VT_I8:
        case VT_INT:
            return Family::SIGNED;
        case VT_UI1:
        case VT_UI2:
        case VT_UI4:
        case VT_UI8:
        case VT_UINT:
            return Family::UNSIGNED;
        case VT_R4:
        case VT_R8:
            return Family::REAL;
        case VT_BOOL:
            return Family::BOOLEAN;
        case VT_BSTR:
            return Family::STRING;
        case VT_UNKNOWN:
        case VT_DISPATCH:
            return Family::OBJECT;
        default:
            return Family::OTHER;
    }
}

bool signedRange(uint16_t vt, int64_t& lo, int64_t& hi) {
    switch (vt) {
        case VT_I1:
            lo = INT8_MIN, hi = INT8_MAX;
            return true;
        case VT_I2:
            lo = INT16_MIN, hi = INT16_MAX;
            return true;
        case VT_I4:
        case VT_INT:
            lo = INT32_MIN, hi = INT32_MAX;
            return true;
        case VT_I8:
            lo = INT64_MIN, hi = INT64_MAX;
            return true;
        default:
            return false;
    }
}

uint64_t unsignedMax(uint16_t vt) {
    switch (vt) {
        case VT_UI1:
            return UINT8_MAX;
        case VT_UI2:
            return UINT16_MAX;
        case VT_UI4:
        case VT_UINT:
            return UINT32_MAX;
        default:
            return UINT64_MAX;
    }
}

// A number held exactly as far as possible: integers as integers, fractions as doubles.
struct Number {
    bool isReal = false;
    bool negative = false;
    uint64_t magnitude = 0;
    double real = 0;
};

bool parseNumber(const std::u16string& text, Number& out) {
    Str narrow = Str::fromWide(text);
    narrow.trim(CharSet(" \t"));
    if (narrow.empty()) {
        return false;
    }
    const char* s = narrow.c_str();
    char* end = nullptr;
    errno = 0;
    if (narrow.find('.') == Str::npos && narrow.find('e') == Str::npos &&
        narrow.find('E') == Str::npos) {
        bool negative = s[0] == '-';
        const char* digits = (s[0] == '-' || s[0] == '+') ? s + 1 : s;
        if (*digits < '0' || *digits > '9') {
            return false;
        }
        unsigned long long v = std::strtoull(digits, &end, 10);
        if (*end != '\0') {
            return false;
        }
        if (errno == ERANGE) {
            out.isReal = true;
            out.real = std::strtod(s, nullptr);
            return true;
        }
        out.negative = negative && v != 0;
        out.magnitude = v;
        return true;
    }
    double d = std::strtod(s, &end);
    if (*end != '\0' || end == s) {
        return false;
    }
    out.isReal = true;
    out.real = d;
    return true;
}

bool toNumber(const Variant& v, Number& out) {
    switch (familyOf(v.vt)) {
        case Family::NONE:
            return true;
        case Family::SIGNED:
            out.negative = v.i < 0;
            out.magnitude =
                v.i < 0 ? uint64_t{0} - static_cast<uint64_t>(v.i) : static_cast<uint64_t>(v.i);
            return true;
        case Family::UNSIGNED:
            out.magnitude = v.u;
            return true;
        case Family::REAL:
            out.isReal = true;
            out.real = v.d;
            return true;
        case Family::BOOLEAN:
            // VARIANT_TRUE is -1.
            out.negative = v.b;
            out.magnitude = v.b ? 1 : 0;
            return true;
        case Family::STRING:
            return parseNumber(v.str, out);
        default:
            return false;
    }
}

HRESULT toSigned(const Number& n, uint16_t vt, int64_t& out) {
    int64_t lo = INT64_MIN;
    int64_t hi = INT64_MAX;
    signedRange(vt, lo, hi);
    if (n.isReal) {
        double r = std::nearbyint(n.real);  // rounds half to even, as the platform does
        if (!(r >= static_cast<double>(lo) && r <= static_cast<double>(hi)) ||
            r >= 9223372036854775808.0) {
            return COM_DISP_E_OVERFLOW;
        }
        out = static_cast<int64_t>(r);
        return WBEM_S_NO_ERROR;
    }
    if (n.negative) {
        if (n.magnitude > static_cast<uint64_t>(-(lo + 1)) + 1) {
            return COM_DISP_E_OVERFLOW;
        }
        out = static_cast<int64_t>(uint64_t{0} - n.magnitude);
        return WBEM_S_NO_ERROR;
    }
    if (n.magnitude > static_cast<uint64_t>(hi)) {
        return COM_DISP_E_OVERFLOW;
    }
    out = static_cast<int64_t>(n.magnitude);
    return WBEM_S_NO_ERROR;
}

HRESULT toUnsigned(const Number& n, uint16_t vt, uint64_t& out) {
    uint64_t max = unsignedMax(vt);
    if (n.isReal) {
        double r = std::nearbyint(n.real);
        if (!(r >= 0) || r > static_cast<double>(max) || r >= 18446744073709551616.0) {
            return COM_DISP_E_OVERFLOW;
        }
        out = static_cast<uint64_t>(r);
        return WBEM_S_NO_ERROR;
    }
    if ((n.negative && n.magnitude != 0) || n.magnitude > max) {
        return COM_DISP_E_OVERFLOW;
    }
    out = n.magnitude;
    return WBEM_S_NO_ERROR;
}

std::u16string toText(const Variant& v) {
    Str text;
    switch (familyOf(v.vt)) {
        case Family::SIGNED:
            text.appendFormat("%lld", static_cast<long long>(v.i));
            break;
        case Family::UNSIGNED:
            text.appendFormat("%llu", static_cast<unsigned long long>(v.u));
            break;
        case Family::REAL:
            text.appendFormat(v.vt == VT_R4 ? "%.7G" : "%.15G", v.d);
            break;
        case Family::BOOLEAN:
            text.append(v.b ? "-1" : "0");
            break;
        default:
            break;
    }
    return text.toWide();
}

}  // namespace

Variant Variant::null() {
    Variant v;
    v.vt = VT_NULL;
    return v;
}

Variant Variant::fromString(std::u16string text) {
    Variant v;
    v.vt = VT_BSTR;
    v.str = std::move(text);
    return v;
}

Variant Variant::fromInt(uint16_t vt, int64_t value) {
    Variant v;
    v.vt = vt;
    v.i = value;
    return v;
}

Variant Variant::fromUInt(uint16_t vt, uint64_t value) {
    Variant v;
    v.vt = vt;
    v.u = value;
    return v;
}

Variant Variant::fromDouble(uint16_t vt, double value) {
    Variant v;
    v.vt = vt;
    v.d = value;
    return v;
}

Variant Variant::fromBool(bool value) {
    Variant v;
    v.vt = VT_BOOL;
    v.b = value;
    return v;
}

Variant Variant::fromObject(std::shared_ptr<ClassObject> object) {
    Variant v;
    v.vt = VT_UNKNOWN;
    v.object = std::move(object);
    return v;
}

HRESULT changeType(Variant& dest, const Variant& source, uint16_t vt) {
    if (source.vt == vt) {
        if (&dest != &source) {
            dest = source;
        }
        return WBEM_S_NO_ERROR;
    }
    if (source.isArray() || (vt & VT_ARRAY)) {
        return COM_DISP_E_TYPEMISMATCH;
    }
    Variant result;
    result.vt = vt;
    const Family from = familyOf(source.vt);
    switch (familyOf(vt)) {
        case Family::NONE:
            break;
        case Family::NUL:
            if (from != Family::NONE) {
                return COM_DISP_E_TYPEMISMATCH;
            }
            break;
        case Family::SIGNED:
        case Family::UNSIGNED:
        case Family::REAL: {
            Number n;
            if (!toNumber(source, n)) {
                return COM_DISP_E_TYPEMISMATCH;
            }
            Family to = familyOf(vt);
            HRESULT hr = WBEM_S_NO_ERROR;
            if (to == Family::SIGNED) {
                hr = toSigned(n, vt, result.i);
            } else if (to == Family::UNSIGNED) {
                hr = toUnsigned(n, vt, result.u);
            } else {
                double d = n.isReal ? n.real : static_cast<double>(n.magnitude);
                result.d = (!n.isReal && n.negative) ? -d : d;
                if (vt == VT_R4 && std::isfinite(result.d) &&
                    std::fabs(result.d) > std::numeric_limits<float>::max()) {
                    return COM_DISP_E_OVERFLOW;
                }
            }
            if (failed(hr)) {
                return hr;
            }
            break;
        }
        case Family::BOOLEAN: {
            if (from == Family::STRING) {
                Str text = Str::fromWide(source.str).toLowerCopy();
                text.trim(CharSet(" \t"));
                if (text == "true" || text == "#true#") {
                    result.b = true;
                    break;
                }
                if (text == "false" || text == "#false#") {
                    result.b = false;
                    break;
                }
            }
            Number n;
            if (!toNumber(source, n)) {
                return COM_DISP_E_TYPEMISMATCH;
            }
            result.b = n.isReal ? n.real != 0 : n.magnitude != 0;
            break;
        }
        case Family::STRING:
            if (from == Family::NUL || from == Family::OBJECT || from == Family::OTHER) {
                return COM_DISP_E_TYPEMISMATCH;
            }
            result.str = toText(source);
            break;
        case Family::OBJECT:
            if (from != Family::OBJECT) {
                return COM_DISP_E_TYPEMISMATCH;
            }
            result.object = source.object;
            break;
        default:
            return COM_DISP_E_TYPEMISMATCH;
    }
    dest = std::move(result);
    return WBEM_S_NO_ERROR;
}

}  // namespace morvax::wmi
