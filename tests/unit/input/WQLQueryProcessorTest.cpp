#include "input/WQLQueryProcessor.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "input/ResultProcessing.h"
#include "input/WMIDataOutputter.h"
#include "input/WQLQueryProcessorFactory.h"
#include "unit/input/OutputTestSupport.h"
#include "util/base/BaseException.h"
#include "wmi/Wmi.h"

namespace morvax {
namespace {

using outputtest::CapturedStream;
using outputtest::FakeClassObject;
using outputtest::FixedClock;
using outputtest::localTimeLine;
using outputtest::utcTime;
using outputtest::UtcTimeZone;
using outputtest::w;
using wmi::Variant;

const std::string MARKER = "\n---morvax-wmi-end-of-event---\n";

WMIQueryEntry wqlEntry(const char* ns, const char* name, const char* hostname = "") {
    WMIQueryEntry entry;
    entry.type = WMIQueryEntry::TYPE_WQL;
    entry.namespace_ = ns;
    entry.parameter = "SELECT * FROM Win32_PerfFormattedData_PerfOS_Memory";
    entry.intervalMilliseconds = 10000;
    entry.name = name;
    entry.hostname = hostname;
    entry.index = "default";
    return entry;
}

// Runs `records` through a processor of `entry` and returns the bytes it wrote.
class Harness {
  public:
    explicit Harness(const WMIQueryEntry& entry) : processor(entry) {
        shared.setStream(stream.file());
        processor.setOutputter(&shared);
    }
    std::string write(ResultBatch records) {
        processor.writeData(records.begin(), records.end());
        return stream.text();
    }

