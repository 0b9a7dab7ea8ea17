#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "unit/wmi/SimTestSupport.h"
#include "wmi/sim/SimClass.h"
#include "wmi/sim/SimHostWorld.h"
#include "wmi/sim/SimLocator.h"

namespace morvax::wmi {
namespace {

using namespace simtest;

const char* kOneClass = R"({"hosts": {".": {"namespaces": {"root\\cimv2": {"classes": {
    "Thing": {"properties": {"Name": "string"}, "instances": [{"Name": "one"}]}}}}}}})";

TEST(SimWorldTest, AChangedWorldFileIsReadAtTheNextConnectOrQuery) {
    TempWorld world("basic");
    SimLocator locator(world.path());
    std::shared_ptr<Services> services;
    ASSERT_EQ(locator.connectServer(u("root\\cimv2"), services), WBEM_S_NO_ERROR);

    rewriteFile(world.path() / "world.json", kOneClass);
    Objects objects;
    EXPECT_EQ(runQuery(*services, "SELECT * FROM Win32_Service", objects), WBEM_E_INVALID_CLASS);
    EXPECT_EQ(runQuery(*services, "SELECT * FROM Thing", objects), WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(text(*objects[0], "Name"), "one");
    std::shared_ptr<Services> other;
    EXPECT_EQ(locator.connectServer(u("\\\\denied\\root\\cimv2"), other), RPC_E_SERVER_UNAVAILABLE);

    // A namespace that went away shows at the next query, as a lost connection does.
    rewriteFile(world.path() / "world.json", R"({"hosts": {}})");
    EXPECT_EQ(runQuery(*services, "SELECT * FROM Thing", objects), WBEM_E_INVALID_NAMESPACE);
}

TEST(SimWorldTest, ABadWorldIsAnEmptyWorldAndAReport) {
    TempWorld world("basic");
    LogCapture log;
    rewriteFile(world.path() / "world.json", "{\n  \"hosts\": {\n    \".\": [1,,]\n  }\n}\n");
    SimLocator locator(world.path());
    std::shared_ptr<Services> services;
    EXPECT_EQ(locator.connectServer(u("root\\cimv2"), services), WBEM_E_INVALID_NAMESPACE);
    EXPECT_EQ(locator.connectServer(u("\\\\host2\\root\\cimv2"), services),
              RPC_E_SERVER_UNAVAILABLE);
    EXPECT_TRUE(log.contains("world.json:3: ")) << ::testing::PrintToString(log.texts());

    // Parts that do not fit are reported and left out; the rest stands.
    rewriteFile(world.path() / "world.json", R"({"hosts": {".": {"namespaces": {"root\\cimv2": {
        "classes": {"Thing": {"properties": {"Name": "string", "Size": "uint33", "N": "uint8"},
                              "instances": [{"Name": "x", "N": 300, "Extra": 1}]}}}},
        "eventlogs": {"App": {"order": "sideways"}}, "colour": "blue"}}})");
    ASSERT_EQ(locator.connectServer(u("root\\cimv2"), services), WBEM_S_NO_ERROR);
    Objects objects;
    EXPECT_EQ(runQuery(*services, "SELECT * FROM Thing", objects), WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(names(*objects[0]), (std::vector<std::string>{"Name", "N"}));
    EXPECT_EQ(get(*objects[0], "N").vt, VT_NULL);
    for (const char* part : {"\"Size\" has an unknown type \"uint33\"", "property \"N\"",
                             "no property \"Extra\"", "\"order\" must be", "\"colour\""}) {
        EXPECT_TRUE(log.contains(part)) << part;
    }
}

