#include "input/EventLogQueryProcessor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "conf/InstallationInfo.h"
#include "input/CheckpointPath.h"
#include "input/DefaultWMIDataOutputter.h"
#include "input/WMICheckpointer.h"
#include "input/WMIConnection.h"
#include "support/Environment.h"
#include "support/WaitUntil.h"
#include "unit/input/CheckpointPathTestSupport.h"
#include "unit/input/OutputTestSupport.h"
#include "util/base/BaseException.h"
#include "wmi/WmiProvider.h"

namespace morvax {
namespace {

const std::string T1 = "20261114102530.000000-000";
const std::string Q =
    "SELECT Category, CategoryString, ComputerName, EventCode, EventIdentifier, EventType, "
    "Logfile, Message, RecordNumber, SourceName, TimeGenerated, TimeWritten, Type, User FROM "
    "Win32_NTLogEvent WHERE Logfile = \"Application\"";
const std::string P =
    "SELECT TimeWritten FROM Win32_NTLogEvent WHERE Logfile = \"Application\" AND RecordNumber = 1";

// The simulated provider, as the processor meets it, noting every text it is sent.
class RecordingServices : public wmi::Services {
  public:
    explicit RecordingServices(std::shared_ptr<wmi::Services> inner) : inner_(std::move(inner)) {}
    wmi::HRESULT execQuery(const std::u16string& wql,
                           std::unique_ptr<wmi::Enumerator>& out) override {
        sent.push_back(Str::fromWide(wql).toStdString());
        return inner_->execQuery(wql, out);
    }
    wmi::HRESULT execNotificationQuery(const std::u16string& wql,
                                       std::unique_ptr<wmi::Enumerator>& out) override {
        sent.push_back("notification: " + Str::fromWide(wql).toStdString());
        return inner_->execNotificationQuery(wql, out);
    }
    std::vector<std::string> sent;

  private:
    std::shared_ptr<wmi::Services> inner_;
};

// A world with one log "Application" in the given order, its records in a file that the test
// appends to or rewrites (a clear).
class EventLogQueryProcessorTest : public ::testing::Test {
  protected:
    void start(const char* order, const char* faults = "") {
        world_ = db_.root() / "world";
        std::filesystem::create_directories(world_ / "eventlogs");
        std::ofstream(world_ / "world.json")
            << "{\"hosts\": {\".\": {\"namespaces\": {\"root\\\\cimv2\": {}}, \"eventlogs\": "
               "{\"Application\": {\"order\": \""
            << order << "\"}}" << faults << "}}}";
        std::ofstream(world_ / "eventlogs" / "Application.jsonl").close();
        simWorld_ =
            std::make_unique<test::ScopedEnvironment>("MORVAX_WMI_SIM", world_.string().c_str());
        ASSERT_TRUE(getMorvaxWmiCheckpointPath(checkpointPath_, "wmi"));
        ASSERT_TRUE(checkpointer_.init(3600000, checkpointPath_));
        DefaultWMIDataOutputter::instance().setStream(events_.file());
        connect();
    }
    void TearDown() override { DefaultWMIDataOutputter::instance().setStream(stdout); }

    // A new connection, as after a failure or a restart.
    void connect() {
        std::unique_ptr<wmi::Locator> locator;
        ASSERT_EQ(wmi::WmiProvider::createLocator(wmi::WmiProvider::SIM, locator), 0);
        std::shared_ptr<wmi::Services> services;
        ASSERT_EQ(locator->connectServer(u"\\\\.\\root\\cimv2", services), 0);
        services_ = std::make_shared<RecordingServices>(services);
        connection_ = std::make_unique<WMIConnection>("\\\\.\\root\\cimv2");
        connection_->connectionDone(services_, 0);
    }

    // Records `first` to `last` (counting down when first > last), TimeWritten of record 1 is
    // `time1`; appended to the file, or replacing it.
    void writeRecords(uint32_t first, uint32_t last, bool append = true,
                      const std::string& time1 = T1) {
        std::ofstream file(world_ / "eventlogs" / "Application.jsonl",
                           append ? std::ios::app : std::ios::trunc);
        for (uint32_t n = first;; n = first < last ? n + 1 : n - 1) {
            const std::string time = n == 1 ? time1 : "20261114" + std::to_string(110000 + n % 60);
            file << "{\"RecordNumber\": " << n << ", \"TimeWritten\": \"" << time
                 << (n == 1 ? "" : ".000000-000")
                 << "\", \"ComputerName\": \"localhost\", \"Message\": \"record " << n << "\"}\n";
            if (n == last) {
                break;
            }
        }
    }