    CapturedStream stream;
    WMIDataOutputter shared;
    WQLQueryProcessor processor;
};

std::string header(const std::string& index, const std::string& name, const std::string& time) {
    return "***MORVAX*** index=" + index + " source=\"WMI:" + name + "\" sourcetype=\"WMI:" + name +
           "\"\n" + MARKER + time + "\n";
}

TEST(WQLQueryProcessorTest, WritesTheMemoryExampleByteForByte) {
    UtcTimeZone utc;
    const Timeval when = utcTime(2026, 11, 14, 10, 25, 30, 1234567);
    FixedClock clock(when);
    const std::string timeLine = localTimeLine(when);
    if (utc.active()) {
        EXPECT_EQ(timeLine, "20261114102530.123456");
    }

    // The record as the result of the query makes it.
    FakeClassObject object;
    object.add("AvailableBytes", Variant::fromUInt(wmi::VT_UI4, 1048576))
        .add("Caption", Variant::fromString(u"Memory"))
        .add("Comment", Variant::null());
    Harness harness(wqlEntry("\\\\host2\\root\\cimv2", "Memory"));
    EventRecord record;
    extractRecord(harness.processor, record, object);

    EXPECT_EQ(harness.write({record}),
              "***MORVAX*** index=default source=\"WMI:Memory\" "
              "sourcetype=\"WMI:Memory\"\n"
              "\n"
              "---morvax-wmi-end-of-event---\n" +
                  timeLine +
                  "\n"
                  "AvailableBytes=1048576\n"
                  "Caption=Memory\n"
                  "Comment=NULL\n"
                  "ComputerName=host2\n"
                  "wmi_type=Memory\n"
                  "\n"
                  "---morvax-wmi-end-of-event---\n");
    // The shared outputter is left as it was found, but for header and footer.
    EXPECT_TRUE(harness.shared.fixedProperties().empty());
}

TEST(WQLQueryProcessorTest, TimeLineFollowsTheClockForEveryEvent) {
    FixedClock clock(utcTime(2026, 3, 1, 23, 59, 58, 9999999));
    Harness harness(wqlEntry("root\\cimv2", "T"));
    std::string expected;
    for (const Timeval t :
         {utcTime(2026, 3, 1, 23, 59, 58, 9999999), utcTime(2026, 3, 1, 23, 59, 58, 10),
          utcTime(2026, 3, 1, 23, 59, 59, 5000000), utcTime(2026, 3, 2, 0, 0, 0, 0),
          utcTime(2026, 3, 1, 23, 59, 59, 1)}) {
        clock.set(t);
        ResultBatch one{EventRecord{{u"A", u"1"}}};
        harness.processor.writeData(one.begin(), one.end());
        expected += header("default", "T", localTimeLine(t)) + "A=1\nwmi_type=T\n" + MARKER;
    }
    EXPECT_EQ(harness.stream.text(), expected);
}

TEST(WQLQueryProcessorTest, HostRules) {
    FixedClock clock(utcTime(2026, 1, 2, 3, 4, 5, 0));
    const std::string head = header("default", "Q", localTimeLine(utcTime(2026, 1, 2, 3, 4, 5, 0)));
    const EventRecord withHost{{u"ComputerName", u"DATAHOST"}, {u"Z", u"z"}};
    const EventRecord withoutHost{{u"Z", u"z"}};

    // An explicit hostname adds wmi_hostname and leaves the data's ComputerName in its place.
    {
        Harness h(wqlEntry("\\\\host2\\root\\cimv2", "Q", "stanza-host"));
        EXPECT_TRUE(h.processor.hostnameIsExplicit());
        EXPECT_EQ(h.write({withHost, withoutHost}),
                  head + "ComputerName=DATAHOST\nZ=z\nwmi_hostname=stanza-host\nwmi_type=Q\n" +
                      MARKER + head + "Z=z\nwmi_hostname=stanza-host\nwmi_type=Q\n" + MARKER);
    }
    // A remote namespace gives ComputerName only where the data has none.
    {
        Harness h(wqlEntry("\\\\host2\\root\\cimv2", "Q"));
        EXPECT_EQ(h.processor.hostname(), "host2");
        EXPECT_FALSE(h.processor.hostnameIsExplicit());
        EXPECT_EQ(h.write({withHost, withoutHost}),
                  head + "ComputerName=DATAHOST\nZ=z\nwmi_type=Q\n" + MARKER + head +
                      "Z=z\nComputerName=host2\nwmi_type=Q\n" + MARKER);
    }
    // A local query without ComputerName in its results has no host line.
    {
        Harness h(wqlEntry("\\\\localhost\\root\\cimv2", "Q"));
        EXPECT_EQ(h.processor.hostname(), "");
        EXPECT_EQ(h.write({withoutHost}), head + "Z=z\nwmi_type=Q\n" + MARKER);
    }
}

TEST(WQLQueryProcessorTest, EmptyNameIsUnspecifiedAndEmptyBatchWritesNothing) {
    FixedClock clock(utcTime(2026, 1, 2, 3, 4, 5, 0));
    WMIQueryEntry entry = wqlEntry("root\\cimv2", "");
    entry.index = "";
    Harness h(entry);
    EXPECT_EQ(h.write({}), "");
    EXPECT_EQ(h.write({EventRecord()}),
              header("", "unspecified", localTimeLine(utcTime(2026, 1, 2, 3, 4, 5, 0))) +
                  "wmi_type=unspecified\n" + MARKER);
}

TEST(WQLQueryProcessorTest, TakesItsSettingsFromTheEntry) {
    WMIQueryEntry entry = wqlEntry("", "Procs");
    entry.notification = true;
    entry.outputMode = 1;
    WQLQueryProcessor processor(entry);
    EXPECT_EQ(processor.getWql(), "SELECT * FROM Win32_PerfFormattedData_PerfOS_Memory");
    EXPECT_EQ(processor.describe(), ".: SELECT * FROM Win32_PerfFormattedData_PerfOS_Memory");
    EXPECT_TRUE(processor.isNotification());
    EXPECT_EQ(processor.outputMode(), 1u);
    EXPECT_EQ(processor.typeName(), u"Procs");
    EXPECT_EQ(processor.index(), u"default");

    WQLQueryProcessor polled(wqlEntry("\\\\h\\root\\cimv2", "Procs"));
    EXPECT_EQ(polled.describe(),
              "\\\\h\\root\\cimv2: SELECT * FROM Win32_PerfFormattedData_PerfOS_Memory");
    EXPECT_FALSE(polled.isNotification());
    EXPECT_EQ(polled.outputMode(), 2u);
}

TEST(WQLQueryProcessorTest, RefusesEntriesThatAreNoWqlQuery) {
    WMIQueryEntry eventLog = wqlEntry("", "x");
    eventLog.type = WMIQueryEntry::TYPE_EVENT_LOG;
    WMIQueryEntry noText = wqlEntry("", "x");
    noText.parameter = "";
    for (const WMIQueryEntry* entry :
         {static_cast<const WMIQueryEntry*>(nullptr), static_cast<const WMIQueryEntry*>(&eventLog),
          static_cast<const WMIQueryEntry*>(&noText)}) {
        try {
            WQLQueryProcessor processor(entry);
            ADD_FAILURE() << "accepted";
        } catch (const BaseException& e) {
            EXPECT_STREQ(e.what(),
                         "Incorrect parameters given when creating a WQLQueryProcessor object");
        }
    }
    WQLQueryProcessorFactory factory;
    EXPECT_THROW(factory.create(noText), BaseException);
    std::unique_ptr<WMIQueryProcessor> made = factory.create(wqlEntry("", "x"));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->getWql(), "SELECT * FROM Win32_PerfFormattedData_PerfOS_Memory");
}

}  // namespace
}  // namespace morvax
