#pragma once

// The only door from the collector to WMI. It keeps COM's meaning and values (HRESULTs, the
// three non-failure results of next(), variant type numbers, a blocking connectServer) and drops
// COM's mechanics: ownership is RAII and text is UTF-16 in std::u16string.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace morvax::wmi {

using HRESULT = int32_t;

constexpr HRESULT hresult(uint32_t value) {
    return static_cast<HRESULT>(value);
}
constexpr bool failed(HRESULT hr) {
    return hr < 0;
}

// Statuses the collector tests for by value. Names that the platform's headers define as macros
// carry a COM_ prefix so that this header can stand beside <windows.h>.
constexpr HRESULT WBEM_S_NO_ERROR = 0;
constexpr HRESULT WBEM_S_FALSE = 1;
constexpr HRESULT WBEM_S_TIMEDOUT = 0x40004;
constexpr HRESULT WBEM_E_FAILED = hresult(0x80041001);
constexpr HRESULT WBEM_E_NOT_FOUND = hresult(0x80041002);
constexpr HRESULT WBEM_E_INVALID_PARAMETER = hresult(0x80041008);
constexpr HRESULT WBEM_E_NOT_SUPPORTED = hresult(0x8004100C);
constexpr HRESULT WBEM_E_INVALID_NAMESPACE = hresult(0x8004100E);
constexpr HRESULT WBEM_E_INVALID_CLASS = hresult(0x80041010);
constexpr HRESULT WBEM_E_TRANSPORT_FAILURE = hresult(0x80041015);
constexpr HRESULT WBEM_E_INVALID_OPERATION = hresult(0x80041016);
constexpr HRESULT WBEM_E_INVALID_QUERY = hresult(0x80041017);
constexpr HRESULT WBEM_E_INVALID_QUERY_TYPE = hresult(0x80041018);
constexpr HRESULT WBEM_E_INVALID_SYNTAX = hresult(0x80041021);
constexpr HRESULT WBEM_E_CALL_CANCELLED = hresult(0x80041032);
constexpr HRESULT WBEM_E_NOT_EVENT_CLASS = hresult(0x80041059);
constexpr HRESULT COM_E_NOTIMPL = hresult(0x80004001);
constexpr HRESULT COM_E_POINTER = hresult(0x80004003);
constexpr HRESULT COM_E_FAIL = hresult(0x80004005);
constexpr HRESULT COM_E_OUTOFMEMORY = hresult(0x8007000E);
constexpr HRESULT COM_E_INVALIDARG = hresult(0x80070057);
constexpr HRESULT RPC_E_SERVER_UNAVAILABLE = hresult(0x800706BA);
constexpr HRESULT COM_DISP_E_TYPEMISMATCH = hresult(0x80020005);
constexpr HRESULT COM_DISP_E_OVERFLOW = hresult(0x8002000A);

// Variant type numbers, as in COM.
enum VarType : uint16_t {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_CY = 6,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_UNKNOWN = 13,
    VT_DECIMAL = 14,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
    VT_LPWSTR = 31,
    VT_ARRAY = 0x2000,
    VT_TYPEMASK = 0x0FFF,
};

// CIM type numbers, as COM's CIMTYPE: the type a property is declared with, which the variant
// type of its value only hints at (a uint32 travels in VT_I4, a uint64 as text).
enum CimType : int32_t {
    CIM_EMPTY = 0,  // not known
    CIM_SINT16 = 2,
    CIM_SINT32 = 3,
    CIM_REAL32 = 4,
    CIM_REAL64 = 5,
    CIM_STRING = 8,
    CIM_BOOLEAN = 11,
    CIM_OBJECT = 13,
    CIM_SINT8 = 16,
    CIM_UINT8 = 17,
    CIM_UINT16 = 18,
    CIM_UINT32 = 19,
    CIM_SINT64 = 20,
    CIM_UINT64 = 21,
    CIM_DATETIME = 101,
    CIM_REFERENCE = 102,
    CIM_CHAR16 = 103,
    CIM_FLAG_ARRAY = 0x2000,
};

class ClassObject;

// A value and its type. Signed integer types (VT_I1, VT_I2, VT_I4, VT_I8, VT_INT) use `i`;
// unsigned ones (VT_UI1 ... VT_UI8, VT_UINT) use `u`; VT_R4 and VT_R8 `d`; VT_BOOL `b`; VT_BSTR
// `str`; VT_UNKNOWN `object`; VT_ARRAY | t the elements in `array`, each with vt t.
struct Variant {
    uint16_t vt = VT_EMPTY;
    int64_t i = 0;
    uint64_t u = 0;
    double d = 0;
    bool b = false;
    std::u16string str;
    std::shared_ptr<ClassObject> object;
    std::vector<Variant> array;