    std::unique_ptr<EventLogQueryProcessor> processor(bool notification = false) {
        WMIQueryEntry entry;
        entry.type = WMIQueryEntry::TYPE_EVENT_LOG;
        entry.namespace_ = "\\\\.\\root\\cimv2";
        entry.parameter = "Application";
        entry.name = "Application";
        entry.notification = notification;
        return std::make_unique<EventLogQueryProcessor>(&entry, &checkpointer_);
    }

    // One poll: the text the processor gives, run to the end of its results. Returns the
    // record numbers written by it.
    std::vector<uint32_t> poll(EventLogQueryProcessor& p) {
        const size_t before = events_.text().size();
        EXPECT_EQ(connection_->executeQuery(p), 0);
        int read = 0;
        EXPECT_TRUE(test::waitUntil([&] { return (read = connection_->readResults(p)) != 0; }));
        lastRead_ = read;
        std::vector<uint32_t> numbers;
        const std::string text = events_.text().substr(before);
        for (size_t at = text.find("\nRecordNumber="); at != std::string::npos;
             at = text.find("\nRecordNumber=", at + 1)) {
            numbers.push_back(static_cast<uint32_t>(std::stoul(text.substr(at + 14))));
        }
        return numbers;
    }

    static std::vector<uint32_t> range(uint32_t from, uint32_t to) {
        std::vector<uint32_t> out;
        for (uint32_t n = from;; n = from < to ? n + 1 : n - 1) {
            out.push_back(n);
            if (n == to) {
                return out;
            }
        }
    }

    std::string stored(EventLogQueryProcessor& p) {
        Str value;
        checkpointer_.get(p.getCheckpointKey(), value);
        return value.toStdString();
    }

    static void expectState(const EventLogQueryProcessor& p, uint32_t mode, uint32_t chk,
                            uint32_t low, uint32_t hi) {
        const EventLogCheckpoint& c = p.checkpoint();
        EXPECT_EQ(c.mode(), mode);
        EXPECT_EQ(c.chk(), chk);
        EXPECT_EQ(c.low(), low);
        EXPECT_EQ(c.hi(), hi);
    }

