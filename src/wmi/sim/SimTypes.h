#pragma once

#include <cstdint>
#include <string>

#include "util/base/Str.h"
#include "wmi/Wmi.h"

namespace morvax::wmi {

// The CIM type a property is declared with, which decides both its variant type and how a
// value written in a world file is read. EXPLICIT stands for a type written as a variant name.
enum class SimCimType : uint8_t {
    STRING,
    DATETIME,
    REFERENCE,
    SINT8,
    UINT8,
    SINT16,
    UINT16,
    CHAR16,
    SINT32,
    UINT32,
    SINT64,
    UINT64,
    REAL32,
    REAL64,
    BOOLEAN,
    OBJECT,
    EXPLICIT,
};

// A property type: the CIM type and the variant type it is delivered as (VT_ARRAY included).
struct SimType {
    SimCimType cim = SimCimType::STRING;
    uint16_t vt = VT_BSTR;

    bool isArray() const { return (vt & VT_ARRAY) != 0; }
    uint16_t elementVt() const { return static_cast<uint16_t>(vt & ~VT_ARRAY); }
    SimType element() const { return SimType{cim, elementVt()}; }
};

// Type names of world files and the conversion of plain values to declared types.
class SimTypes {
  public:
    // A CIM name ("uint32", "datetime", "object:Win32_Process", "string[]") or a variant name
    // ("VT_UI4", "VT_I8[]"), without regard to case. False for anything else.
    static bool parse(StrSegment name, SimType& out);
    static SimType cim(SimCimType type, bool array = false);
    static SimType explicitVt(uint16_t vt);
    // The CIM type number (COM's CIMTYPE, CIM_FLAG_ARRAY included) of a type; a variant name
    // gives the nearest CIM type.
    static int32_t cimNumber(const SimType& type);
    // The world file's name of a CIM type number, without "[]"; null for an unknown number.
    static const char* cimName(int32_t number);

    // Converts a scalar as a world file spells it (VT_I8, VT_UI8, VT_R8, VT_BOOL or VT_BSTR) to
    // the element type of `type`, with the range of its CIM type. Unsigned 32-bit values travel
    // in VT_I4 with their bits kept, as WMI hands them out. Objects are the caller's business.
    static HRESULT convert(const Variant& raw, const SimType& type, Variant& out);

    // The type of a value that no declaration covers: text VT_BSTR, an integer VT_I4 (VT_BSTR
    // beyond 32 bits), a fraction VT_R8, a boolean VT_BOOL.
    static Variant untyped(const Variant& raw);
};

}  // namespace morvax::wmi
