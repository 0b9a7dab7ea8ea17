#include "input/QueryAnalyzer.h"

#include <gtest/gtest.h>

#include <string>

#include "support/LogCapture.h"
#include "wmi/WmiProvider.h"

namespace morvax {
namespace {

struct AnalysisCase {
    const char* text;
    bool valid;
    bool supported;
    bool validEvent;  // asked only of a text that is not valid
    // The four parts of a supported query: properties, classes, left sides, constants.
    const char* parts[4];
};

// clang-format off
const AnalysisCase kCases[] = {
    {"SELECT * FROM MainClass WHERE StrongEmbedObj.INVALID = 70011", true, true, false,
     {"", "MainClass", "StrongEmbedObj", "70011"}},
    // IS NULL has no constant: its place stays empty between the commas.
    {"SELECT * FROM Win32_LogicalDisk WHERE FileSystem IS NULL AND Size > 5", true, true, false,
     {"", "Win32_LogicalDisk", "FileSystem,Size", ",5"}},
    {"SELECT * FROM meta_class WHERE __Class = \"Win32_LogicalDisk\"", true, true, false,
     {"", "meta_class", "__Class", "Win32_LogicalDisk"}},
    {"select BytesSentPerSec, BytesTotalPerSec from Win32_PerfFormattedData_Tcpip_NetworkInterface",
     true, true, false,
     {"BytesSentPerSec,BytesTotalPerSec", "Win32_PerfFormattedData_Tcpip_NetworkInterface", "", ""}},
    {"SELECT targetInstance.Name FROM __InstanceCreationEvent WHERE targetinstance isa "
     "\"Win32_Process\"", true, true, false,
     {"targetInstance", "__InstanceCreationEvent", "targetinstance", "Win32_Process"}},
    // A constant written first is turned round; operators leave no place.
    {"SELECT * FROM C WHERE (a = 2.5 OR 7 < b) AND NOT c = TRUE AND d <> 5000000000", true, true,
     false, {"", "C", "a,b,c,d", "2.500000,7,1,5000000000"}},
    {"SELECT * FROM C WHERE e = -3 OR f = 18446744073709551615", true, true, false,
     {"", "C", "e,f", "-3,18446744073709551615"}},
    {"select from Win32_PerfFormattedData_Tcpip_NetworkInterface", false, false, false, {}},
    {"select * from Win32_PerfFormattedData_Tcpip_NetworkInterface where x = 't' or", false,
     false, false, {}},
    {"select * from Win32_PerfFormattedData wher x = 't'", false, false, false, {}},
    {"ASSOCIATORS OF {Win32_LogicalDisk.DeviceID=\"C:\"}", true, false, false, {}},
    {"REFERENCES OF {Adapter=\"AHA-294X\"} WHERE RequiredQualifier = AdapterTag", true, false,
     false, {}},
    // Event clauses: the GROUP form goes whole with what follows; WITHIN n alone goes.
    {"SELECT * FROM EmailEvent GROUP WITHIN 300 BY event", false, false, true, {}},
    {"SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA \"Win32_NTLogEvent\" GROUP "
     "WITHIN 600 BY TargetInstance.SourceName HAVING NumberOfEvents > 25", false, false, true, {}},
    {"select * from __InstanceCreationEvent WITHIN 10 where TargetInstance isa 'Win32_Process'",
     false, false, true, {}},
    {"select * from x within where y = 1", false, false, false, {}},
    {"", false, false, false, {}},
    {"select * from 'x", false, false, false, {}},
    {"select * from x where y = \xff\xfe", false, false, false, {}},
};
// clang-format on

// The analyzer runs where COM is set up, as the entry function does first: without it the
// platform's parser cannot be made, which is an error, not a reason to use another.
class QueryAnalyzerTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        ASSERT_FALSE(wmi::failed(wmi::WmiProvider::initializeApartment()));
    }
};

TEST_F(QueryAnalyzerTest, VerdictsAndPartsOfEachText) {
    QueryAnalyzer analyzer;
    for (const AnalysisCase& c : kCases) {
        SCOPED_TRACE(c.text);
        const bool valid = analyzer.isValidQuery(c.text);
        EXPECT_EQ(valid, c.valid);
        EXPECT_EQ(analyzer.isSupportedQuery(c.text), c.supported);
        if (!valid) {
            EXPECT_EQ(analyzer.isValidEventQuery(c.text), c.validEvent);
        }
        if (!c.supported) {
            continue;
        }
        // The analysis reads the parser's last parse, so the text is checked again first.
        ASSERT_TRUE(analyzer.isSupportedQuery(c.text));
        ASSERT_TRUE(analyzer.analyzeQuery(c.text));
        ASSERT_EQ(analyzer.analysis().size(), 4u);
        for (int32_t part = 0; part < 4; ++part) {
            EXPECT_EQ(analyzer.analysis().at(part), c.parts[part]) << "part " << part;
        }
    }
}

TEST_F(QueryAnalyzerTest, AFreshAnalyzerParsesItselfAndAnEmptiedOneComplains) {
    QueryAnalyzer fresh;
    EXPECT_FALSE(fresh.analyzeQuery("select * from"));
    QueryAnalyzer unsupported;
    EXPECT_FALSE(unsupported.analyzeQuery("ASSOCIATORS OF {x}"));

    QueryAnalyzer analyzer;
    ASSERT_TRUE(analyzer.analyzeQuery(" SELECT  Name , Size FROM Win32_LogicalDisk WHERE Size>1"));
    Str rendered;
    analyzer.renderAnalysis(rendered);
    EXPECT_EQ(rendered, "Select Name,Size from Win32_LogicalDisk where 1");

    // The analysis empties the parser: without a new parse there is nothing to analyse.
    test::LogCapture log;
    EXPECT_FALSE(analyzer.analyzeQuery("SELECT * FROM x"));
    ASSERT_EQ(log.formatted().size(), 1u);
    EXPECT_EQ(log.formatted()[0],
              "WMI ERROR IWbemQuery::GetAnanlysis failed with error 0x80041016.");
}

TEST_F(QueryAnalyzerTest, HostileTextsGetAVerdict) {
    QueryAnalyzer analyzer;
    std::string deep = "select * from x where " + std::string(100000, '(') + "a = 1";
    EXPECT_FALSE(analyzer.isValidQuery(Str(deep)));
    EXPECT_FALSE(analyzer.isValidEventQuery(Str(deep)));

    // Long but within bounds: a chain of conditions stays flat.
    std::string chain = "select * from x where a = 1";
    while (chain.size() < 200000) {
        chain += " and a = 1";
    }
    EXPECT_TRUE(analyzer.isSupportedQuery(Str(chain)));

    std::string huge = "select * from x where y = '" + std::string(3 << 20, 'p') + "'";
    EXPECT_FALSE(analyzer.isValidQuery(Str(huge)));
    EXPECT_FALSE(analyzer.isValidEventQuery(Str(huge + " group within 1")));
    EXPECT_FALSE(analyzer.isValidEventQuery(Str(std::string(2 << 20, ' ') + " within 5")));
}

}  // namespace
}  // namespace morvax
