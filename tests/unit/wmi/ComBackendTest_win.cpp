// The COM backend against the platform's WMI (Wine's under the cross build's tests).
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "wmi/com/ComClassObject.h"
#include "wmi/com/ComLocator.h"
#include "wmi/com/ComQueryParser.h"

namespace morvax::wmi {
namespace {

class ComEnvironment : public ::testing::Environment {
  public:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
        ::HRESULT hr =
            CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
                                 RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
        ASSERT_TRUE(SUCCEEDED(hr) || hr == RPC_E_TOO_LATE);
    }
    void TearDown() override { CoUninitialize(); }
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new ComEnvironment);

// Reads a whole enumeration with next(0, 100) as the collector does, within a bound.
HRESULT readAll(Enumerator& enumerator, std::vector<std::shared_ptr<ClassObject>>& objects) {
    for (int round = 0; round < 10000; ++round) {
        HRESULT hr = enumerator.next(0, 100, objects);
        if (hr != WBEM_S_NO_ERROR && hr != WBEM_S_TIMEDOUT) {
            return hr;
        }
    }
    return WBEM_S_TIMEDOUT;
}

std::shared_ptr<Services> connect(const std::u16string& ns, HRESULT& hr) {
    std::unique_ptr<Locator> locator;
    EXPECT_EQ(ComLocator::create(locator), WBEM_S_NO_ERROR);
    std::shared_ptr<Services> services;
    hr = locator ? locator->connectServer(ns, services) : COM_E_FAIL;
    return services;
}

TEST(ComBackendTest, ConnectsToTheLocalNamespaceInBothForms) {
    for (const std::u16string ns : {u"root\\cimv2", u"\\\\.\\root\\cimv2"}) {
        HRESULT hr;
        auto services = connect(ns, hr);
        EXPECT_EQ(hr, WBEM_S_NO_ERROR);
        EXPECT_TRUE(services);
    }
}

TEST(ComBackendTest, ConnectionFailuresComeBackAsStatuses) {
    HRESULT hr;
    EXPECT_FALSE(connect(u"root\\nosuchnamespace", hr));
    EXPECT_EQ(static_cast<uint32_t>(hr), 0x8004100Eu);
    EXPECT_FALSE(connect(u"\\\\host1\\root\\cimv2", hr));
    EXPECT_EQ(static_cast<uint32_t>(hr), 0x80041015u);
}

TEST(ComBackendTest, QueriesDeliverObjectsWithTheProvidersTypes) {
    HRESULT hr;
    auto services = connect(u"root\\cimv2", hr);
    ASSERT_TRUE(services);

    std::unique_ptr<Enumerator> os;
    ASSERT_EQ(services->execQuery(u"SELECT * FROM Win32_OperatingSystem", os), WBEM_S_NO_ERROR);
    std::vector<std::shared_ptr<ClassObject>> objects;
    EXPECT_EQ(readAll(*os, objects), WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    std::vector<std::u16string> names;
    ASSERT_EQ(objects[0]->getNames(names), WBEM_S_NO_ERROR);
    EXPECT_NE(std::find(names.begin(), names.end(), u"Caption"), names.end());
    EXPECT_NE(std::find(names.begin(), names.end(), u"Version"), names.end());
    EXPECT_EQ(std::find(names.begin(), names.end(), u"__CLASS"), names.end());
    Variant value;
    ASSERT_EQ(objects[0]->get(u"Caption", value), WBEM_S_NO_ERROR);
    EXPECT_EQ(value.vt, VT_BSTR);
    EXPECT_FALSE(value.str.empty());
    ASSERT_EQ(objects[0]->get(u"__CLASS", value), WBEM_S_NO_ERROR);
    EXPECT_EQ(value.str, u"Win32_OperatingSystem");
    // uint64 and datetime properties come as strings.
    ASSERT_EQ(objects[0]->get(u"FreePhysicalMemory", value), WBEM_S_NO_ERROR);
    EXPECT_EQ(value.vt, VT_BSTR);
    ASSERT_EQ(objects[0]->get(u"LastBootUpTime", value), WBEM_S_NO_ERROR);
    EXPECT_EQ(value.vt, VT_BSTR);
    EXPECT_EQ(value.str.size(), 25u);  // yyyymmddHHMMSS.mmmmmmsUUU
    EXPECT_TRUE(failed(objects[0]->get(u"NoSuchProperty", value)));

    std::unique_ptr<Enumerator> processes;
    ASSERT_EQ(services->execQuery(u"SELECT Name, ProcessId FROM Win32_Process", processes),
              WBEM_S_NO_ERROR);
    objects.clear();
    EXPECT_EQ(readAll(*processes, objects), WBEM_S_FALSE);
    ASSERT_FALSE(objects.empty());
    ASSERT_EQ(objects[0]->get(u"ProcessId", value), WBEM_S_NO_ERROR);
    EXPECT_EQ(value.vt, VT_I4);  // uint32 as VT_I4
}

// A dispatch value keeps its type (9), so that the collector prints it as such, not as 13.
TEST(ComBackendTest, DispatchValuesKeepTheirType) {
    VARIANT source;
    VariantInit(&source);
    source.vt = VT_DISPATCH;
    source.pdispVal = nullptr;
    Variant out;
    ASSERT_EQ(ComClassObject::fromVariant(source, out), WBEM_S_NO_ERROR);
    EXPECT_EQ(out.vt, 9);
    // TargetInstance is turned into an object value; a dispatch value converts.
    Variant object;
    EXPECT_EQ(changeType(object, out, VT_UNKNOWN), WBEM_S_NO_ERROR);
    EXPECT_EQ(object.vt, VT_UNKNOWN);
}

TEST(ComBackendTest, UnsupportedOperationsFailWithAStatus) {
    HRESULT hr;
    auto services = connect(u"root\\cimv2", hr);
    ASSERT_TRUE(services);
    std::unique_ptr<Enumerator> events;
    HRESULT status = services->execNotificationQuery(
        u"SELECT * FROM __InstanceCreationEvent WITHIN 1 WHERE TargetInstance ISA "
        u"'Win32_Process'",
        events);
    if (failed(status)) {
        EXPECT_FALSE(events);
    } else {
        // A platform with notifications answers "nothing yet" at once.
        std::vector<std::shared_ptr<ClassObject>> objects;
        EXPECT_FALSE(failed(events->next(0, 100, objects)));
    }
    // An unknown class fails at once or at the first read, or (Wine) ends with no objects.
    std::unique_ptr<Enumerator> bad;
    HRESULT badStatus = services->execQuery(u"SELECT * FROM NoSuchClass_Anywhere", bad);
    if (!failed(badStatus)) {
        std::vector<std::shared_ptr<ClassObject>> none;
        badStatus = readAll(*bad, none);
        EXPECT_TRUE(failed(badStatus) || none.empty());
    }
    EXPECT_TRUE(failed(badStatus) || badStatus == WBEM_S_FALSE);
}

TEST(ComBackendTest, QueryParserIsCreatedWhereThePlatformHasOne) {
    std::unique_ptr<QueryParser> parser;
    HRESULT hr = ComQueryParser::create(parser);
    if (failed(hr)) {
        EXPECT_FALSE(parser);
        return;
    }
    EXPECT_EQ(parser->parse(u"select * from Win32_Process"), WBEM_S_NO_ERROR);
    EXPECT_EQ(parser->parse(u"select from"), WBEM_E_INVALID_SYNTAX);
}

}  // namespace
}  // namespace morvax::wmi
