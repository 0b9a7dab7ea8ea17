#include "input/WMIConnectionManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "input/DefaultQueryHandlerSchedulePolicy.h"
#include "input/DefaultWMIDataOutputter.h"
#include "input/IWMIConfiguration.h"
#include "input/WMIQueryHandlerBuilder.h"
#include "input/WQLQueryProcessorFactory.h"
#include "support/Environment.h"
#include "support/WaitUntil.h"
#include "unit/input/OutputTestSupport.h"
#include "util/thread/EmptyMainThread.h"

namespace morvax {
namespace {

// The entries of a run, handed out once each.
class ListConfiguration : public IWMIConfiguration {
  public:
    explicit ListConfiguration(std::vector<WMIQueryEntry> entries) : entries_(std::move(entries)) {}
    const WMIQueryEntry* nextQuery() override {
        return next_ < entries_.size() ? &entries_[next_++] : nullptr;
    }
    bool hasQueries() const override { return !entries_.empty(); }
    const Pathname& getCheckpointPath() override { return path_; }

  private:
    std::vector<WMIQueryEntry> entries_;
    size_t next_ = 0;
    Pathname path_;
};

WMIQueryEntry entry(const char* nameSpace, const char* wql, bool notification = false) {
    WMIQueryEntry e;
    e.namespace_ = nameSpace;
    e.parameter = wql;
    e.name = "stanza";
    e.intervalMilliseconds = 3600000;
    e.notification = notification;
    return e;
}

// The simulated provider's collector world, the factories of a service run, and the event
// stream in a file.
class WMIConnectionManagerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const std::string fixtures = test::getEnvironment("MORVAX_TEST_FIXTURES").value_or("");
        provider_ = std::make_unique<test::ScopedEnvironment>("MORVAX_WMI_PROVIDER", "sim");
        world_ = std::make_unique<test::ScopedEnvironment>(
            "MORVAX_WMI_SIM", (fixtures + "/worlds/collector").c_str());
        WMIQueryHandlerBuilder::setPolicyFactory(
            std::make_unique<DefaultQueryHandlerSchedulePolicyFactory>());
        WMIQueryHandlerBuilder::setProcessorFactory(WMIQueryEntry::TYPE_WQL,
                                                    std::make_unique<WQLQueryProcessorFactory>());
        DefaultWMIDataOutputter::instance().setStream(events_.file());
    }
    void TearDown() override {
        DefaultWMIDataOutputter::instance().setStream(stdout);
        WMIQueryHandlerBuilder::clear();
    }

    // Runs the entries until `done` holds, then stops the manager as a console event would.
    void run(std::vector<WMIQueryEntry> entries, const std::function<bool()>& done) {
        ListConfiguration configuration(std::move(entries));
        WMIConnectionManager manager;
        ASSERT_TRUE(manager.init(&configuration));
        WMIQueryHandlerBuilder::setConnector(&manager);
        manager.start();
        EXPECT_TRUE(test::waitUntil(done));
        queue_ = manager.dumpQueue().toStdString();
        manager.stop();
        manager.join();
    }

    size_t connects() const {
        size_t count = 0;
        for (const std::string& line : log_.of("WMI")) {
            count += line.find("Connected to WMI provider") != std::string::npos;
        }
        return count;
    }
    size_t events() const {
        const std::string text = events_.text();
        size_t count = 0;
        for (size_t at = text.find("---morvax-wmi-end-of-event---"); at != std::string::npos;
             at = text.find("---morvax-wmi-end-of-event---", at + 1)) {
            ++count;
        }
        return count / 2;
    }

    EmptyMainThread mainThread_;
    std::unique_ptr<test::ScopedEnvironment> provider_;
    std::unique_ptr<test::ScopedEnvironment> world_;
    outputtest::CapturedStream events_;
    outputtest::LogLines log_;
    std::string queue_;
};

TEST_F(WMIConnectionManagerTest, StanzasShareAConnectionPerNamespaceAndNotificationsHaveTheirOwn) {
    const char* creations =
        "SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA "
        "'Win32_Process'";
    run({entry("root\\cimv2", "SELECT * FROM Win32_Memory"), entry("root\\cimv2", creations, true),
         entry("root\\cimv2", "SELECT Caption FROM Win32_Memory"),
         entry("root\\cimv2", creations, true)},
        [&] { return connects() == 3 && events() == 2; });
    EXPECT_EQ(connects(), 3u);
    EXPECT_EQ(events(), 2u);
    // The two data queries wait an hour for their next run; the notifications stay queried.
    EXPECT_EQ(queue_.rfind("PrioQ:\n", 0), 0u) << queue_;
    // Not due: two blanks between number and state.
    EXPECT_NE(queue_.find("    CONNECTED    root\\cimv2: SELECT Caption FROM Win32_Memory\n"),
              std::string::npos)
        << queue_;
    EXPECT_EQ(std::count(queue_.begin(), queue_.end(), '\n'), 5) << queue_;
    size_t queried = 0;
    for (size_t at = queue_.find(" QUERIED      "); at != std::string::npos;
         at = queue_.find(" QUERIED      ", at + 1)) {
        ++queried;
    }
    EXPECT_EQ(queried, 2u) << queue_;
}

TEST_F(WMIConnectionManagerTest, AStopEndsARunWhoseConnectIsStillPending) {
    run({entry("\\\\slow\\root\\cimv2", "SELECT * FROM Win32_Memory")}, [] { return true; });
    // The run ends without an answer from the slow server; nothing was written.
    EXPECT_EQ(events(), 0u);
}

}  // namespace
}  // namespace morvax
