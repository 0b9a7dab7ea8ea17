#include "wmi/wql/WqlParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "util/base/Str.h"

namespace morvax::wmi {
namespace {

using Mode = WqlParser::Mode;

std::u16string wide(const std::string& text) {
    return Str::toWide(StrSegment(text.data(), text.size()));
}

std::unique_ptr<WqlQuery> parseOk(const std::string& text, Mode mode = Mode::PROVIDER) {
    std::unique_ptr<WqlQuery> query;
    Str error;
    HRESULT hr = WqlParser::parse(wide(text), mode, query, &error);
    EXPECT_EQ(hr, WBEM_S_NO_ERROR) << text << ": " << error.c_str();
    return query;
}

HRESULT status(const std::u16string& text, Mode mode) {
    std::unique_ptr<WqlQuery> query;
    return WqlParser::parse(text, mode, query);
}

std::vector<std::u16string> names(std::initializer_list<const char16_t*> list) {
    std::vector<std::u16string> out;
    for (const char16_t* name : list) {
        out.emplace_back(name);
    }
    return out;
}

TEST(WqlParserTest, DataQueriesKeepNamesAsWritten) {
    auto query = parseOk("SeLeCT AVAILABLEMBytes, TargetInstance.Name fROm Win32_Memory");
    ASSERT_TRUE(query);
    EXPECT_EQ(query->kind(), WqlQuery::Kind::SELECT);
    EXPECT_EQ(query->className(), u"Win32_Memory");
    EXPECT_FALSE(query->selectsAll());
    ASSERT_EQ(query->selectList().size(), 2u);
    EXPECT_EQ(query->selectList()[0].names, names({u"AVAILABLEMBytes"}));
    EXPECT_EQ(query->selectList()[1].names, names({u"TargetInstance", u"Name"}));
    EXPECT_EQ(query->where(), nullptr);
    EXPECT_FALSE(query->isEventQuery());

    query = parseOk("select * from meta_class\r\n\twhere __CLASS like \"%Win32_%\"");
    ASSERT_TRUE(query);
    EXPECT_TRUE(query->selectsAll());
    ASSERT_NE(query->where(), nullptr);
    EXPECT_EQ(query->where()->op, WMIQ_RPN_OP_LIKE);
    EXPECT_EQ(query->where()->constant.str, u"%Win32_%");
}

TEST(WqlParserTest, EventClausesOnlyInProviderMode) {
    auto query = parseOk(
        "select * from __InstanceOperationEvent within 1 where TargetInstance ISA "
        "'Win32_PnPEntity' and TargetInstance.Description='USB Mass Storage Device'");
    ASSERT_TRUE(query);
    EXPECT_TRUE(query->isEventQuery());
    EXPECT_TRUE(query->hasWithin());
    EXPECT_EQ(query->withinSeconds(), 1.0);
    EXPECT_FALSE(query->hasGroup());
    ASSERT_NE(query->where(), nullptr);
    EXPECT_EQ(query->where()->kind, WqlExpr::Kind::AND);

    query = parseOk(
        "SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA \"Win32_NTLogEvent\" "
        "GROUP WITHIN 600 BY TargetInstance.SourceName HAVING NumberOfEvents > 25");
    ASSERT_TRUE(query);
    EXPECT_FALSE(query->hasWithin());
    EXPECT_TRUE(query->hasGroup());
    EXPECT_EQ(query->groupWithinSeconds(), 600.0);
    ASSERT_EQ(query->groupBy().size(), 1u);
    EXPECT_EQ(query->groupBy()[0].names, names({u"TargetInstance", u"SourceName"}));
    ASSERT_NE(query->having(), nullptr);
    EXPECT_EQ(query->having()->op, WMIQ_RPN_OP_GT);
    EXPECT_EQ(query->having()->left.names, names({u"NumberOfEvents"}));

    query = parseOk("SELECT * FROM EmailEvent GROUP WITHIN 0.5 HAVING NumberOfEvents >= 2");
    ASSERT_TRUE(query);
    EXPECT_EQ(query->groupWithinSeconds(), 0.5);
    EXPECT_TRUE(query->groupBy().empty());

    for (const char* text :
         {"select * from __InstanceCreationEvent WITHIN 10 where TargetInstance isa 'X'",
          "SELECT * FROM EmailEvent GROUP WITHIN 300 BY event", "select * from E within 5"}) {
        EXPECT_EQ(status(wide(text), Mode::ANALYSIS), WBEM_E_INVALID_SYNTAX) << text;
        EXPECT_EQ(status(wide(text), Mode::PROVIDER), WBEM_S_NO_ERROR) << text;
    }
}

TEST(WqlParserTest, MalformedTextsAreSyntaxErrors) {
    const char* texts[] = {
        "",
        "   ",
        "select",
        "select *",
        "select * from",
        "select from Win32_PerfFormattedData_Tcpip_NetworkInterface",
        "select * from X where x = 't' or",
        "select * from Win32_PerfFormattedData wher x = 't'",
        "select * from X where",
        "select a,, b from X",
        "select a, from X",
        "select a. from X",
        "select *, a from X",
        "select select from X",
        "select * from from",
        "select * from X.Y",
        "select * from 'X'",
        "select * from X where (a = 1",
        "select * from X where a = 1)",
        "select * from X where ()",
        "select * from X where a",
        "select * from X where a =",
        "select * from X where a == 1",
        "select * from X where a ! 1",
        "select * from X where a => 1",
        "select * from X where 1 = 1",
        "select * from X where 'a' like a",
        "select * from X where a like 5",
        "select * from X where a like b",
        "select * from X where a isa Win32_Process",
        "select * from X where a is 5",
        "select * from X where a is not",
        "select * from X where a not = 1",
        "select * from X where not",
        "select * from X where a = 1 and",
        "select * from X where a = 1 extra",
        "select * from X where a = 1;",
        "select * from X where -a = 1",
        "select * from X where a = - 1",
        "select * from X where a = 5abc",
        "select * from X where a = 1.",
        "select * from X where a = .5",
        "select * from X where a = 1.2.3",
        "select * from X where a = 0x",
        "select * from X where a = 0x10000000000000000",
        "select * from X where a = 'unterminated",
        "select * from X where a = 'C:\\Windows'",
        "select * from X where a = 'ends in backslash\\",
        "select * from X where a = @",
        "select * from X where a = 1 within 5",
        "select * from X within",
        "select * from X within -1",
        "select * from X within 'a'",
        "select * from X group within 5 by",
        "select * from X group 5",
        "select * from X group within 5 having",
        "select * from X where a = 1 group within 5 by a,",
        "delete from X",
        "associators {X}",
        "associators of X",
        "associators of {X",
        "associators of {}",
        "associators of {X} where",
        "associators of {X} where ResultClass",
        "associators of {X} where ResultClass =",
        "associators of {X} where Bogus = Y",
        "references of {X} where AssocClass = Y",
        "references of {X} extra",
    };
    for (const char* text : texts) {
        std::unique_ptr<WqlQuery> query;
        Str error;
        EXPECT_EQ(WqlParser::parse(wide(text), Mode::PROVIDER, query, &error),
                  WBEM_E_INVALID_SYNTAX)
            << text;
        EXPECT_EQ(query, nullptr) << text;
        EXPECT_NE(error.view().find("offset"), std::string_view::npos)
            << text << ": " << error.c_str();
        EXPECT_EQ(status(wide(text), Mode::ANALYSIS), WBEM_E_INVALID_SYNTAX) << text;
    }
}

TEST(WqlParserTest, ConstantsAndTheirApparentTypes) {
    struct Case {
        const char* literal;
        uint16_t vt;
        int64_t i;
        uint64_t u;
        double d;
    };
    const Case cases[] = {
        {"70011", VT_I4, 70011, 0, 0},
        {"0", VT_I4, 0, 0, 0},
        {"-0", VT_I4, 0, 0, 0},
        {"2147483647", VT_I4, 2147483647, 0, 0},
        {"2147483648", VT_I8, 2147483648LL, 0, 0},
        {"4294967295", VT_I8, 4294967295LL, 0, 0},
        {"-2147483648", VT_I4, INT32_MIN, 0, 0},
        {"-2147483649", VT_I8, -2147483649LL, 0, 0},
        {"9223372036854775807", VT_I8, INT64_MAX, 0, 0},
        {"-9223372036854775808", VT_I8, INT64_MIN, 0, 0},
        {"9223372036854775808", VT_UI8, 0, 9223372036854775808ULL, 0},
        {"18446744073709551615", VT_UI8, 0, UINT64_MAX, 0},
        {"18446744073709551616", VT_R8, 0, 0, 18446744073709551616.0},
        {"-18446744073709551616", VT_R8, 0, 0, -18446744073709551616.0},
        {"1.5", VT_R8, 0, 0, 1.5},
        {"-0.25", VT_R8, 0, 0, -0.25},
        {"1e3", VT_R8, 0, 0, 1000},
        {"2.5E-1", VT_R8, 0, 0, 0.25},
        {"0x1F", VT_I4, 31, 0, 0},
        {"-0x10", VT_I4, -16, 0, 0},
        {"0XFFFFFFFFFFFFFFFF", VT_UI8, 0, UINT64_MAX, 0},
    };
    for (const Case& c : cases) {
        auto query = parseOk(std::string("select * from X where a = ") + c.literal);
        ASSERT_TRUE(query) << c.literal;
        const WqlExpr* e = query->where();
        EXPECT_EQ(e->constApparentType, c.vt) << c.literal;
        EXPECT_EQ(e->constant.vt, c.vt) << c.literal;
        EXPECT_EQ(e->constant.i, c.i) << c.literal;
        EXPECT_EQ(e->constant.u, c.u) << c.literal;
        EXPECT_EQ(e->constant.d, c.d) << c.literal;
    }

    struct Text {
        const char* literal;
        const char16_t* value;
    };
    const Text texts[] = {
        {"'plain'", u"plain"},
        {"\"double\"", u"double"},
        {"''", u""},
        {"'it\\'s'", u"it's"},
        {"\"say \\\"hi\\\"\"", u"say \"hi\""},
        {"\"it's\"", u"it's"},
        {"'say \"hi\"'", u"say \"hi\""},
        {"'C:\\\\Windows\\\\notepad.exe'", u"C:\\Windows\\notepad.exe"},
        {"'caf\xC3\xA9'", u"caf\u00E9"},
    };
    for (const Text& t : texts) {
        auto query = parseOk(std::string("select * from X where a = ") + t.literal);
        ASSERT_TRUE(query) << t.literal;
        EXPECT_EQ(query->where()->constApparentType, VT_LPWSTR) << t.literal;
        EXPECT_EQ(query->where()->constant.vt, VT_BSTR) << t.literal;
        EXPECT_EQ(query->where()->constant.str, t.value) << t.literal;
    }

    auto query = parseOk("select * from X where a = TRUE or b <> false or c = null");
    ASSERT_TRUE(query);
    const auto& terms = query->where()->children;
    ASSERT_EQ(terms.size(), 3u);
    EXPECT_EQ(terms[0]->constApparentType, VT_BOOL);
    EXPECT_TRUE(terms[0]->constant.b);
    EXPECT_EQ(terms[1]->constApparentType, VT_BOOL);
    EXPECT_FALSE(terms[1]->constant.b);
    EXPECT_EQ(terms[2]->constApparentType, VT_NULL);
    EXPECT_EQ(terms[2]->constant.vt, VT_NULL);
}

TEST(WqlParserTest, ComparisonShapes) {
    auto query = parseOk(
        "select * from X where 5 < a and 'x' = b and 7 >= c and d != e.f and g is not null "
        "and h not like 'a%' and i IS NULL and __this ISA 'Y'");
    ASSERT_TRUE(query);
    const auto& t = query->where()->children;
    ASSERT_EQ(t.size(), 8u);
    EXPECT_EQ(t[0]->op, WMIQ_RPN_OP_GT);
    EXPECT_EQ(t[0]->left.names, names({u"a"}));
    EXPECT_EQ(t[1]->op, WMIQ_RPN_OP_EQ);
    EXPECT_EQ(t[1]->constant.str, u"x");
    EXPECT_EQ(t[2]->op, WMIQ_RPN_OP_LE);
    EXPECT_EQ(t[3]->op, WMIQ_RPN_OP_NE);
    EXPECT_EQ(t[3]->right.names, names({u"e", u"f"}));
    EXPECT_EQ(t[3]->constApparentType, VT_EMPTY);
    EXPECT_EQ(t[4]->op, WMIQ_RPN_OP_ISNOTNULL);
    EXPECT_EQ(t[4]->constApparentType, VT_EMPTY);
    EXPECT_EQ(t[5]->kind, WqlExpr::Kind::NOT);
    EXPECT_EQ(t[5]->children.front()->op, WMIQ_RPN_OP_LIKE);
    EXPECT_EQ(t[6]->op, WMIQ_RPN_OP_ISNULL);
    EXPECT_EQ(t[7]->op, WMIQ_RPN_OP_ISA);
    EXPECT_EQ(t[7]->constant.str, u"Y");
}

TEST(WqlParserTest, AssociatorsAndReferencesParse) {
    auto query = parseOk("ASSOCIATORS OF {Win32_LogicalDisk.DeviceID=\"C:\"}");
    ASSERT_TRUE(query);
    EXPECT_EQ(query->kind(), WqlQuery::Kind::ASSOCIATORS);
    EXPECT_TRUE(query->isAssociatorsOrReferences());
    EXPECT_EQ(query->objectPath(), u"Win32_LogicalDisk.DeviceID=\"C:\"");

    query = parseOk("REFERENCES OF {Adapter=\"AHA-294X\"} WHERE RequiredQualifier = AdapterTag");
    ASSERT_TRUE(query);
    EXPECT_EQ(query->kind(), WqlQuery::Kind::REFERENCES);

    // The path is raw text: backslashes and quoted braces belong to it.
    query = parseOk(
        "associators of {\\\\HOST\\root\\cimv2:A.Name=\"}{\"} where classdefsonly "
        "ResultClass = 'B' KeysOnly role=Owner");
    ASSERT_TRUE(query);
    EXPECT_EQ(query->objectPath(), u"\\\\HOST\\root\\cimv2:A.Name=\"}{\"");
    EXPECT_EQ(status(u"associators of {A} where ResultClass = B", Mode::ANALYSIS), WBEM_S_NO_ERROR);
}

TEST(WqlParserTest, NestingIsBoundedAndChainsStayFlat) {
    auto nested = [](int depth, const char* open, const char* close) {
        std::string text = "select * from X where ";
        for (int i = 0; i < depth; ++i) {
            text += open;
        }
        text += "a = 1";
        for (int i = 0; i < depth; ++i) {
            text += close;
        }
        return wide(text);
    };
    const int limit = WqlParser::kMaxNesting;
    EXPECT_EQ(status(nested(limit, "(", ")"), Mode::PROVIDER), WBEM_S_NO_ERROR);
    EXPECT_EQ(status(nested(limit + 1, "(", ")"), Mode::PROVIDER), WBEM_E_INVALID_SYNTAX);
    EXPECT_EQ(status(nested(limit / 2, "not (", ")"), Mode::PROVIDER), WBEM_S_NO_ERROR);
    EXPECT_EQ(status(nested(limit, "not ", ""), Mode::PROVIDER), WBEM_S_NO_ERROR);
    EXPECT_EQ(status(nested(limit + 1, "not ", ""), Mode::PROVIDER), WBEM_E_INVALID_SYNTAX);
    EXPECT_EQ(status(nested(200000, "(", ")"), Mode::PROVIDER), WBEM_E_INVALID_SYNTAX);
    EXPECT_EQ(status(nested(200000, "NOT ", ""), Mode::ANALYSIS), WBEM_E_INVALID_SYNTAX);

    // A long chain is one node, so neither parse nor evaluation recurses along it.
    std::string text = "select * from X where a = 0";
    const int terms = 50000;
    for (int i = 1; i < terms; ++i) {
        text += " or a = " + std::to_string(i);
    }
    auto query = parseOk(text);
    ASSERT_TRUE(query);
    EXPECT_EQ(query->where()->children.size(), static_cast<size_t>(terms));
    QueryAnalysis analysis;
    query->analysis(analysis);
    EXPECT_EQ(analysis.whereList.size(), static_cast<size_t>(2 * terms - 1));
}

}  // namespace
}  // namespace morvax::wmi
