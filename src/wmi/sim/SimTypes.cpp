#include "wmi/sim/SimTypes.h"

#include <cstring>

namespace morvax::wmi {

namespace {

struct CimName {
    const char* name;
    SimCimType type;
    uint16_t vt;
    int32_t number;  // as COM's CIMTYPE
};

// As WMI delivers them: 64-bit integers and dates as text, the small integers widened.
const CimName kCimNames[] = {
    {"string", SimCimType::STRING, VT_BSTR, CIM_STRING},
    {"datetime", SimCimType::DATETIME, VT_BSTR, CIM_DATETIME},
    {"reference", SimCimType::REFERENCE, VT_BSTR, CIM_REFERENCE},
    {"sint64", SimCimType::SINT64, VT_BSTR, CIM_SINT64},
    {"uint64", SimCimType::UINT64, VT_BSTR, CIM_UINT64},
    {"sint8", SimCimType::SINT8, VT_I2, CIM_SINT8},
    {"sint16", SimCimType::SINT16, VT_I2, CIM_SINT16},
    {"char16", SimCimType::CHAR16, VT_I2, CIM_CHAR16},
    {"uint8", SimCimType::UINT8, VT_UI1, CIM_UINT8},
    {"uint16", SimCimType::UINT16, VT_I4, CIM_UINT16},
    {"sint32", SimCimType::SINT32, VT_I4, CIM_SINT32},
    {"uint32", SimCimType::UINT32, VT_I4, CIM_UINT32},
    {"real32", SimCimType::REAL32, VT_R4, CIM_REAL32},
    {"real64", SimCimType::REAL64, VT_R8, CIM_REAL64},
    {"boolean", SimCimType::BOOLEAN, VT_BOOL, CIM_BOOLEAN},
    {"object", SimCimType::OBJECT, VT_UNKNOWN, CIM_OBJECT},
};

struct VtName {
    const char* name;
    uint16_t vt;
    // The nearest CIM type: the one whose values the variant type holds exactly. A world that
    // names variant types thus reads back, once recorded, with the CIM type's own variant type
    // (a VT_UI4 becomes a uint32, delivered in VT_I4).
    int32_t number;
};

const VtName kVtNames[] = {
    {"vt_i1", VT_I1, CIM_SINT8},
    {"vt_i2", VT_I2, CIM_SINT16},
    {"vt_i4", VT_I4, CIM_SINT32},
    {"vt_i8", VT_I8, CIM_SINT64},
    {"vt_int", VT_INT, CIM_SINT32},
    {"vt_ui1", VT_UI1, CIM_UINT8},
    {"vt_ui2", VT_UI2, CIM_UINT16},
    {"vt_ui4", VT_UI4, CIM_UINT32},
    {"vt_ui8", VT_UI8, CIM_UINT64},
    {"vt_uint", VT_UINT, CIM_UINT32},
    {"vt_r4", VT_R4, CIM_REAL32},
    {"vt_r8", VT_R8, CIM_REAL64},
    {"vt_bool", VT_BOOL, CIM_BOOLEAN},
    {"vt_bstr", VT_BSTR, CIM_STRING},
    {"vt_unknown", VT_UNKNOWN, CIM_OBJECT},
};

bool isPrefix(const Str& text, const char* prefix) {
    return text.startsWith(StrSegment(prefix, std::strlen(prefix)));
}

HRESULT textOf(const Variant& raw, Variant& out) {
    if (raw.vt == VT_BSTR) {
        out = raw;
        return WBEM_S_NO_ERROR;
    }
    if (raw.vt == VT_BOOL) {
        out = Variant::fromString(raw.b ? u"true" : u"false");
        return WBEM_S_NO_ERROR;
    }
    return changeType(out, raw, VT_BSTR);
}

// Converts through `via` (whose range is the CIM type's) and delivers as `vt`.
HRESULT throughRange(const Variant& raw, uint16_t via, uint16_t vt, Variant& out) {
    Variant v;
    HRESULT hr = changeType(v, raw, via);
    if (failed(hr)) {
        return hr;
    }
    switch (vt) {
        case VT_I2:
            out = Variant::fromInt(VT_I2, static_cast<int16_t>(via == VT_UI2 ? v.u : v.i));
            break;
        case VT_I4:
            out = Variant::fromInt(VT_I4, via == VT_UI4 || via == VT_UI2
                                              ? static_cast<int32_t>(static_cast<uint32_t>(v.u))
                                              : static_cast<int32_t>(v.i));
            break;
        default:
            out = std::move(v);
            break;
    }
    return WBEM_S_NO_ERROR;
}

}  // namespace

SimType SimTypes::cim(SimCimType type, bool array) {
    for (const CimName& entry : kCimNames) {
        if (entry.type == type) {
            return SimType{type, static_cast<uint16_t>(entry.vt | (array ? VT_ARRAY : 0))};
        }
    }
    return SimType{};
}

int32_t SimTypes::cimNumber(const SimType& type) {
    const int32_t array = type.isArray() ? CIM_FLAG_ARRAY : 0;
    if (type.cim != SimCimType::EXPLICIT) {
        for (const CimName& entry : kCimNames) {
            if (entry.type == type.cim) {
                return entry.number | array;
            }
        }
    }
    for (const VtName& entry : kVtNames) {
        if (entry.vt == type.elementVt()) {
            return entry.number | array;
        }
    }
    return CIM_EMPTY;
}

const char* SimTypes::cimName(int32_t number) {
    for (const CimName& entry : kCimNames) {
        if (entry.number == (number & ~CIM_FLAG_ARRAY)) {
            return entry.name;
        }
    }
    return nullptr;
}

SimType SimTypes::explicitVt(uint16_t vt) {
    return SimType{SimCimType::EXPLICIT, vt};
}

bool SimTypes::parse(StrSegment name, SimType& out) {
    Str text(name);
    text.trim(CharSet(" \t"));
    text.toLower();
    bool array = false;
    if (text.endsWith(StrSegment("[]", 2))) {
        array = true;
        text.resize(text.size() - 2);
        text.trim(CharSet(" \t"));
    }
    const uint16_t arrayBit = array ? VT_ARRAY : 0;
    // "object:Class" and "ref:Class" name the class as WMI's schema does; the class itself is
    // taken from the value.
    if (isPrefix(text, "object:")) {
        text = "object";
    } else if (isPrefix(text, "ref:")) {
        text = "reference";
    }
    for (const CimName& entry : kCimNames) {
        if (text == entry.name) {
            out = SimType{entry.type, static_cast<uint16_t>(entry.vt | arrayBit)};
            return true;
        }
    }
    for (const VtName& entry : kVtNames) {
        if (text == entry.name) {
            out = SimType{SimCimType::EXPLICIT, static_cast<uint16_t>(entry.vt | arrayBit)};
            return true;
        }
    }
    return false;
}

HRESULT SimTypes::convert(const Variant& raw, const SimType& type, Variant& out) {
    if (raw.vt == VT_NULL || raw.vt == VT_EMPTY) {
        out = Variant::null();
        return WBEM_S_NO_ERROR;
    }
    const uint16_t vt = type.elementVt();
    switch (type.cim) {
        case SimCimType::STRING:
        case SimCimType::DATETIME:
        case SimCimType::REFERENCE:
            return textOf(raw, out);
        case SimCimType::SINT64:
        case SimCimType::UINT64: {
            Variant number;
            HRESULT hr = changeType(number, raw, type.cim == SimCimType::SINT64 ? VT_I8 : VT_UI8);
            if (failed(hr)) {
                return hr;
            }
            return changeType(out, number, VT_BSTR);
        }
        case SimCimType::SINT8:
            return throughRange(raw, VT_I1, VT_I2, out);
        case SimCimType::SINT16:
            return throughRange(raw, VT_I2, VT_I2, out);
        case SimCimType::CHAR16:
            if (raw.vt == VT_BSTR && raw.str.size() == 1) {
                out = Variant::fromInt(VT_I2, static_cast<int16_t>(raw.str[0]));
                return WBEM_S_NO_ERROR;
            }
            return throughRange(raw, VT_UI2, VT_I2, out);
        case SimCimType::UINT8:
            return throughRange(raw, VT_UI1, VT_UI1, out);
        case SimCimType::UINT16:
            return throughRange(raw, VT_UI2, VT_I4, out);
        case SimCimType::SINT32:
            return throughRange(raw, VT_I4, VT_I4, out);
        case SimCimType::UINT32:
            return throughRange(raw, VT_UI4, VT_I4, out);
        case SimCimType::REAL32:
            return changeType(out, raw, VT_R4);
        case SimCimType::REAL64:
            return changeType(out, raw, VT_R8);
        case SimCimType::BOOLEAN:
            return changeType(out, raw, VT_BOOL);
        case SimCimType::OBJECT:
            return COM_DISP_E_TYPEMISMATCH;
        case SimCimType::EXPLICIT:
            if (vt == VT_BSTR) {
                return textOf(raw, out);
            }
            if (vt == VT_UNKNOWN) {
                return COM_DISP_E_TYPEMISMATCH;
            }
            return changeType(out, raw, vt);
    }
    return COM_DISP_E_TYPEMISMATCH;
}

Variant SimTypes::untyped(const Variant& raw) {
    switch (raw.vt) {
        case VT_I8:
            if (raw.i >= INT32_MIN && raw.i <= INT32_MAX) {
                return Variant::fromInt(VT_I4, raw.i);
            }
            break;
        case VT_UI8:
            if (raw.u <= INT32_MAX) {
                return Variant::fromInt(VT_I4, static_cast<int64_t>(raw.u));
            }
            break;
        case VT_BOOL:
        case VT_R8:
        case VT_BSTR:
        case VT_NULL:
            return raw;
        default:
            return Variant::null();
    }
    Variant text;
    changeType(text, raw, VT_BSTR);
    return text;
}

}  // namespace morvax::wmi
