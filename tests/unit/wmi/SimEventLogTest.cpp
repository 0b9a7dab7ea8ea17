#include <gtest/gtest.h>

#include "unit/wmi/SimTestSupport.h"
#include "wmi/sim/SimLocator.h"

namespace morvax::wmi {
namespace {

using namespace simtest;

const char* kSelect =
    "SELECT Category, CategoryString, ComputerName, EventCode, EventIdentifier, EventType, "
    "Logfile, Message, RecordNumber, SourceName, TimeGenerated, TimeWritten, Type, User FROM "
    "Win32_NTLogEvent";

class SimEventLogTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(locator_.connectServer(u("root\\cimv2"), services_), WBEM_S_NO_ERROR);
    }

    std::vector<std::string> numbers(const std::string& where) {
        Objects objects;
        EXPECT_EQ(runQuery(*services_, std::string(kSelect) + " WHERE " + where, objects),
                  WBEM_S_FALSE)
            << where;
        std::vector<std::string> out;
        for (auto& object : objects) {
            out.push_back(text(*object, "RecordNumber"));
        }
        return out;
    }

    std::filesystem::path application() const {
        return world_.path() / "eventlogs" / "Application.jsonl";
    }

    TempWorld world_{"basic"};
    SimLocator locator_{world_.path()};
    std::shared_ptr<Services> services_;
};

using Numbers = std::vector<std::string>;

TEST_F(SimEventLogTest, RecordsComeInTheLogsOrderWhateverWhereSays) {
    EXPECT_EQ(numbers("Logfile = 'Application'"), (Numbers{"3", "2", "1"}));
    EXPECT_EQ(numbers("Logfile = \"application\" AND RecordNumber < 3"), (Numbers{"2", "1"}));
    EXPECT_EQ(numbers("Logfile = 'System'"), (Numbers{"1", "2", "3", "4", "5"}));
    EXPECT_EQ(numbers("Logfile = 'System' AND RecordNumber > 2 AND RecordNumber < 5"),
              (Numbers{"3", "4"}));
    EXPECT_EQ(numbers("RecordNumber > 0 AND RecordNumber < 0"), Numbers{});
    EXPECT_EQ(numbers("RecordNumber = 1 OR RecordNumber = 5"), (Numbers{"1", "1", "5"}));
    EXPECT_EQ(numbers("Logfile = 'NoSuchLog'"), Numbers{});
}

