#include "wmi/wql/WqlQueryParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "util/base/Str.h"

namespace morvax::wmi {
namespace {

std::u16string wide(const std::string& text) {
    return Str::toWide(StrSegment(text.data(), text.size()));
}

// The query lists the collector's self-test checks the parser against.
const char* const kAccepted[] = {
    "SELECT * FROM MainClass WHERE StrongEmbedObj.INVALID = 70011",
    "SELECT * FROM Win32_LogicalDisk WHERE FileSystem IS NULL",
    "SELECT * FROM meta_class WHERE __Class = \"Win32_LogicalDisk\"",
    "select BytesSentPerSec, BytesTotalPerSec, CurrentBandwidth from "
    "Win32_PerfFormattedData_Tcpip_NetworkInterface",
    "SELECT * FROM Meta_Class where __CLASS like \"%Win32_PerfFormattedData_%\"",
    "SeLeCT AVAILABLEMBytes fROm Win32_PerfFormattedData_PerfOS_Memory",
    "SELECT targetInstance.Name FROM __InstanceCreationEvent WHERE targetinstance isa "
    "\"Win32_Process\"",
    "select * from __InstanceOperationEvent within 1 where TargetInstance ISA "
    "'Win32_PnPEntity' and TargetInstance.Description='USB Mass Storage Device'",
    "select * from __InstanceCreationEvent WITHIN 10 where TargetInstance isa 'Win32_Process'",
    "select CommittedBytes, AvailableBytes, PercentCommittedBytesInUse, Caption from "
    "Win32_PerfFormattedData_PerfOS_Memory",
    "SELECT * FROM EmailEvent GROUP WITHIN 300 BY event",
    "SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA \"Win32_NTLogEvent\" GROUP "
    "WITHIN 600 BY TargetInstance.SourceName HAVING NumberOfEvents > 25",
};

const char* const kInvalid[] = {
    "select from Win32_PerfFormattedData_Tcpip_NetworkInterface",
    "select * from Win32_PerfFormattedData_Tcpip_NetworkInterface where x = 't' or",
    "select * from Win32_PerfFormattedData wher x = 't'",
};

const char* const kUnsupported[] = {
    "REFERENCES OF {Adapter=\"AHA-294X\"} WHERE RequiredQualifier = AdapterTag",
    "ASSOCIATORS OF {Win32_LogicalDisk.DeviceID=\"C:\"}",
};

// What the analyzer does with a text the parser refused: lower-case it and cut the event
// clause out, GROUP first.
std::string withoutEventClause(const std::string& text) {
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return static_cast<char>(std::tolower(c)); });
    std::smatch match;
    if (std::regex_search(lower, match, std::regex(".+ (group.*)")) ||
        std::regex_search(lower, match, std::regex(".+ (within [0-9]+).*"))) {
        return lower.erase(match.position(1), match.length(1));
    }
    return "";
}

// The first names, as the analyzer renders an analysis.
std::string render(const QueryAnalysis& analysis) {
    std::string out;
    for (const QualifiedName& name : analysis.selectList) {
        out += Str::fromWide(name.names.front()).toStdString() + ",";
    }
    out += "|";
    for (const std::u16string& name : analysis.fromList) {
        out += Str::fromWide(name).toStdString() + ",";
    }
    out += "|";
    for (const RpnToken& token : analysis.whereList) {
        if (!token.leftIdent.names.empty()) {
            out += Str::fromWide(token.leftIdent.names.front()).toStdString() + ",";
        }
    }
    return out;
}