    static Variant null();
    static Variant fromString(std::u16string text);
    static Variant fromInt(uint16_t vt, int64_t value);
    static Variant fromUInt(uint16_t vt, uint64_t value);
    static Variant fromDouble(uint16_t vt, double value);
    static Variant fromBool(bool value);
    static Variant fromObject(std::shared_ptr<ClassObject> object);

    void clear() { *this = Variant(); }
    // As clear(), but the text keeps its storage for the next value written in place.
    void reset() {
        vt = VT_EMPTY;
        i = 0;
        u = 0;
        d = 0;
        b = false;
        str.clear();
        // Most values hold neither: no release or destruction to call for them.
        if (object) {
            object.reset();
        }
        if (!array.empty()) {
            array.clear();
        }
    }
    bool isArray() const { return (vt & VT_ARRAY) != 0; }
};

// As VariantChangeType with flags 0: converts `source` to type `vt` into `dest`. Numbers widen
// and narrow with overflow checks (COM_DISP_E_OVERFLOW), strings parse and print, VT_UNKNOWN stays
// itself; anything else fails with COM_DISP_E_TYPEMISMATCH. `dest` may be `source`.
HRESULT changeType(Variant& dest, const Variant& source, uint16_t vt);

// One result object, or one event.
class ClassObject {
  public:
    virtual ~ClassObject() = default;
    // Names of the non-system properties, in the provider's order.
    virtual HRESULT getNames(std::vector<std::u16string>& out) = 0;
    // As getNames, but in place of whatever `out` held, whose storage it may reuse: a caller
    // that asks object after object for names need not allocate them each time.
    virtual HRESULT replaceNames(std::vector<std::u16string>& out) {
        out.clear();
        return getNames(out);
    }
    // Also answers "__CLASS", "__SUPERCLASS" and, on events, "TargetInstance". On success `out`
    // is replaced whole (its text may keep its storage), whatever it held; on failure it is left
    // as it was.
    virtual HRESULT get(const std::u16string& name, Variant& out) = 0;
    // As get, with the property's CIM type as the provider declares it (CIM_FLAG_ARRAY
    // included); CIM_EMPTY from a backend that cannot tell.
    virtual HRESULT getWithType(const std::u16string& name, Variant& out, int32_t& cimType) {
        cimType = CIM_EMPTY;
        return get(name, out);
    }
    // A qualifier of the object's class ("abstract" of a class object); WBEM_E_NOT_FOUND when
    // the class has none of that name.
    virtual HRESULT getQualifier(const std::u16string& name, Variant& out) {
        (void)name;
        out = Variant();
        return WBEM_E_NOT_FOUND;
    }

    // Objects that give the same non-null key have the same names in the same order, so a caller
    // can take the names once and then read values by position. Null when the backend cannot
    // tell; then only comparing the names does. The key is not reused by another shape while
    // someone holds shapeOwner().
    virtual const void* shapeKey() const { return nullptr; }
    virtual std::shared_ptr<const void> shapeOwner() const { return nullptr; }
    // The value of name `index` of getNames, which is `name`. Without a faster way, by name.
    virtual HRESULT getAt(size_t index, const std::u16string& name, Variant& out) {
        (void)index;
        return get(name, out);
    }

    // Where the last failing getNames failed: in the call itself, or in taking one name from its
    // answer (SafeArrayGetElement on COM). The collector tells the two apart.
    enum class NamesStep { GET_NAMES, GET_ELEMENT };
    virtual NamesStep namesFailure() const { return NamesStep::GET_NAMES; }
};

class Enumerator {
  public:
    virtual ~Enumerator() = default;
    // Appends up to `count` objects to `out`. With timeout 0 it returns at once: WBEM_S_NO_ERROR
    // with `count` objects, WBEM_S_FALSE at the end (with the last ones, if any),
    // WBEM_S_TIMEDOUT when nothing is ready yet, or a failure.
    virtual HRESULT next(long timeoutMs, unsigned count,
                         std::vector<std::shared_ptr<ClassObject>>& out) = 0;
};