TEST_F(SimEventLogTest, RecordsHaveTheWindowsSchema) {
    Objects objects;
    ASSERT_EQ(runQuery(*services_,
                       "SELECT * FROM Win32_NTLogEvent WHERE RecordNumber = 1 AND "
                       "Logfile = 'Application'",
                       objects),
              WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    ClassObject& record = *objects[0];
    EXPECT_EQ(names(record),
              (std::vector<std::string>{
                  "Category", "CategoryString", "ComputerName", "Data", "EventCode",
                  "EventIdentifier", "EventType", "InsertionStrings", "Logfile", "Message",
                  "RecordNumber", "SourceName", "TimeGenerated", "TimeWritten", "Type", "User"}));
    EXPECT_EQ(text(record, "Logfile"), "Application");
    EXPECT_EQ(get(record, "EventCode").vt, VT_I4);
    EXPECT_EQ(get(record, "Data").vt, VT_ARRAY | VT_UI1);
    EXPECT_EQ(get(record, "InsertionStrings").array.size(), 2u);
    EXPECT_EQ(get(record, "User").vt, VT_NULL);
    EXPECT_EQ(text(record, "TimeWritten"), "20240301100000.000000-000");

    // Generated records of an ascending log.
    ASSERT_EQ(runQuery(*services_, "SELECT * FROM Win32_NTLogEvent WHERE Logfile = 'System'",
                       objects = {}),
              WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 5u);
    EXPECT_EQ(text(*objects[1], "TimeWritten"), "20240101000001.000000-000");
    EXPECT_EQ(text(*objects[1], "Message"), "Synthetic event 2 of System");
    EXPECT_EQ(text(*objects[1], "ComputerName"), "localhost");
}

TEST_F(SimEventLogTest, AppendedLinesBecomeRecordsAndARewriteClearsTheLog) {
    // A line without its LF is not a record yet.
    appendText(application(), "{\"Message\": \"fourth\", \"EventCode\": 400}");
    EXPECT_EQ(numbers("Logfile = 'Application'"), (Numbers{"3", "2", "1"}));
    appendText(application(), "\n{\"Message\": \"fifth\"}\r\n\n");
    EXPECT_EQ(numbers("Logfile = 'Application'"), (Numbers{"5", "4", "3", "2", "1"}));

    rewriteFile(application(), "{\"RecordNumber\": 1, \"Message\": \"after clear\"}\n");
    Objects objects;
    ASSERT_EQ(runQuery(*services_, "SELECT * FROM Win32_NTLogEvent WHERE Logfile = 'Application'",
                       objects),
              WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(text(*objects[0], "Message"), "after clear");

    std::filesystem::remove(application());
    EXPECT_EQ(numbers("Logfile = 'Application'"), Numbers{});
}

TEST_F(SimEventLogTest, BadLinesAreReportedWithFileAndLineAndSkipped) {
    LogCapture log;
    appendText(application(), "{\"Message\": \"ok\"}\n{not json\n[1, 2]\n{\"EventCode\": \"x\"}\n");
    EXPECT_EQ(numbers("Logfile = 'Application'"), (Numbers{"5", "4", "3", "2", "1"}));
    EXPECT_TRUE(log.contains("Application.jsonl:5: ")) << ::testing::PrintToString(log.texts());
    EXPECT_TRUE(log.contains("Application.jsonl:6: "));
    EXPECT_TRUE(log.contains("Application.jsonl:7: property \"EventCode\""));
}

TEST_F(SimEventLogTest, AQueryKeepsTheRecordsItBeganWithThroughAppendsAndAClear) {
    std::unique_ptr<Enumerator> enumerator;
    ASSERT_EQ(services_->execQuery(u(std::string(kSelect) + " WHERE Logfile = 'Application'"),
                                   enumerator),
              WBEM_S_NO_ERROR);
    appendText(application(), "{\"Message\": \"later\"}\n");
    EXPECT_EQ(numbers("Logfile = 'Application'"), (Numbers{"4", "3", "2", "1"}));
    rewriteFile(application(), "{\"RecordNumber\": 1, \"Message\": \"after clear\"}\n");
    EXPECT_EQ(numbers("Logfile = 'Application'"), Numbers{"1"});

    Objects objects;
    EXPECT_EQ(enumerator->next(0, 100, objects), WBEM_S_FALSE);
    std::vector<std::string> messages;
    for (auto& object : objects) {
        messages.push_back(text(*object, "Message"));
    }
    EXPECT_EQ(messages, (std::vector<std::string>{"third", "second", "first"}));
}

TEST_F(SimEventLogTest, RecordsKeepTheirValues) {
    rewriteFile(
        application(),
        "{\"RecordNumber\": 4294967295, \"EventIdentifier\": 3221225477, \"Message\": "
        "\"caf\\u00e9 \\u65e5\\u672c \\ud83d\\ude00\", \"InsertionStrings\": [\"\\u00e9\", \"\"], "
        "\"Data\": [255, 0], \"Category\": 65535, \"User\": \"\"}\n");
    Objects objects;
    ASSERT_EQ(runQuery(*services_, "SELECT * FROM Win32_NTLogEvent WHERE Logfile = 'Application'",
                       objects),
              WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    ClassObject& record = *objects[0];
    EXPECT_EQ(text(record, "Message"), "caf\u00e9 \u65e5\u672c \U0001F600");
    EXPECT_EQ(get(record, "RecordNumber").i, -1);
    EXPECT_EQ(get(record, "EventIdentifier").i, -1073741819);
    EXPECT_EQ(text(record, "Category"), "65535");
    EXPECT_EQ(text(record, "User"), "");
    const Variant strings = get(record, "InsertionStrings");
    ASSERT_EQ(strings.array.size(), 2u);
    EXPECT_EQ(utf8(strings.array[0].str), "\u00e9");
    const Variant data = get(record, "Data");
    ASSERT_EQ(data.array.size(), 2u);
    EXPECT_EQ(data.array[0].u, 255u);
    EXPECT_EQ(data.array[0].vt, VT_UI1);
}

// Conditions on RecordNumber at the top of WHERE narrow the records searched; under NOT they
// do not. Both must find the same records in the same order, whether the numbers of the file
// ascend (with repeats and gaps) or not.
TEST_F(SimEventLogTest, NarrowingByRecordNumberChangesNoResult) {
    rewriteFile(application(),
                "{\"RecordNumber\": 4294967295}\n{\"RecordNumber\": 2, \"Message\": "
                "\"a\"}\n{\"RecordNumber\": 4, \"Message\": \"b\"}\n"
                "{\"RecordNumber\": 4, \"Message\": \"c\"}\n{\"Message\": \"d\"}\n"
                "{\"RecordNumber\": 9, \"Message\": \"e\"}\n");
    appendText(world_.path() / "eventlogs" / "System.jsonl",
               "{\"RecordNumber\": 9}\n{\"RecordNumber\": 3}\n{\"Message\": \"x\"}\n");
    const auto found = [&](const std::string& where) {
        Objects objects;
        EXPECT_EQ(runQuery(*services_, std::string(kSelect) + " WHERE " + where, objects),
                  WBEM_S_FALSE);
        std::vector<std::string> out;
        for (auto& object : objects) {
            out.push_back(text(*object, "Logfile") + "/" + text(*object, "RecordNumber") + "/" +
                          text(*object, "Message"));
        }
        return out;
    };
    int matched = 0;
    for (const std::string log : {"Application", "System"}) {
        for (const char* op : {"=", "<", "<=", ">", ">="}) {
            for (int n = 0; n <= 10; ++n) {
                const std::string condition =
                    "RecordNumber " + std::string(op) + " " + std::to_string(n);
                const auto narrowed = found("Logfile = '" + log + "' AND " + condition);
                EXPECT_EQ(narrowed, found("Logfile = '" + log + "' AND NOT NOT " + condition))
                    << log << ": " << condition;
                matched += static_cast<int>(narrowed.size());
            }
        }
    }
    EXPECT_GT(matched, 0);
    EXPECT_EQ(found("RecordNumber > 3 AND RecordNumber < 9"),
              (std::vector<std::string>{"Application/5/d", "Application/4/c", "Application/4/b",
                                        "System/4/Synthetic event 4 of System",
                                        "System/5/Synthetic event 5 of System", "System/4/x"}));
}

// A count of generated records beyond 32 bits is refused; numbering goes on in 32 bits.
TEST(SimEventLogLimitsTest, SyntheticCountsStayWithinRecordNumbers) {
    TempWorld world("basic");
    LogCapture log;
    rewriteFile(world.path() / "world.json",
                R"({"hosts": {".": {"namespaces": {"root\\cimv2": {"classes": {}}}, "eventlogs": {
                    "Application": {"synthetic": 9223372036854775807},
                    "System": {"synthetic": 4294967295}}}}})");
    std::filesystem::create_directories(world.path() / "eventlogs");
    appendText(world.path() / "eventlogs" / "System.jsonl", "{\"Message\": \"next\"}\n");
    SimLocator locator{world.path()};
    std::shared_ptr<Services> services;
    ASSERT_EQ(locator.connectServer(u("root\\cimv2"), services), WBEM_S_NO_ERROR);
    EXPECT_TRUE(log.contains("\"synthetic\" of an event log is at most 4294967295; left at 0"))
        << ::testing::PrintToString(log.texts());
    Objects objects;
    ASSERT_EQ(runQuery(*services,
                       "SELECT RecordNumber FROM Win32_NTLogEvent WHERE Logfile = 'Application' "
                       "AND RecordNumber > 0",
                       objects),
              WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 3u);
    objects.clear();
    ASSERT_EQ(runQuery(*services,
                       "SELECT Message, RecordNumber FROM Win32_NTLogEvent WHERE Logfile = "
                       "'System' AND RecordNumber = 0",
                       objects),
              WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(text(*objects[0], "Message"), "next");
}

}  // namespace
}  // namespace morvax::wmi