TEST(WqlQueryParserTest, SelfTestQueriesGetTheirVerdicts) {
    WqlQueryParser parser;
    const std::vector<int> needEventClauseCut = {8, 9, 11, 12};
    for (int i = 1; i <= 12; ++i) {
        const std::string text = kAccepted[i - 1];
        const HRESULT hr = parser.parse(wide(text));
        const bool cut = std::find(needEventClauseCut.begin(), needEventClauseCut.end(), i) !=
                         needEventClauseCut.end();
        if (cut) {
            EXPECT_EQ(hr, WBEM_E_INVALID_SYNTAX) << i;
            const std::string rest = withoutEventClause(text);
            ASSERT_FALSE(rest.empty()) << i;
            EXPECT_EQ(parser.parse(wide(rest)), WBEM_S_NO_ERROR)
                << i << ": " << rest << ": " << parser.lastError().c_str();
        } else {
            ASSERT_EQ(hr, WBEM_S_NO_ERROR) << i << ": " << parser.lastError().c_str();
            const QueryAnalysis* analysis = nullptr;
            ASSERT_EQ(parser.getAnalysis(analysis), WBEM_S_NO_ERROR) << i;
            ASSERT_NE(analysis, nullptr);
            EXPECT_NE(render(*analysis), "||") << i;
            parser.freeMemory(analysis);
        }
        parser.empty();
    }
    for (const char* text : kInvalid) {
        EXPECT_EQ(parser.parse(wide(text)), WBEM_E_INVALID_SYNTAX) << text;
        EXPECT_FALSE(parser.lastError().empty());
        parser.empty();
    }
    for (const char* text : kUnsupported) {
        ASSERT_EQ(parser.parse(wide(text)), WBEM_S_NO_ERROR) << text;
        const QueryAnalysis stale;
        const QueryAnalysis* analysis = &stale;
        EXPECT_EQ(parser.getAnalysis(analysis), WBEM_E_INVALID_QUERY) << text;
        EXPECT_EQ(analysis, nullptr);
        parser.empty();
    }
}

TEST(WqlQueryParserTest, AnalysisLists) {
    WqlQueryParser parser;
    const QueryAnalysis* a = nullptr;

    ASSERT_EQ(parser.parse(u"SELECT * FROM Win32_LogicalDisk WHERE FileSystem IS NULL"),
              WBEM_S_NO_ERROR);
    ASSERT_EQ(parser.getAnalysis(a), WBEM_S_NO_ERROR);
    EXPECT_TRUE(a->selectList.empty());
    EXPECT_EQ(a->fromList, std::vector<std::u16string>{u"Win32_LogicalDisk"});
    ASSERT_EQ(a->whereList.size(), 1u);
    EXPECT_EQ(a->whereList[0].tokenType, WMIQ_RPN_TOKEN_EXPRESSION);
    EXPECT_EQ(a->whereList[0].operatorType, WMIQ_RPN_OP_ISNULL);
    EXPECT_EQ(a->whereList[0].leftIdent.names, std::vector<std::u16string>{u"FileSystem"});
    EXPECT_TRUE(a->whereList[0].rightIdent.names.empty());
    EXPECT_EQ(a->whereList[0].constApparentType, VT_EMPTY);
    parser.empty();

    ASSERT_EQ(parser.parse(wide(kAccepted[6])), WBEM_S_NO_ERROR);
    ASSERT_EQ(parser.getAnalysis(a), WBEM_S_NO_ERROR);
    ASSERT_EQ(a->selectList.size(), 1u);
    EXPECT_EQ(a->selectList[0].names, (std::vector<std::u16string>{u"targetInstance", u"Name"}));
    EXPECT_EQ(a->fromList, std::vector<std::u16string>{u"__InstanceCreationEvent"});
    ASSERT_EQ(a->whereList.size(), 1u);
    EXPECT_EQ(a->whereList[0].operatorType, WMIQ_RPN_OP_ISA);
    EXPECT_EQ(a->whereList[0].leftIdent.names, std::vector<std::u16string>{u"targetinstance"});
    EXPECT_EQ(a->whereList[0].constApparentType, VT_LPWSTR);
    EXPECT_EQ(a->whereList[0].constant.str, u"Win32_Process");
    parser.empty();

    ASSERT_EQ(parser.parse(wide(kAccepted[0])), WBEM_S_NO_ERROR);
    ASSERT_EQ(parser.getAnalysis(a), WBEM_S_NO_ERROR);
    ASSERT_EQ(a->whereList.size(), 1u);
    EXPECT_EQ(a->whereList[0].leftIdent.names,
              (std::vector<std::u16string>{u"StrongEmbedObj", u"INVALID"}));
    EXPECT_EQ(a->whereList[0].constApparentType, VT_I4);
    EXPECT_EQ(a->whereList[0].constant.i, 70011);
    parser.empty();

    ASSERT_EQ(parser.parse(wide(kAccepted[3])), WBEM_S_NO_ERROR);
    ASSERT_EQ(parser.getAnalysis(a), WBEM_S_NO_ERROR);
    EXPECT_EQ(render(*a),
              "BytesSentPerSec,BytesTotalPerSec,CurrentBandwidth,|"
              "Win32_PerfFormattedData_Tcpip_NetworkInterface,|");
    EXPECT_TRUE(a->whereList.empty());
    parser.empty();
}

