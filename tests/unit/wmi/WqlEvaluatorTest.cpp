#include "wmi/wql/WqlEvaluator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "util/base/Str.h"
#include "wmi/wql/WqlParser.h"
#include "wmi/wql/WqlProjection.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {
namespace {

std::u16string wide(const std::string& text) {
    return Str::toWide(StrSegment(text.data(), text.size()));
}

// Properties by dotted path, and the class chain of the object and of its embedded objects.
class FakeView : public WqlObjectView {
  public:
    FakeView& set(const std::string& path, Variant value) {
        values_[key(wide(path))] = std::move(value);
        return *this;
    }
    FakeView& classes(const std::string& path, std::vector<std::u16string> chain) {
        classes_[key(wide(path))] = std::move(chain);
        return *this;
    }

    bool property(const std::vector<std::u16string>& path, Variant& out) const override {
        auto it = values_.find(key(join(path)));
        if (it == values_.end()) {
            return false;
        }
        out = it->second;
        return true;
    }
    bool isA(const std::vector<std::u16string>& path,
             const std::u16string& className) const override {
        auto it = classes_.find(key(join(path)));
        if (it == classes_.end()) {
            return false;
        }
        for (const std::u16string& c : it->second) {
            if (WqlText::equalNoCase(c, className)) {
                return true;
            }
        }
        return false;
    }

  private:
    static std::u16string join(const std::vector<std::u16string>& path) {
        std::u16string out;
        for (const std::u16string& name : path) {
            out += (out.empty() ? u"" : u".") + name;
        }
        return out;
    }
    static std::u32string key(const std::u16string& path) { return WqlText::fold(path); }

    std::map<std::u32string, Variant> values_;
    std::map<std::u32string, std::vector<std::u16string>> classes_;
};

std::unique_ptr<WqlQuery> parseWhere(const std::string& condition) {
    std::unique_ptr<WqlQuery> query;
    Str error;
    HRESULT hr = WqlParser::parse(wide("select * from X where " + condition),
                                  WqlParser::Mode::PROVIDER, query, &error);
    EXPECT_EQ(hr, WBEM_S_NO_ERROR) << condition << ": " << error.c_str();
    return query;
}

::testing::AssertionResult holds(const FakeView& view, const std::string& condition,
                                 bool expected) {
    auto query = parseWhere(condition);
    if (!query) {
        return ::testing::AssertionFailure() << "does not parse: " << condition;
    }
    if (WqlEvaluator::matches(query->where(), view) != expected) {
        return ::testing::AssertionFailure() << condition << " should be " << expected;
    }
    return ::testing::AssertionSuccess();
}

struct Row {
    const char* condition;
    bool expected;
};

void check(const FakeView& view, std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        EXPECT_TRUE(holds(view, row.condition, row.expected));
    }
}

TEST(WqlEvaluatorTest, NumbersCompareByValueAcrossTypes) {
    FakeView view;
    view.set("Pid", Variant::fromInt(VT_I4, 4))
        .set("Small", Variant::fromInt(VT_I2, -3))
        .set("Byte", Variant::fromUInt(VT_UI1, 255))
        .set("Big", Variant::fromUInt(VT_UI8, UINT64_MAX))
        .set("Neg", Variant::fromInt(VT_I8, INT64_MIN))
        .set("Ratio", Variant::fromDouble(VT_R8, 0.75))
        .set("Single", Variant::fromDouble(VT_R4, 2.5))
        .set("Size", Variant::fromString(u"18446744073709551615"))
        .set("Free", Variant::fromString(u" 1048576 "))
        .set("Name", Variant::fromString(u"explorer.exe"))
        .set("Nan", Variant::fromDouble(VT_R8, std::nan("")));
    check(view, {
                    {"Pid = 4", true},
                    {"Pid = 4.0", true},
                    {"Pid <> 4", false},
                    {"Pid != 5", true},
                    {"Pid < 5 and Pid <= 4 and Pid >= 4 and Pid > 3", true},
                    {"Pid > 4 or Pid < 4", false},
                    {"4 = Pid and 5 > Pid and 3 < Pid", true},
                    {"Pid = '4'", true},
                    {"Pid = 'four'", false},
                    {"Pid <> 'four'", false},
                    {"Small < 0 and Small = -3 and Small > -3.5", true},
                    {"Byte = 0xFF", true},
                    {"Big = 18446744073709551615", true},
                    {"Big > 18446744073709551614", true},
                    {"Big > 9223372036854775807", true},
                    {"Big > -1", true},
                    {"Neg = -9223372036854775808", true},
                    {"Neg < 0 and Neg < Big", true},
                    {"Ratio > 0.5 and Ratio < 1", true},
                    {"Ratio = 0.75", true},
                    {"Single = 2.5", true},
                    // 64-bit values come as strings and still compare as numbers.
                    {"Size = 18446744073709551615", true},
                    {"Size > 18446744073709551614", true},
                    {"Size > 1e19", true},
                    {"Size >= Big and Size <= Big", true},
                    {"Free = 1048576", true},
                    {"Free > 1000000", true},
                    {"Name = 1", false},
                    {"Name <> 1", false},
                    {"Nan = 0 or Nan <> 0 or Nan < 1 or Nan > 1", false},
                });
}

