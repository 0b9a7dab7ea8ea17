#include <gtest/gtest.h>

#include "unit/wmi/SimTestSupport.h"
#include "wmi/sim/SimLocator.h"

namespace morvax::wmi {
namespace {

using namespace simtest;

class SimNotificationTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(locator_.connectServer(u("root\\cimv2"), services_), WBEM_S_NO_ERROR);
    }

    std::unique_ptr<Enumerator> watch(const std::string& wql) {
        std::unique_ptr<Enumerator> enumerator;
        EXPECT_EQ(services_->execNotificationQuery(u(wql), enumerator), WBEM_S_NO_ERROR) << wql;
        return enumerator;
    }

    std::filesystem::path file(const std::string& relative) const {
        return world_.path() / relative;
    }

    TempWorld world_{"basic"};
    SimLocator locator_{world_.path()};
    std::shared_ptr<Services> services_;
};

TEST_F(SimNotificationTest, RecordsAppendedAfterTheQueryBecomeCreationEvents) {
    auto application = watch(
        "SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA \"Win32_NTLogEvent\" "
        "AND TargetInstance.Logfile = \"Application\"");
    auto any = watch("SELECT TargetInstance.Message FROM __InstanceOperationEvent WITHIN 5");
    Objects events;
    EXPECT_EQ(application->next(0, 100, events), WBEM_S_TIMEDOUT);
    EXPECT_TRUE(events.empty());

    appendText(file("eventlogs/Application.jsonl"), "{\"Message\": \"new\", \"EventCode\": 7}\n");
    EXPECT_EQ(pollUntil(*application, 1, events), WBEM_S_TIMEDOUT);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(text(*events[0], "__CLASS"), "__InstanceCreationEvent");
    EXPECT_EQ(names(*events[0]),
              (std::vector<std::string>{"SECURITY_DESCRIPTOR", "TargetInstance", "TIME_CREATED"}));
    Variant target = get(*events[0], "TargetInstance");
    ASSERT_EQ(target.vt, VT_UNKNOWN);
    EXPECT_EQ(text(*target.object, "Message"), "new");
    EXPECT_EQ(text(*target.object, "RecordNumber"), "4");
    EXPECT_EQ(text(*target.object, "Logfile"), "Application");

    // The other query sees the same record, shown through its select list.
    Objects seen;
    EXPECT_EQ(pollUntil(*any, 1, seen), WBEM_S_TIMEDOUT);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(names(*seen[0]), (std::vector<std::string>{"TargetInstance"}));
    EXPECT_EQ(names(*get(*seen[0], "TargetInstance").object),
              (std::vector<std::string>{"Message"}));

    // A cleared log: what it holds now is new. The enumerator never ends.
    rewriteFile(file("eventlogs/Application.jsonl"), "{\"Message\": \"reborn\"}\n");
    events.clear();
    EXPECT_EQ(pollUntil(*application, 1, events), WBEM_S_TIMEDOUT);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(text(*get(*events[0], "TargetInstance").object, "Message"), "reborn");
    EXPECT_EQ(application->next(0, 100, events), WBEM_S_TIMEDOUT);
}

TEST_F(SimNotificationTest, EventsFileLinesAreFilteredByHostNamespaceClassAndWhere) {
    auto processes = watch(
        "SELECT * FROM __InstanceCreationEvent WITHIN 1 WHERE TargetInstance ISA 'Win32_Process'");
    auto mail = watch("SELECT * FROM MailEvent WHERE Size > 10");
    appendText(file("events.jsonl"),
               "{\"host\": \"host2\", \"class\": \"__InstanceCreationEvent\", "
               "\"TargetInstance\": {\"__CLASS\": \"Win32_Process\", \"Name\": \"elsewhere\"}}\n"
               "{\"namespace\": \"root\\\\other\", \"TargetInstance\": {\"__CLASS\": "
               "\"Win32_Process\", \"Name\": \"other namespace\"}}\n"
               "{\"host\": \"LOCALHOST\", \"class\": \"__InstanceDeletionEvent\", "
               "\"TargetInstance\": {\"__CLASS\": \"Win32_Process\", \"Name\": \"deleted\"}}\n"
               "{\"class\": \"__InstanceCreationEvent\", \"TargetInstance\": {\"__CLASS\": "
               "\"Win32_Thread\", \"Name\": \"a thread\"}}\n"
               "{\"class\": \"__InstanceCreationEvent\", \"TargetInstance\": {\"__CLASS\": "
               "\"Win32_Process\", \"Name\": \"x\", \"ProcessId\": 42, \"Big\": 8589934592}}\n"
               "{\"class\": \"MailEvent\", \"Sender\": \"small\", \"Size\": 3}\n"
               "{\"class\": \"mailevent\", \"Sender\": \"big\", \"Size\": 30}\n");
    Objects events;
    pollUntil(*processes, 1, events);
    ASSERT_EQ(events.size(), 1u);
    Variant target = get(*events[0], "TargetInstance");
    ASSERT_EQ(target.vt, VT_UNKNOWN);
    EXPECT_EQ(names(*target.object), (std::vector<std::string>{"Name", "ProcessId", "Big"}));
    EXPECT_EQ(get(*target.object, "ProcessId").vt, VT_I4);
    EXPECT_EQ(text(*target.object, "Big"), "8589934592");
    EXPECT_EQ(get(*target.object, "Big").vt, VT_BSTR);

    Objects mails;
    pollUntil(*mail, 1, mails);
    ASSERT_EQ(mails.size(), 1u);
    EXPECT_EQ(text(*mails[0], "Sender"), "big");
    EXPECT_EQ(get(*mails[0], "TargetInstance").vt, VT_EMPTY);
    EXPECT_EQ(processes->next(0, 100, events), WBEM_S_TIMEDOUT);
    EXPECT_EQ(events.size(), 1u);
}

TEST_F(SimNotificationTest, GroupWithinDeliversAggregates) {
    auto grouped = watch(
        "SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA 'Win32_NTLogEvent' "
        "GROUP WITHIN 0.2 BY TargetInstance.SourceName HAVING NumberOfEvents > 1");
    appendText(file("eventlogs/Application.jsonl"),
               "{\"SourceName\": \"a\"}\n{\"SourceName\": \"A\"}\n{\"SourceName\": \"b\"}\n");
    Objects aggregates;
    pollUntil(*grouped, 1, aggregates);
    ASSERT_EQ(aggregates.size(), 1u);
    EXPECT_EQ(text(*aggregates[0], "__CLASS"), "__AggregateEvent");
    EXPECT_EQ(text(*aggregates[0], "NumberOfEvents"), "2");
    Variant representative = get(*aggregates[0], "Representative");
    ASSERT_EQ(representative.vt, VT_UNKNOWN);
    EXPECT_EQ(text(*get(*representative.object, "TargetInstance").object, "SourceName"), "a");
}

}  // namespace
}  // namespace morvax::wmi