TEST(WqlQueryParserTest, WhereListIsReversePolish) {
    struct Expected {
        uint32_t tokenType;
        const char16_t* left;  // null for AND, OR and NOT
        uint16_t apparentType;
    };
    auto expectRpn = [](const char16_t* text, std::vector<Expected> expected) {
        WqlQueryParser parser;
        ASSERT_EQ(parser.parse(text), WBEM_S_NO_ERROR) << parser.lastError().c_str();
        const QueryAnalysis* a = nullptr;
        ASSERT_EQ(parser.getAnalysis(a), WBEM_S_NO_ERROR);
        ASSERT_EQ(a->whereList.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i) {
            const RpnToken& token = a->whereList[i];
            EXPECT_EQ(token.tokenType, expected[i].tokenType) << i;
            if (expected[i].left) {
                EXPECT_EQ(token.leftIdent.names, std::vector<std::u16string>{expected[i].left})
                    << i;
                EXPECT_EQ(token.constApparentType, expected[i].apparentType) << i;
            } else {
                EXPECT_TRUE(token.leftIdent.names.empty()) << i;
                EXPECT_EQ(token.operatorType, WMIQ_RPN_OP_UNDEFINED) << i;
            }
        }
    };
    const uint32_t E = WMIQ_RPN_TOKEN_EXPRESSION, AND = WMIQ_RPN_TOKEN_AND, OR = WMIQ_RPN_TOKEN_OR,
                   NOT = WMIQ_RPN_TOKEN_NOT;
    expectRpn(u"SELECT * FROM X WHERE a = 1 OR NOT b = 'x' AND c > 2.5", {{E, u"a", VT_I4},
                                                                          {E, u"b", VT_LPWSTR},
                                                                          {NOT, nullptr, 0},
                                                                          {E, u"c", VT_R8},
                                                                          {AND, nullptr, 0},
                                                                          {OR, nullptr, 0}});
    expectRpn(u"SELECT * FROM X WHERE (a = 1 OR b = TRUE) AND c <> 3000000000 AND d = NULL",
              {{E, u"a", VT_I4},
               {E, u"b", VT_BOOL},
               {OR, nullptr, 0},
               {E, u"c", VT_I8},
               {AND, nullptr, 0},
               {E, u"d", VT_NULL},
               {AND, nullptr, 0}});
    expectRpn(u"SELECT * FROM X WHERE NOT (a like 'x%' or b not like 'y') and e = f",
              {{E, u"a", VT_LPWSTR},
               {E, u"b", VT_LPWSTR},
               {NOT, nullptr, 0},
               {OR, nullptr, 0},
               {NOT, nullptr, 0},
               {E, u"e", VT_EMPTY},
               {AND, nullptr, 0}});
}

TEST(WqlQueryParserTest, RecordsLiveUntilFreedOrEmptied) {
    WqlQueryParser parser;
    const QueryAnalysis* a = nullptr;
    EXPECT_EQ(parser.getAnalysis(a), WBEM_E_INVALID_OPERATION);
    EXPECT_EQ(a, nullptr);

    ASSERT_EQ(parser.parse(u"select a from X where b = 1"), WBEM_S_NO_ERROR);
    EXPECT_TRUE(parser.lastError().empty());
    ASSERT_EQ(parser.getAnalysis(a), WBEM_S_NO_ERROR);
    const QueryAnalysis* second = nullptr;
    ASSERT_EQ(parser.getAnalysis(second), WBEM_S_NO_ERROR);
    EXPECT_NE(a, second);
    parser.freeMemory(second);

    // A refused parse forgets the query but not the records already handed out.
    EXPECT_EQ(parser.parse(u"select a from"), WBEM_E_INVALID_SYNTAX);
    EXPECT_FALSE(parser.lastError().empty());
    EXPECT_EQ(parser.getAnalysis(second), WBEM_E_INVALID_OPERATION);
    EXPECT_EQ(a->fromList, std::vector<std::u16string>{u"X"});

    ASSERT_EQ(parser.parse(u"select * from Y"), WBEM_S_NO_ERROR);
    EXPECT_EQ(a->selectList.size(), 1u);
    parser.freeMemory(a);
    parser.freeMemory(nullptr);

    parser.empty();
    EXPECT_EQ(parser.getAnalysis(a), WBEM_E_INVALID_OPERATION);
}

}  // namespace
}  // namespace morvax::wmi