// What a world file cannot be trusted with: nesting that would exhaust the stack, names that
// would reach the event stream with line ends, numbers beyond a double.
TEST(SimWorldTest, UntrustedWorldsAreBoundedNamedAndRefusedPartByPart) {
    TempWorld world("basic");
    LogCapture log;
    std::string deep;
    for (int i = 0; i < 10000; ++i) {
        deep += "{\"x\": ";
    }
    deep += "1" + std::string(10000, '}');
    rewriteFile(world.path() / "world.json",
                R"({"hosts": {".": {"namespaces": {"root\\cimv2": {"classes": {"Thing": {
                    "properties": {"Name": "string", "Inner": "object", "Ratio": "real64"},
                    "instances": [{"Name": "deep", "Inner": )" +
                    deep + R"(},
                                  {"Name": "huge", "Ratio": 1e400},
                                  {"Name": "ok", "Inner": {"A": {"B": [1, 2]}}}]}}}}}}})");
    SimLocator locator(world.path());
    std::shared_ptr<Services> services;
    ASSERT_EQ(locator.connectServer(u("root\\cimv2"), services), WBEM_S_NO_ERROR);
    Objects objects;
    ASSERT_EQ(runQuery(*services, "SELECT * FROM Thing", objects), WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 3u);
    EXPECT_EQ(get(*objects[0], "Inner").vt, VT_NULL);
    EXPECT_EQ(get(*objects[1], "Ratio").vt, VT_NULL);
    EXPECT_EQ(get(*objects[2], "Inner").vt, VT_UNKNOWN);
    EXPECT_TRUE(log.contains("nest deeper than 32 levels"))
        << ::testing::PrintToString(log.texts());
    EXPECT_TRUE(log.contains("world.json:4: the number 1e400 is out of range; the value is null"));

    for (const char* bad :
         {R"("Na\nme": "string")", R"("Name": "string", "": "string")", R"("1st": "string")"}) {
        rewriteFile(world.path() / "world.json",
                    std::string(R"({"hosts": {".": {"namespaces": {"root\\cimv2": {"classes": {
                        "Thing": {"properties": {)") +
                        bad + "}}}}}}}}");
        EXPECT_EQ(locator.connectServer(u("root\\cimv2"), services), WBEM_E_INVALID_NAMESPACE)
            << bad;
    }
    EXPECT_TRUE(log.contains("the property \"Na\nme\" is not a WMI name; the world is empty"));
    rewriteFile(world.path() / "world.json",
                R"({"hosts": {".": {"namespaces": {"root\\ci mv2": {}, "root\\cimv2": {}}}}})");
    EXPECT_EQ(locator.connectServer(u("root\\cimv2"), services), WBEM_E_INVALID_NAMESPACE);
    EXPECT_TRUE(log.contains("the namespace \"root\\ci mv2\" is not a WMI name"));
}

// A class with many properties finds each by any spelling, as one with a few does.
TEST(SimWorldTest, WideClassesFindTheirPropertiesWithoutRegardToCase) {
    SimClass wide(u"Wide", u"");
    for (int i = 0; i < 40000; ++i) {
        wide.addProperty(u("P" + std::to_string(i)), SimTypes::cim(SimCimType::STRING));
    }
    wide.addProperty(u"p7", SimTypes::cim(SimCimType::UINT32));
    EXPECT_EQ(wide.properties().size(), 40000u);
    EXPECT_EQ(wide.find(u"P39999"), 39999);
    EXPECT_EQ(wide.find(u"p39999"), 39999);
    EXPECT_EQ(wide.find(u"P7"), 7);
    EXPECT_EQ(wide.properties()[7].type.vt, VT_I4);
    EXPECT_EQ(wide.find(u"P40000"), -1);
}

// Beyond ASCII, a name matches by its simple lower-case mapping, which may lead into ASCII.
TEST(SimWorldTest, NamesBeyondAsciiMatchByTheirLowerCase) {
    SimClass cls(u"Names", u"");
    cls.addProperty(u"Kelvin", SimTypes::cim(SimCimType::STRING));
    cls.addProperty(u"\u00C4rger", SimTypes::cim(SimCimType::STRING));
    cls.addProperty(u"\u212Aey", SimTypes::cim(SimCimType::STRING));
    cls.addProperty(u"a_b", SimTypes::cim(SimCimType::STRING));
    EXPECT_EQ(cls.find(u"\u212Aelvin"), 0);
    EXPECT_EQ(cls.find(u"\u00E4RGER"), 1);
    EXPECT_EQ(cls.find(u"KEY"), 2);
    EXPECT_EQ(cls.find(u"\u212AEY"), 2);
    EXPECT_EQ(cls.find(u"A_B"), 3);
    EXPECT_EQ(cls.find(u"a\u007Fb"), -1);  // the same but for the bit that sets case
    cls.addProperty(u"KELVIN", SimTypes::cim(SimCimType::UINT32));
    EXPECT_EQ(cls.properties().size(), 4u);
    EXPECT_EQ(cls.properties()[0].type.vt, VT_I4);
}

TEST(SimWorldTest, IncludeHostAddsThisMachineBesideTheDeclaredClasses) {
    TempWorld world("basic");
    rewriteFile(world.path() / "world.json", R"({"include_host": true, "hosts": {".": {
        "namespaces": {"root\\cimv2": {"classes": {"Win32_Process": {
            "properties": {"Name": "string"}, "instances": [{"Name": "declared"}]}}}}}}})");
    SimLocator locator(world.path());
    std::shared_ptr<Services> services;
    ASSERT_EQ(locator.connectServer(u("root\\cimv2"), services), WBEM_S_NO_ERROR);
    Objects objects;
    EXPECT_EQ(runQuery(*services, "SELECT * FROM Win32_Process", objects), WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(text(*objects[0], "Name"), "declared");
    EXPECT_EQ(runQuery(*services, "SELECT * FROM Win32_OperatingSystem", objects = {}),
              SimHostWorld::available() ? WBEM_S_FALSE : WBEM_E_INVALID_CLASS);
}