TEST(WqlEvaluatorTest, StringsIgnoreCase) {
    FakeView view;
    view.set("Name", Variant::fromString(u"Explorer.EXE"))
        .set("City", Variant::fromString(u"\u00C9COLE"))
        .set("Other", Variant::fromString(u"explorer.exe"))
        .set("Empty", Variant::fromString(u""));
    check(view, {
                    {"Name = 'explorer.exe'", true},
                    {"name = \"EXPLORER.EXE\"", true},
                    {"NAME <> 'explorer'", true},
                    {"Name < 'F' and Name > 'e'", true},
                    {"Name >= 'EXPLORER.EXE' and Name <= 'explorer.exe'", true},
                    {"Name < 'explorer.exe'", false},
                    {"City = '\xC3\xA9\x63ole'", true},
                    {"Name = Other", true},
                    {"Name <> Other", false},
                    {"Name = Missing", false},
                    {"Empty = ''", true},
                    {"Empty < 'a'", true},
                });
}

TEST(WqlEvaluatorTest, Booleans) {
    FakeView view;
    view.set("On", Variant::fromBool(true)).set("Off", Variant::fromBool(false));
    check(view, {
                    {"On = TRUE and Off = false", true},
                    {"On <> FALSE and Off <> true", true},
                    {"On = false or Off = TRUE", false},
                    {"On = 1 and Off = 0 and On = -1", true},
                    {"On = 'True' and Off = 'FALSE'", true},
                    {"On = 'yes'", false},
                    {"On > Off", true},
                });
}

TEST(WqlEvaluatorTest, NullsAbsentsAndNonScalars) {
    FakeView view;
    Variant array;
    array.vt = VT_ARRAY | VT_BSTR;
    array.array.push_back(Variant::fromString(u"a"));
    view.set("Nothing", Variant::null())
        .set("Unset", Variant())
        .set("List", array)
        .set("Inner", Variant::fromObject(nullptr))
        .set("Name", Variant::fromString(u"x"));
    for (const char* prop : {"Nothing", "Unset", "Missing", "List", "Inner"}) {
        const std::string p = prop;
        for (const char* comparison : {" = 1", " <> 1", " < 1", " >= 1", " = 'x'", " <> 'x'",
                                       " like '%'", " = Name", " <> Name", " = NULL"}) {
            EXPECT_TRUE(holds(view, p + comparison, false)) << p << comparison;
            // Two-valued logic: NOT of a false comparison holds.
            EXPECT_TRUE(holds(view, "not " + p + comparison, true)) << p << comparison;
        }
    }
    check(view, {
                    {"Nothing is null and Unset is null and Missing IS NULL", true},
                    {"Nothing is not null or Unset is not null or Missing is not null", false},
                    {"List is not null and Inner is not null and Name is not null", true},
                    {"Name is null", false},
                    {"Name = NULL or Name <> NULL", false},
                    {"Missing.Deeper is null", true},
                });
}

