#include "wmi/sim/SimLocator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iterator>
#include <random>

#include "support/Environment.h"
#include "unit/wmi/SimTestSupport.h"

namespace morvax::wmi {
namespace {

using namespace simtest;

class SimLocatorTest : public ::testing::Test {
  protected:
    HRESULT connect(const std::string& ns) {
        services_.reset();
        return locator_.connectServer(u(ns), services_);
    }

    SimLocator locator_{fixture("basic")};
    std::shared_ptr<Services> services_;
};

TEST_F(SimLocatorTest, LocalNamesAllReachTheLocalHost) {
    for (const char* ns : {"root\\cimv2", "\\\\.\\root\\cimv2", "\\\\localhost\\root\\cimv2",
                           "\\\\LOCALHOST\\root\\cimv2", "\\\\127.0.0.1\\root\\cimv2",
                           "\\\\[::1]\\root\\cimv2", "//./root/cimv2", "ROOT\\CIMV2"}) {
        ASSERT_EQ(connect(ns), WBEM_S_NO_ERROR) << ns;
        Objects objects;
        EXPECT_EQ(runQuery(*services_, "SELECT * FROM Win32_Service", objects), WBEM_S_FALSE) << ns;
        EXPECT_EQ(objects.size(), 3u) << ns;
    }
}

TEST_F(SimLocatorTest, ServersAndNamespacesMatchWithoutRegardToCase) {
    ASSERT_EQ(connect("\\\\host2\\Root\\CIMv2"), WBEM_S_NO_ERROR);
    Objects objects;
    // Host2 has no Win32_Service, but its own event log.
    EXPECT_EQ(runQuery(*services_, "SELECT * FROM Win32_Service", objects), WBEM_E_INVALID_CLASS);
    EXPECT_EQ(runQuery(*services_, "select * from win32_ntlogevent", objects), WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 3u);
    EXPECT_EQ(text(*objects[0], "ComputerName"), "Host2");

    EXPECT_EQ(connect("\\\\nowhere\\root\\cimv2"), RPC_E_SERVER_UNAVAILABLE);
    EXPECT_EQ(services_, nullptr);
    EXPECT_EQ(connect("\\\\host2\\root\\nothing"), WBEM_E_INVALID_NAMESPACE);
    EXPECT_EQ(connect("blahblahbogus"), WBEM_E_INVALID_NAMESPACE);
    EXPECT_EQ(connect("root\\other"), WBEM_S_NO_ERROR);
}

TEST_F(SimLocatorTest, ConnectFaultsFailOrDelay) {
    EXPECT_EQ(connect("\\\\denied\\root\\cimv2"), hresult(0x80070005));
    EXPECT_EQ(services_, nullptr);

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(connect("\\\\slow\\root\\cimv2"), WBEM_S_NO_ERROR);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_NE(services_, nullptr);
}

TEST_F(SimLocatorTest, QueryFaults) {
    ASSERT_EQ(connect("\\\\broken\\root\\cimv2"), WBEM_S_NO_ERROR);
    std::unique_ptr<Enumerator> enumerator;
    EXPECT_EQ(services_->execQuery(u("SELECT * FROM Win32_NTLogEvent"), enumerator),
              hresult(0x80041001));
    EXPECT_EQ(enumerator, nullptr);

    // The connection breaks after 150 objects: 100, then the 50 left before the fault, then the
    // fault, and it stays.
    ASSERT_EQ(connect("\\\\flaky\\root\\cimv2"), WBEM_S_NO_ERROR);
    ASSERT_EQ(services_->execQuery(u("SELECT * FROM Item"), enumerator), WBEM_S_NO_ERROR);
    Objects objects;
    EXPECT_EQ(enumerator->next(0, 100, objects), WBEM_S_NO_ERROR);
    EXPECT_EQ(enumerator->next(0, 100, objects), WBEM_S_TIMEDOUT);
    EXPECT_EQ(objects.size(), 150u);
    EXPECT_EQ(enumerator->next(0, 100, objects), hresult(0x800706BE));
    EXPECT_EQ(enumerator->next(0, 100, objects), hresult(0x800706BE));
    EXPECT_EQ(objects.size(), 150u);

    // Nothing for a while after the query began, then everything.
    ASSERT_EQ(connect("\\\\late\\root\\cimv2"), WBEM_S_NO_ERROR);
    ASSERT_EQ(services_->execQuery(u("SELECT * FROM Item"), enumerator), WBEM_S_NO_ERROR);
    objects.clear();
    EXPECT_EQ(enumerator->next(0, 100, objects), WBEM_S_TIMEDOUT);
    EXPECT_TRUE(objects.empty());
    EXPECT_EQ(pollUntil(*enumerator, 2, objects), WBEM_S_FALSE);
    EXPECT_EQ(objects.size(), 2u);
}

TEST_F(SimLocatorTest, BadQueriesGetStatuses) {
    ASSERT_EQ(connect("root\\cimv2"), WBEM_S_NO_ERROR);
    Objects objects;
    EXPECT_EQ(runQuery(*services_, "SELECT * FROM NoSuchClass", objects), WBEM_E_INVALID_CLASS);
    for (const char* wql :
         {"SELECT FROM Win32_Service", "SELECT * FROM Win32_Service WHERE", "garbage \x01\xff",
          "SELECT Nope FROM Win32_Service", "SELECT * FROM Win32_Service WHERE Nope = 1",
          "SELECT * FROM Win32_Service WITHIN 5", "ASSOCIATORS OF {Win32_Service.Name=\"x\"}"}) {
        EXPECT_EQ(runQuery(*services_, wql, objects), WBEM_E_INVALID_QUERY) << wql;
    }
    EXPECT_TRUE(objects.empty());
    std::unique_ptr<Enumerator> enumerator;
    EXPECT_EQ(services_->execNotificationQuery(u("SELECT * FROM Win32_Service"), enumerator),
              WBEM_E_NOT_EVENT_CLASS);

    // Texts cut and spliced from real queries get a status, whatever they are.
    const std::string pieces[] = {"SELECT ",
                                  "* ",
                                  "Name, State ",
                                  "FROM ",
                                  "Win32_Service ",
                                  "__InstanceCreationEvent ",
                                  "WHERE ",
                                  "TargetInstance.Name ",
                                  "ISA ",
                                  "'x' ",
                                  "= ",
                                  "(",
                                  ")",
                                  "NOT ",
                                  "AND ",
                                  "OR ",
                                  "LIKE '%[^a-",
                                  "GROUP WITHIN 1 ",
                                  "BY Name ",
                                  "HAVING ",
                                  "12 ",
                                  "\"",
                                  "\\",
                                  std::string("\xff\0", 2)};
    std::minstd_rand random(7);
    for (int i = 0; i < 3000; ++i) {
        std::string wql;
        for (int n = random() % 12; n >= 0; --n) {
            wql += pieces[random() % std::size(pieces)];
        }
        const HRESULT data = runQuery(*services_, wql, objects);
        EXPECT_TRUE(data == WBEM_S_FALSE || data == WBEM_E_INVALID_QUERY ||
                    data == WBEM_E_INVALID_CLASS)
            << wql;
        const HRESULT events = services_->execNotificationQuery(u(wql), enumerator);
        EXPECT_TRUE(events == WBEM_S_NO_ERROR || events == WBEM_E_INVALID_QUERY ||
                    events == WBEM_E_INVALID_CLASS || events == WBEM_E_NOT_EVENT_CLASS)
            << wql;
        if (enumerator) {
            EXPECT_EQ(enumerator->next(0, 100, objects), WBEM_S_TIMEDOUT);
        }
    }
}

TEST(SimLocatorCreateTest, ReadsTheWorldDirectoryFromTheEnvironment) {
    const std::string dir = fixture("basic").string();
    std::unique_ptr<Locator> locator;
    {
        test::ScopedEnvironment world("MORVAX_WMI_SIM", dir.c_str());
        ASSERT_EQ(SimLocator::create(locator), WBEM_S_NO_ERROR);
    }
    std::shared_ptr<Services> services;
    EXPECT_EQ(locator->connectServer(u("\\\\denied\\root\\cimv2"), services), hresult(0x80070005));
}

}  // namespace
}  // namespace morvax::wmi