TEST(SimWorldTest, QueriesRunWhileTheWorldIsReloadedOnAnotherThread) {
    TempWorld world("basic");
    SimLocator locator(world.path());
    std::shared_ptr<Services> services;
    ASSERT_EQ(locator.connectServer(u("root\\cimv2"), services), WBEM_S_NO_ERROR);
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    // Services made here and used on the other thread, as the collector does.
    std::thread reader([&] {
        while (!stop) {
            Objects objects;
            const HRESULT hr = runQuery(*services, "SELECT * FROM Sample", objects);
            if (hr != WBEM_S_FALSE && hr != WBEM_E_INVALID_CLASS) {
                ++failures;
            }
        }
    });
    const std::string original = R"({"hosts": {".": {"namespaces": {"root\\cimv2": {"classes": {
        "Sample": {"properties": {"Name": "string"}, "synthetic": 300}}}}}}})";
    for (int i = 0; i < 20; ++i) {
        rewriteFile(world.path() / "world.json", i % 2 ? original : kOneClass);
        std::shared_ptr<Services> more;
        EXPECT_EQ(locator.connectServer(u("root\\cimv2"), more), WBEM_S_NO_ERROR);
    }
    stop = true;
    reader.join();
    EXPECT_EQ(failures, 0);
}

TEST(SimWorldTest, TheHostWorldDescribesThisMachine) {
    SimLocator locator{std::filesystem::path()};
    std::shared_ptr<Services> services;
    const HRESULT hr = locator.connectServer(u("root\\cimv2"), services);
    if (!SimHostWorld::available()) {
        // The platform's own WMI is the host there.
        EXPECT_EQ(hr, WBEM_E_INVALID_NAMESPACE);
        return;
    }
    ASSERT_EQ(hr, WBEM_S_NO_ERROR);
    Objects objects;
    ASSERT_EQ(runQuery(*services, "SELECT * FROM Win32_OperatingSystem", objects), WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(get(*objects[0], "TotalVisibleMemorySize").vt, VT_BSTR);
    EXPECT_GT(std::stoull(text(*objects[0], "TotalVisibleMemorySize")), 0u);
    EXPECT_EQ(get(*objects[0], "NumberOfProcesses").vt, VT_I4);

    ASSERT_EQ(runQuery(*services, "SELECT Name, ProcessId FROM Win32_Process", objects = {}),
              WBEM_S_FALSE);
    EXPECT_GT(objects.size(), 1u);
    EXPECT_EQ(get(*objects[0], "ProcessId").vt, VT_I4);

    ASSERT_EQ(
        runQuery(*services, "SELECT * FROM CIM_LogicalDisk WHERE DeviceID = '/'", objects = {}),
        WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_GT(std::stoull(text(*objects[0], "Size")), 0u);

    ASSERT_EQ(runQuery(*services,
                       "select CommittedBytes, AvailableBytes, PercentCommittedBytesInUse, Caption "
                       "from Win32_PerfFormattedData_PerfOS_Memory",
                       objects = {}),
              WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(names(*objects[0]).size(), 4u);
    ASSERT_EQ(runQuery(*services,
                       "SELECT * FROM Win32_PerfFormattedData_PerfOS_Processor WHERE Name = "
                       "'_Total'",
                       objects = {}),
              WBEM_S_FALSE);
    EXPECT_EQ(objects.size(), 1u);
    for (const char* cls : {"Win32_ComputerSystem", "Win32_Processor"}) {
        EXPECT_EQ(runQuery(*services, std::string("SELECT * FROM ") + cls, objects = {}),
                  WBEM_S_FALSE);
        EXPECT_GE(objects.size(), 1u) << cls;
    }
    // Its logs exist and are empty.
    EXPECT_EQ(runQuery(*services, "SELECT * FROM Win32_NTLogEvent WHERE Logfile = 'Security'",
                       objects = {}),
              WBEM_S_FALSE);
    EXPECT_TRUE(objects.empty());
}

}  // namespace
}  // namespace morvax::wmi
