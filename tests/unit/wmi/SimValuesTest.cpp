#include <gtest/gtest.h>

#include "unit/wmi/SimTestSupport.h"
#include "wmi/sim/SimSynthetic.h"
#include "wmi/sim/SimTypes.h"

namespace morvax::wmi {
namespace {

using namespace simtest;

// Each type name gives the variant type WMI delivers and the CIM type it declares; a variant
// name gives the nearest CIM type, whose world name reads back as that CIM type.
TEST(SimTypesTest, TypeNamesGiveWmiVariantAndCimTypes) {
    struct Case {
        const char* name;
        bool ok;
        SimCimType cim;
        uint16_t vt;
        int32_t number;
    };
    for (const Case& c : std::initializer_list<Case>{
             {"string", true, SimCimType::STRING, VT_BSTR, 8},
             {"DateTime", true, SimCimType::DATETIME, VT_BSTR, 101},
             {"uint64", true, SimCimType::UINT64, VT_BSTR, 21},
             {"sint64", true, SimCimType::SINT64, VT_BSTR, 20},
             {"sint8", true, SimCimType::SINT8, VT_I2, 16},
             {"char16", true, SimCimType::CHAR16, VT_I2, 103},
             {"uint8", true, SimCimType::UINT8, VT_UI1, 17},
             {"uint16", true, SimCimType::UINT16, VT_I4, 18},
             {"uint32", true, SimCimType::UINT32, VT_I4, 19},
             {"real32", true, SimCimType::REAL32, VT_R4, 4},
             {"boolean", true, SimCimType::BOOLEAN, VT_BOOL, 11},
             {"object:Win32_Process", true, SimCimType::OBJECT, VT_UNKNOWN, 13},
             {"ref:Win32_Process", true, SimCimType::REFERENCE, VT_BSTR, 102},
             {"string[]", true, SimCimType::STRING, VT_ARRAY | VT_BSTR, 0x2008},
             {"VT_UI8", true, SimCimType::EXPLICIT, VT_UI8, 21},
             {"VT_UI4", true, SimCimType::EXPLICIT, VT_UI4, 19},
             {"VT_I1", true, SimCimType::EXPLICIT, VT_I1, 16},
             {"VT_BSTR", true, SimCimType::EXPLICIT, VT_BSTR, 8},
             {"vt_int[]", true, SimCimType::EXPLICIT, VT_ARRAY | VT_INT, 0x2003},
             {"uint33", false, SimCimType::STRING, 0, 0},
             {"VT_DATE", false, SimCimType::STRING, 0, 0},
             {"[]", false, SimCimType::STRING, 0, 0},
         }) {
        SimType type;
        ASSERT_EQ(SimTypes::parse(StrSegment(c.name), type), c.ok) << c.name;
        if (!c.ok) {
            continue;
        }
        EXPECT_EQ(type.cim, c.cim) << c.name;
        EXPECT_EQ(type.vt, c.vt) << c.name;
        EXPECT_EQ(SimTypes::cimNumber(type), c.number) << c.name;
        SimType again;
        ASSERT_TRUE(SimTypes::parse(StrSegment(SimTypes::cimName(c.number)), again)) << c.name;
        EXPECT_EQ(SimTypes::cimNumber(again) | (c.number & CIM_FLAG_ARRAY), c.number) << c.name;
    }
    EXPECT_EQ(SimTypes::cimName(CIM_EMPTY), nullptr);
}

TEST(SimTypesTest, ValuesKeepTheRangeOfTheirCimType) {
    auto convert = [](const Variant& raw, const char* typeName, Variant& out) {
        SimType type;
        EXPECT_TRUE(SimTypes::parse(StrSegment(typeName), type)) << typeName;
        return SimTypes::convert(raw, type, out);
    };
    Variant out;
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, 255), "uint8", out), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.vt, VT_UI1);
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, 256), "uint8", out), COM_DISP_E_OVERFLOW);
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, -128), "sint8", out), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.vt, VT_I2);
    EXPECT_EQ(out.i, -128);
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, -129), "sint8", out), COM_DISP_E_OVERFLOW);
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, 65535), "uint16", out), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.i, 65535);
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, 4294967295), "uint32", out), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.vt, VT_I4);
    EXPECT_EQ(out.i, -1);
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, 4294967296), "uint32", out), COM_DISP_E_OVERFLOW);
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, 2147483648), "sint32", out), COM_DISP_E_OVERFLOW);
    EXPECT_EQ(convert(Variant::fromString(u"18446744073709551615"), "uint64", out),
              WBEM_S_NO_ERROR);
    EXPECT_EQ(utf8(out.str), "18446744073709551615");
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, -1), "uint64", out), COM_DISP_E_OVERFLOW);
    EXPECT_EQ(convert(Variant::fromString(u"abc"), "sint64", out), COM_DISP_E_TYPEMISMATCH);
    EXPECT_EQ(convert(Variant::fromString(u"A"), "char16", out), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.i, 65);
    EXPECT_EQ(convert(Variant::fromString(u"true"), "boolean", out), WBEM_S_NO_ERROR);
    EXPECT_TRUE(out.b);
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, 5), "datetime", out), WBEM_S_NO_ERROR);
    EXPECT_EQ(utf8(out.str), "5");
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, -1), "VT_UI4", out), COM_DISP_E_OVERFLOW);
    EXPECT_EQ(convert(Variant::fromInt(VT_I8, 70000), "VT_UI2", out), COM_DISP_E_OVERFLOW);
    EXPECT_EQ(convert(Variant::null(), "uint8", out), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.vt, VT_NULL);

    EXPECT_EQ(SimTypes::untyped(Variant::fromInt(VT_I8, -2147483648LL)).vt, VT_I4);
    const Variant wide = SimTypes::untyped(Variant::fromInt(VT_I8, 2147483648LL));
    EXPECT_EQ(wide.vt, VT_BSTR);
    EXPECT_EQ(utf8(wide.str), "2147483648");
    EXPECT_EQ(SimTypes::untyped(Variant::fromDouble(VT_R8, 1.5)).vt, VT_R8);
}