    cmdlinetest::ScopedDatabaseDirectory db_;
    test::ScopedEnvironment provider_{"MORVAX_WMI_PROVIDER", "sim"};
    std::unique_ptr<test::ScopedEnvironment> simWorld_;
    std::filesystem::path world_;
    Pathname checkpointPath_;
    WMICheckpointer checkpointer_;
    outputtest::CapturedStream events_;
    std::shared_ptr<RecordingServices> services_;
    std::unique_ptr<WMIConnection> connection_;
    int lastRead_ = 0;
};

constexpr uint32_t NONE = EventLogCheckpoint::kNone;
constexpr uint32_t U = EventLogCheckpoint::MODE_UNKNOWN;
constexpr uint32_t A = EventLogCheckpoint::MODE_ASCENDING;
constexpr uint32_t D = EventLogCheckpoint::MODE_DESCENDING;

TEST_F(EventLogQueryProcessorTest, NewestFirstLogIsReadInDescendingPasses) {
    start("descending");
    writeRecords(1, 500);
    auto p = processor();
    EXPECT_TRUE(poll(*p).empty());
    expectState(*p, U, NONE, 0, NONE);
    EXPECT_EQ(p->checkpoint().time().toStdString(), T1);

    EXPECT_EQ(poll(*p), range(500, 1));
    expectState(*p, D, 1, 0, 500);
    EXPECT_EQ(stored(*p), "D 1 0 500 " + T1);

    EXPECT_TRUE(poll(*p).empty());
    expectState(*p, D, NONE, 500, NONE);
    EXPECT_TRUE(poll(*p).empty());
    EXPECT_EQ(p->probeState(), EventLogQueryProcessor::PROBE_DUE);
    EXPECT_TRUE(poll(*p).empty());
    writeRecords(501, 503);
    EXPECT_EQ(poll(*p), range(503, 501));
    expectState(*p, D, 501, 500, 503);
    EXPECT_TRUE(poll(*p).empty());
    expectState(*p, D, NONE, 503, NONE);

    EXPECT_EQ(services_->sent, (std::vector<std::string>{
                                   P, Q, Q + " AND RecordNumber > 0 AND RecordNumber < 1",
                                   Q + " AND RecordNumber > 500", P, Q + " AND RecordNumber > 500",
                                   Q + " AND RecordNumber > 500 AND RecordNumber < 501"}));

    // A clean stop writes the newest checkpoint; the pass closed in memory is not stored.
    p.reset();
    std::ifstream file(checkpointPath_.toStr().c_str());
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(line, "\\\\.\\root\\cimv2|" + std::string("22c75216") + "=D 501 500 503 " + T1);
}

TEST_F(EventLogQueryProcessorTest, OldestFirstLogAndARestartAfterTheFirstRecord) {
    // The connection breaks after one object of every enumeration.
    start("ascending",
          ", \"faults\": {\"next_after\": {\"count\": 1, \"hresult\": \"0x800706BE\"}}");
    writeRecords(1, 500);
    auto p = processor();
    poll(*p);
    EXPECT_EQ(poll(*p), range(1, 1));
    EXPECT_LT(lastRead_, 0);
    EXPECT_EQ(stored(*p), "O 1 0 2 " + T1);

    // The next start reads the stored text and asks for everything but the record it has.
    p = processor();
    connect();
    poll(*p);
    EXPECT_EQ(poll(*p), range(2, 2));
    EXPECT_EQ(stored(*p), "A 2 0 2 " + T1);
    EXPECT_EQ(services_->sent, (std::vector<std::string>{P, Q + " AND RecordNumber != 1"}));
}

TEST_F(EventLogQueryProcessorTest, OldestFirstLogWholeAndAClear) {
    start("ascending");
    writeRecords(1, 500);
    auto p = processor();
    poll(*p);
    EXPECT_EQ(poll(*p), range(1, 500));
    expectState(*p, A, 500, 0, 2);
    EXPECT_TRUE(poll(*p).empty());

    // Cleared: record 1 has another time now.
    writeRecords(1, 3, false, "20261115080000.000000-000");
    outputtest::LogLines logs;
    EXPECT_TRUE(poll(*p).empty());
    EXPECT_EQ(
        logs.of("WMI"),
        std::vector<std::string>{
            "WMI WARN The event log file seems to have been reset (cleared) (: Application)"});
    EXPECT_EQ(poll(*p), range(1, 3));
    EXPECT_EQ(stored(*p), "A 3 0 0 20261115080000.000000-000");
    EXPECT_EQ(services_->sent, (std::vector<std::string>{P, Q, Q + " AND RecordNumber > 500", P,
                                                         Q + " AND RecordNumber > 0"}));
}

TEST_F(EventLogQueryProcessorTest, DescendingClearAndARestartInThePass) {
    start("descending");
    writeRecords(1, 500);
    ASSERT_TRUE(checkpointer_.put(processor()->getCheckpointKey(), Str("D 210 0 500 " + T1)));
    auto p = processor();
    EXPECT_TRUE(poll(*p).empty());
    EXPECT_EQ(poll(*p), range(209, 1));
    EXPECT_TRUE(poll(*p).empty());
    expectState(*p, D, NONE, 500, NONE);
    EXPECT_TRUE(poll(*p).empty());

    writeRecords(1, 3, false, "20261115080000.000000-000");
    EXPECT_TRUE(poll(*p).empty());
    expectState(*p, D, 0, 0, 0);
    EXPECT_TRUE(p->checkpoint().time().empty());
    EXPECT_TRUE(poll(*p).empty());
    EXPECT_EQ(poll(*p), range(3, 1));
    EXPECT_EQ(stored(*p), "D 1 0 3 20261115080000.000000-000");
    EXPECT_EQ(
        services_->sent,
        (std::vector<std::string>{
            P, Q + " AND RecordNumber > 0 AND RecordNumber < 210",
            Q + " AND RecordNumber > 0 AND RecordNumber < 1", Q + " AND RecordNumber > 500", P,
            Q + " AND RecordNumber > 0 AND RecordNumber < 0", Q + " AND RecordNumber > 0"}));
}

TEST_F(EventLogQueryProcessorTest, EventsCarryTheRecordsTimeAndTheNormalisedHost) {
    start("ascending");
    std::ofstream(world_ / "eventlogs" / "Application.jsonl")
        << "{\"RecordNumber\": 1, \"TimeWritten\": \"" << T1
        << "\", \"ComputerName\": \"LOCALHOST\", \"Message\": \"one\", \"User\": null}\n"
           "{\"RecordNumber\": 2, \"TimeWritten\": \"bad\", \"ComputerName\": \"far\", "
           "\"Message\": \"two\"}\n"
           // Minutes and offsets of their own: the time line is the local time of each.
           "{\"RecordNumber\": 3, \"TimeWritten\": \"20261114102559.000000+060\", "
           "\"ComputerName\": \"x\\n---morvax-wmi-end-of-event---\\n***MORVAX*** y\"}\n"
           "{\"RecordNumber\": 4, \"TimeWritten\": \"20261114102600.999999+060\"}\n"
           "{\"RecordNumber\": 5, \"TimeWritten\": \"20261114102601.000000-330\"}\n"
           "{\"RecordNumber\": 6, \"TimeWritten\": \"20261114102659.000000+060\"}\n";
    auto p = processor();
    poll(*p);
    EXPECT_EQ(poll(*p), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
    const std::string text = events_.text();
    const std::string first = text.substr(0, text.find("***MORVAX***", 1));
    const std::string expectedBody =
        "Category=NULL\nCategoryString=NULL\nEventCode=NULL\nEventIdentifier=NULL\n"
        "EventType=NULL\nLogfile=Application\nRecordNumber=1\nSourceName=NULL\n"
        "TimeGenerated=NULL\nTimeWritten=" +
        T1 + "\nType=NULL\nUser=NULL\nComputerName=" +
        Str::fromWide(InstallationInfo::instance().serverName()).toStdString() +
        "\nOriginalComputerName=LOCALHOST\nwmi_type=Application\nMessage=one\n";
    const std::string timeLine = outputtest::localTimeLine(test::utcTime(2026, 11, 14, 10, 25, 30));
    EXPECT_EQ(first,
              "***MORVAX*** index= source=\"WMI:Application\" sourcetype=\"WMI:Application\""
              "\n\n---morvax-wmi-end-of-event---\n" +
                  timeLine + "\n" + expectedBody + "\n---morvax-wmi-end-of-event---\n");
    // A host of its own stays as it is, with nothing original beside it.
    EXPECT_NE(text.find("ComputerName=far\nwmi_type=Application\nMessage=two\n"),
              std::string::npos);
    EXPECT_EQ(text.find("OriginalComputerName=far"), std::string::npos);
    // A host that would forge an event is left out, whatever host came before it.
    const size_t third = text.find("\nRecordNumber=3\n");
    ASSERT_NE(third, std::string::npos);
    EXPECT_EQ(text.substr(third, text.find("***MORVAX***", third) - third).find("ComputerName="),
              std::string::npos);
    for (const auto& [number, time] : {std::pair{3, test::utcTime(2026, 11, 14, 9, 25, 59)},
                                       {4, test::utcTime(2026, 11, 14, 9, 26, 0)},
                                       {5, test::utcTime(2026, 11, 14, 15, 56, 1)},
                                       {6, test::utcTime(2026, 11, 14, 9, 26, 59)}}) {
        const size_t at = text.find("\nRecordNumber=" + std::to_string(number) + "\n");
        ASSERT_NE(at, std::string::npos);
        const size_t line = text.rfind("---morvax-wmi-end-of-event---\n", at) + 30;
        EXPECT_EQ(text.substr(line, 21), outputtest::localTimeLine(time)) << number;
    }

    // Records the processor cannot place are skipped and move nothing.
    ResultBatch odd(2);
    odd[0][u"TimeWritten"] = outputtest::w(T1);
    odd[0][u"RecordNumber"] = u"x7";
    odd[0][u"Message"] = u"bad number";
    odd[1][u"TimeWritten"] = outputtest::w(T1);
    odd[1][u"Message"] = u"no number";
    p->writeData(odd.begin(), odd.end());
    EXPECT_EQ(events_.text(), text);
    EXPECT_EQ(stored(*p), "A 6 0 2 " + T1);
}

TEST_F(EventLogQueryProcessorTest, NotificationFormSendsOneTextAndStoresNothing) {
    start("descending");
    writeRecords(1, 2);
    auto p = processor(true);
    EXPECT_EQ(p->getWql().toStdString(),
              "SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA "
              "\"Win32_NTLogEvent\" AND TargetInstance.Logfile = \"Application\"");
    ASSERT_EQ(connection_->executeQuery(*p), 0);
    writeRecords(3, 3);
    EXPECT_TRUE(test::waitUntil([&] {
        connection_->readResults(*p);
        return events_.text().find("RecordNumber=3") != std::string::npos;
    }));
    EXPECT_EQ(services_->sent.size(), 1u);
    EXPECT_EQ(services_->sent[0], "notification: " + p->getWql().toStdString());
    const std::string text = events_.text();
    EXPECT_EQ(text.find("EventClass="), std::string::npos);
    EXPECT_EQ(text.find("InsertionStrings="), std::string::npos);
    p.reset();
    Str value;
    checkpointer_.get(processor()->getCheckpointKey(), value);
    EXPECT_TRUE(value.empty());
}

TEST_F(EventLogQueryProcessorTest, RefusesEntriesItCannotServe) {
    start("descending");
    WMIQueryEntry entry;
    entry.type = WMIQueryEntry::TYPE_EVENT_LOG;
    EXPECT_THROW(EventLogQueryProcessor(&entry, &checkpointer_), BaseException);
    entry.parameter = "System";
    EXPECT_THROW(EventLogQueryProcessor(&entry, nullptr), BaseException);
    EXPECT_THROW(EventLogQueryProcessor(nullptr, &checkpointer_), BaseException);
    entry.type = WMIQueryEntry::TYPE_WQL;
    EXPECT_THROW(EventLogQueryProcessor(&entry, &checkpointer_), BaseException);
}

TEST_F(EventLogQueryProcessorTest, AnUnreadableStoredValueLeavesTheQueryEmptyUntilFixed) {
    start("descending");
    ASSERT_TRUE(checkpointer_.put(processor()->getCheckpointKey(), Str("X 1 2 3")));
    auto p = processor();
    outputtest::LogLines logs;
    EXPECT_TRUE(p->getWql().empty());
    EXPECT_TRUE(p->getWql().empty());
    const std::string error =
        "WMI ERROR Error setting checkpoint value.  This may be a bug.  Please report it. "
        "(: Application)";
    const std::vector<std::string> lines = logs.of("WMI");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), error), 2);
    ASSERT_TRUE(checkpointer_.put(p->getCheckpointKey(), Str("A 7 0 0")));
    EXPECT_EQ(p->getWql().toStdString(), P);
    EXPECT_EQ(p->getWql().toStdString(), Q + " AND RecordNumber > 7");
}

TEST_F(EventLogQueryProcessorTest, ALogWithoutRecordOneNeverShowsAClear) {
    start("descending");
    writeRecords(2, 5);
    auto p = processor();
    EXPECT_TRUE(poll(*p).empty());
    EXPECT_EQ(poll(*p), range(5, 2));
    EXPECT_EQ(stored(*p), "D 2 0 5");
    EXPECT_TRUE(poll(*p).empty());
    EXPECT_TRUE(poll(*p).empty());
    EXPECT_TRUE(poll(*p).empty());
    writeRecords(6, 6);
    EXPECT_EQ(poll(*p), range(6, 6));

    // A restart in the middle of a pass: the empty probe closes the pass, and what was left of
    // it is skipped, as an overwritten log would have lost it anyway.
    ASSERT_TRUE(checkpointer_.put(p->getCheckpointKey(), Str("D 4 0 6")));
    p = processor();
    services_->sent.clear();
    EXPECT_TRUE(poll(*p).empty());
    EXPECT_TRUE(poll(*p).empty());
    EXPECT_EQ(services_->sent, (std::vector<std::string>{P, Q + " AND RecordNumber > 6"}));
}

}  // namespace
}  // namespace morvax
