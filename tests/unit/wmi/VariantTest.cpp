#include <gtest/gtest.h>

#include "wmi/Wmi.h"

namespace morvax::wmi {
namespace {

TEST(VariantTest, WidensAndNarrowsIntegersWithOverflowChecks) {
    Variant out;
    ASSERT_EQ(changeType(out, Variant::fromInt(VT_I2, -5), VT_INT), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.vt, VT_INT);
    EXPECT_EQ(out.i, -5);
    ASSERT_EQ(changeType(out, Variant::fromUInt(VT_UI1, 200), VT_UINT), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.u, 200u);
    EXPECT_EQ(changeType(out, Variant::fromInt(VT_I4, -1), VT_UINT), COM_DISP_E_OVERFLOW);
    EXPECT_EQ(changeType(out, Variant::fromUInt(VT_UI8, 1ull << 40), VT_INT), COM_DISP_E_OVERFLOW);
    ASSERT_EQ(changeType(out, Variant::fromUInt(VT_UI8, 1ull << 40), VT_I8), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.i, int64_t{1} << 40);
    // Booleans are -1 and 0, as VARIANT_TRUE is.
    ASSERT_EQ(changeType(out, Variant::fromBool(true), VT_INT), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.i, -1);
    // Reals round half to even.
    ASSERT_EQ(changeType(out, Variant::fromDouble(VT_R8, 2.5), VT_I4), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.i, 2);
}

TEST(VariantTest, StringsParseAndPrint) {
    Variant out;
    // 64-bit values come from WMI as strings.
    ASSERT_EQ(changeType(out, Variant::fromString(u"18446744073709551615"), VT_UI8),
              WBEM_S_NO_ERROR);
    EXPECT_EQ(out.u, UINT64_MAX);
    ASSERT_EQ(changeType(out, Variant::fromString(u" -42 "), VT_I8), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.i, -42);
    EXPECT_EQ(changeType(out, Variant::fromString(u"12abc"), VT_I4), COM_DISP_E_TYPEMISMATCH);
    EXPECT_EQ(changeType(out, Variant::fromString(u""), VT_I4), COM_DISP_E_TYPEMISMATCH);
    ASSERT_EQ(changeType(out, Variant::fromString(u"True"), VT_BOOL), WBEM_S_NO_ERROR);
    EXPECT_TRUE(out.b);
    ASSERT_EQ(changeType(out, Variant::fromInt(VT_I4, -7), VT_BSTR), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.str, u"-7");
    ASSERT_EQ(changeType(out, Variant::fromDouble(VT_R8, 0.25), VT_BSTR), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.str, u"0.25");
    ASSERT_EQ(changeType(out, Variant::fromBool(false), VT_BSTR), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.str, u"0");
}

TEST(VariantTest, NullObjectsAndArraysOnlyConvertToThemselves) {
    Variant out;
    EXPECT_EQ(changeType(out, Variant::null(), VT_BSTR), COM_DISP_E_TYPEMISMATCH);
    EXPECT_EQ(changeType(out, Variant::null(), VT_INT), COM_DISP_E_TYPEMISMATCH);
    EXPECT_EQ(changeType(out, Variant::fromString(u"x"), VT_UNKNOWN), COM_DISP_E_TYPEMISMATCH);
    Variant array;
    array.vt = VT_ARRAY | VT_BSTR;
    array.array.push_back(Variant::fromString(u"a"));
    EXPECT_EQ(changeType(out, array, VT_BSTR), COM_DISP_E_TYPEMISMATCH);
    ASSERT_EQ(changeType(out, array, VT_ARRAY | VT_BSTR), WBEM_S_NO_ERROR);
    ASSERT_EQ(out.array.size(), 1u);
    // In place.
    Variant v = Variant::fromInt(VT_I4, 9);
    ASSERT_EQ(changeType(v, v, VT_BSTR), WBEM_S_NO_ERROR);
    EXPECT_EQ(v.str, u"9");
}

}  // namespace
}  // namespace morvax::wmi