TEST(SimSyntheticTest, DatesCountFromTheStartOf2024) {
    EXPECT_EQ(utf8(SimSynthetic::dateTime(0)), "20240101000000.000000+000");
    EXPECT_EQ(utf8(SimSynthetic::dateTime(59 * 86400 + 3661, u"-000")),
              "20240229010101.000000-000");
    EXPECT_EQ(utf8(SimSynthetic::dateTime(366 * 86400 - 1)), "20241231235959.000000+000");
    EXPECT_EQ(utf8(SimSynthetic::dateTime(366 * 86400)), "20250101000000.000000+000");
}

// Every kind of generated value, written one after another over one variant as a reader does,
// so that nothing of a value is left over into the next.
TEST(SimSyntheticTest, ValuesOfEveryTypeFollowTheirProperty) {
    auto cls = std::make_shared<SimClass>(u"T_Values", u"");
    const char* types[] = {"string",  "reference", "uint64",   "sint8",    "char16",
                           "boolean", "real32",    "string[]", "object",   "VT_UI4",
                           "VT_I8",   "datetime",  "uint16[]", "object[]", "uint8"};
    for (const char* type : types) {
        SimType parsed;
        ASSERT_TRUE(SimTypes::parse(StrSegment(type), parsed)) << type;
        cls->addProperty(u(std::string("P_") + type), parsed);
    }
    cls->addProperty(std::u16string(70, u'L'), SimTypes::cim(SimCimType::STRING));
    const SimSynthetic synthetic(cls);
    auto render = [](const Variant& v) {
        std::string text = std::to_string(v.vt) + ":";
        if (v.isArray()) {
            for (const Variant& item : v.array) {
                text += "[" + std::to_string(item.vt) + ":" + utf8(item.str) +
                        std::to_string(item.i) + "]";
            }
            return text;
        }
        return text + utf8(v.str) + "|" + std::to_string(v.i) + "|" + std::to_string(v.u) + "|" +
               std::to_string(v.d) + "|" + (v.b ? "T" : "F");
    };
    const uint64_t index = 123456789;
    const std::vector<std::string> expected = {
        "8:P_string_123456789|0|0|0.000000|F",
        "8:T_Values.Index=123456789|0|0|0.000000|F",
        "8:123456789002|0|0|0.000000|F",
        "2:|24|0|0.000000|F",
        "2:|70|0|0.000000|F",
        "11:|0|0|0.000000|T",
        "4:|0|0|123456789.500000|F",
        "8200:[8:P_string[]_1234567890]",
        "1:|0|0|0.000000|F",
        "19:|0|123456798|0.000000|F",
        "20:|123456799|0|0.000000|F",
        "8:20271129213309.000000+000|0|0|0.000000|F",
        "8195:[3:52513]",
        "1:|0|0|0.000000|F",
        "17:|0|35|0.000000|F",
        "8:" + std::string(70, 'L') + "_123456789|0|0|0.000000|F",
    };
    Variant reused;
    for (size_t property = 0; property < expected.size(); ++property) {
        synthetic.fill(property, index, reused);
        EXPECT_EQ(render(reused), expected[property]) << property;
        EXPECT_EQ(render(synthetic.value(property, index)), expected[property]) << property;
    }
    synthetic.fill(expected.size(), index, reused);
    EXPECT_EQ(reused.vt, VT_NULL);
}

}  // namespace
}  // namespace morvax::wmi