TEST(WqlEvaluatorTest, LikePatterns) {
    struct Case {
        const char16_t* text;
        const char* pattern;
        bool expected;
    };
    const Case cases[] = {
        {u"", "%", true},
        {u"", "_", false},
        {u"", "", true},
        {u"a", "", false},
        {u"ABC", "abc", true},
        {u"abc", "ab", false},
        {u"abc", "a_c", true},
        {u"ac", "a_c", false},
        {u"abbbc", "a%c", true},
        {u"abbbd", "a%c", false},
        {u"Win32_PerfFormattedData_PerfOS_Memory", "%Win32_PerfFormattedData_%", true},
        {u"Win32_PerfFormattedData", "%Win32_PerfFormattedData_%", false},
        {u"Win32_PerfFormattedData_", "%Win32_PerfFormattedData_%", true},
        {u"Win32_PerfRawData_PerfOS_Memory", "%Win32_PerfFormattedData_%", false},
        {u"bx", "[abc]x", true},
        {u"Bx", "[abc]x", true},
        {u"dx", "[abc]x", false},
        {u"dx", "[^abc]x", true},
        {u"Ax", "[^abc]x", false},
        {u"Qx", "[a-z]x", true},
        {u"qx", "[A-Z]x", true},
        {u"5x", "[a-z]x", false},
        {u"5x", "[0-9a-f]x", true},
        {u"50%", "50[%]", true},
        {u"500", "50[%]", false},
        {u"a_b", "a[_]b", true},
        {u"axb", "a[_]b", false},
        {u"]", "[]]", true},
        {u"a-", "a[-]", true},
        {u"a[b", "a[b", true},
        {u"^", "[^]", false},
        {u"x", "%%%", true},
        {u"\u00C9t\u00E9", "\xC3\xA9_\xC3\x89", true},
        {u"\U0001F600!", "_!", true},
        {u"C:\\Windows\\System32", "c:\\\\windows\\\\%", true},
    };
    for (const Case& c : cases) {
        FakeView view;
        view.set("P", Variant::fromString(c.text));
        EXPECT_TRUE(holds(view, std::string("P like '") + c.pattern + "'", c.expected))
            << c.pattern;
    }

    FakeView view;
    view.set("Pid", Variant::fromInt(VT_I4, 4242)).set("On", Variant::fromBool(true));
    check(view, {
                    {"Pid like '42%'", true},
                    {"Pid like '%3'", false},
                    {"Pid not like '4_4_'", false},
                    {"On like '-1'", true},
                });

    // Many runs against a long text that nearly matches must not backtrack exponentially.
    view.set("Long", Variant::fromString(std::u16string(20000, u'a')));
    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(holds(view, "Long like '%a%a%a%a%a%a%a%a%b'", false));
    EXPECT_TRUE(holds(view, "Long like '%a%a%a%a%a%a%a%a%'", true));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(WqlEvaluatorTest, DottedPropertiesAndIsa) {
    FakeView view;
    view.set("TargetInstance", Variant::fromObject(nullptr))
        .set("TargetInstance.Name", Variant::fromString(u"notepad.exe"))
        .set("TargetInstance.Owner.Id", Variant::fromInt(VT_I4, 7))
        .classes("TargetInstance", {u"Win32_Process", u"CIM_Process", u"CIM_LogicalElement"})
        .classes("", {u"__InstanceCreationEvent", u"__InstanceOperationEvent", u"__Event"});
    check(view, {
                    {"TargetInstance.Name = 'NOTEPAD.EXE'", true},
                    {"targetinstance.owner.id = 7", true},
                    {"TargetInstance.Missing = 7", false},
                    {"TargetInstance.Missing is null", true},
                    {"targetinstance isa \"Win32_Process\"", true},
                    {"TargetInstance ISA 'cim_process'", true},
                    {"TargetInstance ISA 'Win32_Service'", false},
                    {"not TargetInstance ISA 'Win32_Service'", true},
                    {"TargetInstance.Name ISA 'Win32_Process'", false},
                    {"__this isa '__Event' and __THIS ISA '__InstanceCreationEvent'", true},
                    {"__this isa 'Win32_Process'", false},
                });
}

TEST(WqlEvaluatorTest, AndBindsTighterThanOr) {
    for (int bits = 0; bits < 8; ++bits) {
        const bool a = bits & 1, b = bits & 2, c = bits & 4;
        FakeView view;
        view.set("A", Variant::fromBool(a))
            .set("B", Variant::fromBool(b))
            .set("C", Variant::fromBool(c));
        EXPECT_TRUE(holds(view, "A = TRUE or B = TRUE and C = TRUE", a || (b && c))) << bits;
        EXPECT_TRUE(holds(view, "(A = TRUE or B = TRUE) and C = TRUE", (a || b) && c)) << bits;
        EXPECT_TRUE(holds(view, "not A = TRUE and B = TRUE", !a && b)) << bits;
        EXPECT_TRUE(holds(view, "not (A = TRUE and B = TRUE) or not not C = TRUE", !(a && b) || c))
            << bits;
    }
    FakeView empty;
    EXPECT_TRUE(WqlEvaluator::matches(nullptr, empty));
}

TEST(WqlEvaluatorTest, CompareMixedPairs) {
    const Variant four = Variant::fromInt(VT_I4, 4);
    EXPECT_TRUE(WqlEvaluator::compare(four, WMIQ_RPN_OP_EQ, Variant::fromUInt(VT_UI8, 4)));
    EXPECT_TRUE(WqlEvaluator::compare(Variant::fromInt(VT_I8, -1), WMIQ_RPN_OP_LT,
                                      Variant::fromUInt(VT_UI8, UINT64_MAX)));
    EXPECT_TRUE(WqlEvaluator::compare(Variant::fromString(u"-1"), WMIQ_RPN_OP_LT, four));
    EXPECT_TRUE(WqlEvaluator::compare(Variant::fromString(u"+4"), WMIQ_RPN_OP_EQ, four));
    EXPECT_TRUE(WqlEvaluator::compare(Variant::fromString(u"4.5e0"), WMIQ_RPN_OP_GT, four));
    EXPECT_FALSE(WqlEvaluator::compare(Variant::fromString(u"4x"), WMIQ_RPN_OP_NE, four));
    EXPECT_FALSE(WqlEvaluator::compare(Variant::fromString(u"0x4"), WMIQ_RPN_OP_EQ, four));
    EXPECT_FALSE(WqlEvaluator::compare(four, WMIQ_RPN_OP_LIKE, four));
    Variant date;
    date.vt = VT_DATE;
    EXPECT_FALSE(WqlEvaluator::compare(date, WMIQ_RPN_OP_EQ, date));
}

TEST(WqlEvaluatorTest, ProjectionOfTheSelectList) {
    const std::vector<std::u16string> props = {u"Name", u"ProcessId", u"Owner", u"Caption"};
    WqlProjection all;
    EXPECT_TRUE(all.all());
    EXPECT_EQ(all.filter(props), props);
    EXPECT_TRUE(all.missing(props).empty());
    EXPECT_TRUE(all.nested(u"Owner").all());

    auto query = parseWhere("a = 1");
    std::unique_ptr<WqlQuery> selected;
    ASSERT_EQ(WqlParser::parse(u"select caption, owner.id, OWNER.Domain, name, bogus, Bogus "
                               u"from X",
                               WqlParser::Mode::PROVIDER, selected),
              WBEM_S_NO_ERROR);
    WqlProjection projection(selected->selectList());
    EXPECT_FALSE(projection.all());
    EXPECT_TRUE(projection.selects(u"NAME"));
    EXPECT_FALSE(projection.selects(u"ProcessId"));
    // The class's order and spelling, not the query's.
    EXPECT_EQ(projection.filter(props),
              (std::vector<std::u16string>{u"Name", u"Owner", u"Caption"}));
    EXPECT_EQ(projection.missing(props), std::vector<std::u16string>{u"bogus"});

    WqlProjection owner = projection.nested(u"Owner");
    EXPECT_FALSE(owner.all());
    EXPECT_EQ(owner.filter({u"Id", u"Domain", u"Sid"}),
              (std::vector<std::u16string>{u"Id", u"Domain"}));
    EXPECT_TRUE(projection.nested(u"Name").all());
    EXPECT_TRUE(projection.nested(u"ProcessId").filter(props).empty());
    EXPECT_EQ(WqlProjection(query->selectList()).filter(props), props);
}

}  // namespace
}  // namespace morvax::wmi