class Services {
  public:
    virtual ~Services() = default;
    // Both return at once (forward-only, return-immediately); results come from the enumerator.
    virtual HRESULT execQuery(const std::u16string& wql, std::unique_ptr<Enumerator>& out) = 0;
    virtual HRESULT execNotificationQuery(const std::u16string& wql,
                                          std::unique_ptr<Enumerator>& out) = 0;
    // The definition of a class, by name: its properties with their types and __SUPERCLASS,
    // with no values of an instance.
    virtual HRESULT getObject(const std::u16string& path, std::shared_ptr<ClassObject>& out) {
        (void)path;
        out.reset();
        return WBEM_E_NOT_SUPPORTED;
    }
    // The definitions of every class of the namespace, derived ones included, in no particular
    // order; abstract ones say so through getQualifier("abstract").
    virtual HRESULT createClassEnum(std::unique_ptr<Enumerator>& out) {
        out.reset();
        return WBEM_E_NOT_SUPPORTED;
    }
};

class Locator {
  public:
    virtual ~Locator() = default;
    // Blocks for the length of the attempt. `ns` is a namespace path such as "root\cimv2" or
    // "\\host1\root\cimv2".
    virtual HRESULT connectServer(const std::u16string& ns, std::shared_ptr<Services>& out) = 0;
};

// The analysis record of a query, in the form of the platform's reverse-Polish encoding.
struct QualifiedName {
    std::vector<std::u16string> names;  // "TargetInstance.Name" is {"TargetInstance", "Name"}
};

enum RpnTokenType : uint32_t {
    WMIQ_RPN_TOKEN_EXPRESSION = 1,
    WMIQ_RPN_TOKEN_AND = 2,
    WMIQ_RPN_TOKEN_OR = 3,
    WMIQ_RPN_TOKEN_NOT = 4,
};

enum RpnOperator : uint32_t {
    WMIQ_RPN_OP_UNDEFINED = 0,
    WMIQ_RPN_OP_EQ = 1,
    WMIQ_RPN_OP_NE = 2,
    WMIQ_RPN_OP_GE = 3,
    WMIQ_RPN_OP_LE = 4,
    WMIQ_RPN_OP_LT = 5,
    WMIQ_RPN_OP_GT = 6,
    WMIQ_RPN_OP_LIKE = 7,
    WMIQ_RPN_OP_ISA = 8,
    WMIQ_RPN_OP_ISNOTA = 9,
    WMIQ_RPN_OP_ISNULL = 10,
    WMIQ_RPN_OP_ISNOTNULL = 11,
};

struct RpnToken {
    uint32_t tokenType = WMIQ_RPN_TOKEN_EXPRESSION;
    uint32_t operatorType = WMIQ_RPN_OP_UNDEFINED;
    QualifiedName leftIdent;   // empty for AND, OR and NOT
    QualifiedName rightIdent;  // a property compared with a property
    uint16_t constApparentType =
        VT_EMPTY;  // VT_I4, VT_R8, VT_BOOL, VT_UI4, VT_I8, VT_UI8, VT_LPWSTR
    Variant constant;
};

struct QueryAnalysis {
    std::vector<QualifiedName> selectList;  // empty for SELECT *
    std::vector<std::u16string> fromList;
    std::vector<RpnToken> whereList;  // reverse Polish order
};

// As IWbemQuery: Parse, GetAnalysis (reverse-Polish form), FreeMemory, Empty.
class QueryParser {
  public:
    virtual ~QueryParser() = default;
    // WBEM_E_INVALID_SYNTAX for a text that is not a query.
    virtual HRESULT parse(const std::u16string& text) = 0;
    // Of the last successful parse. WBEM_E_INVALID_OPERATION or WBEM_E_INVALID_QUERY for a
    // valid query that cannot be analysed (ASSOCIATORS OF, REFERENCES OF). The record stays
    // valid until freeMemory or empty.
    virtual HRESULT getAnalysis(const QueryAnalysis*& out) = 0;
    virtual void freeMemory(const QueryAnalysis* analysis) = 0;
    virtual void empty() = 0;
};

// The locator of the provider chosen by MORVAX_WMI_PROVIDER ("sim" or "com"; the default is
// "com" on Windows and "sim" elsewhere).
HRESULT createLocator(std::unique_ptr<Locator>& out);
// The platform's query parser where it has one, else the stand-alone WQL parser.
HRESULT createQueryParser(std::unique_ptr<QueryParser>& out);

}  // namespace morvax::wmi
