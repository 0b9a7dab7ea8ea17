#include "input/ResultProcessing.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "input/ComErrorException.h"
#include "input/WMIException.h"
#include "unit/input/OutputTestSupport.h"

namespace morvax {
namespace {

using outputtest::FakeClassObject;
using outputtest::LogLines;
using outputtest::RecordingProcessor;
using outputtest::w;
using wmi::Variant;

std::map<std::string, std::string> narrow(const EventRecord& record) {
    std::map<std::string, std::string> out;
    for (const auto& [name, value] : record) {
        out[Str::fromWide(name).toStdString()] = Str::fromWide(value).toStdString();
    }
    return out;
}

std::map<std::string, std::string> extract(FakeClassObject& object, uint32_t outputMode = 2) {
    RecordingProcessor processor(outputMode);
    EventRecord record;
    extractRecord(processor, record, object);
    return narrow(record);
}

Variant stringArray() {
    Variant array;
    array.vt = wmi::VT_ARRAY | wmi::VT_BSTR;
    array.array.push_back(Variant::fromString(u"a"));
    return array;
}

TEST(ResultProcessingTest, EachVariantTypeHasItsText) {
    FakeClassObject object;
    object.add("I1", Variant::fromInt(wmi::VT_I1, -5))
        .add("I2", Variant::fromInt(wmi::VT_I2, -300))
        .add("I4", Variant::fromInt(wmi::VT_I4, INT32_MIN))
        .add("Int", Variant::fromInt(wmi::VT_INT, 42))
        .add("UI1", Variant::fromUInt(wmi::VT_UI1, 255))
        .add("UI2", Variant::fromUInt(wmi::VT_UI2, 65535))
        .add("UI4", Variant::fromUInt(wmi::VT_UI4, UINT32_MAX))
        .add("UInt", Variant::fromUInt(wmi::VT_UINT, 7))
        .add("I8", Variant::fromInt(wmi::VT_I8, INT64_MIN))
        .add("UI8", Variant::fromUInt(wmi::VT_UI8, UINT64_MAX))
        .add("True", Variant::fromBool(true))
        .add("False", Variant::fromBool(false))
        .add("Null", Variant::null())
        .add("Text", Variant::fromString(u"as it \u00e9 stands"))
        .add("EmptyText", Variant::fromString(u""))
        .add("R4", Variant::fromDouble(wmi::VT_R4, 1.5))
        .add("R8", Variant::fromDouble(wmi::VT_R8, 2.5))
        .add("Empty", Variant())
        .add("Object", Variant::fromObject(std::make_shared<FakeClassObject>()))
        .add("Strings", stringArray());
    Variant date;
    date.vt = wmi::VT_DATE;
    object.add("Date", date);
    // VARIANT_TRUE is -1: what the layer keeps as true.
    Variant minusOne;
    EXPECT_EQ(wmi::changeType(minusOne, Variant::fromInt(wmi::VT_I4, -1), wmi::VT_BOOL), 0);
    object.add("MinusOne", minusOne);

    EXPECT_EQ(extract(object), (std::map<std::string, std::string>{
                                   {"I1", "-5"},
                                   {"I2", "-300"},
                                   {"I4", "-2147483648"},
                                   {"Int", "42"},
                                   {"UI1", "255"},
                                   {"UI2", "65535"},
                                   {"UI4", "4294967295"},
                                   {"UInt", "7"},
                                   {"I8", "-9223372036854775808"},
                                   {"UI8", "18446744073709551615"},
                                   {"True", "True"},
                                   {"False", "False"},
                                   {"MinusOne", "True"},
                                   {"Null", "NULL"},
                                   {"Text", "as it \xc3\xa9 stands"},
                                   {"EmptyText", ""},
                                   {"R4", "<unknown variant result type 4>"},
                                   {"R8", "<unknown variant result type 5>"},
                                   {"Empty", "<unknown variant result type 0>"},
                                   {"Date", "<unknown variant result type 7>"},
                                   {"Object", "<unknown variant result type 13>"},
                                   {"Strings", "<unknown variant result type 8200>"},
                               }));
}

TEST(ResultProcessingTest, FailedGetLeavesTheValueEmpty) {
    FakeClassObject object;
    object.add("A", Variant::fromString(u"a"))
        .add("B", Variant::fromString(u"b"))
        .failGet("A", wmi::WBEM_E_FAILED);
    EXPECT_EQ(extract(object), (std::map<std::string, std::string>{{"A", ""}, {"B", "b"}}));
}

TEST(ResultProcessingTest, FailedConversionIsAComErrorNotAWMIException) {
    FakeClassObject object;
    // A 32-bit type holding what does not fit 32 bits cannot become VT_INT.
    object.add("Bad", Variant::fromInt(wmi::VT_I4, int64_t{1} << 40));
    RecordingProcessor processor;
    EventRecord record;
    bool sawComError = false;
    try {
        extractRecord(processor, record, object);
    } catch (const WMIException&) {
        ADD_FAILURE() << "a conversion failure must pass the result loop";
    } catch (const ComErrorException& e) {
        sawComError = true;
        EXPECT_EQ(e.code(), wmi::COM_DISP_E_OVERFLOW);
    }
    EXPECT_TRUE(sawComError);
}

TEST(ResultProcessingTest, FailedGetNamesThrowsWithTheProcessorsDescription) {
    LogLines log;
    FakeClassObject object;
    object.failNames(wmi::WBEM_E_FAILED);
    RecordingProcessor processor;
    EventRecord record;
    try {
        extractRecord(processor, record, object);
        ADD_FAILURE() << "no exception";
    } catch (const WMIException& e) {
        EXPECT_EQ(e.code(), wmi::WBEM_E_FAILED);
        EXPECT_STREQ(e.what(),
                     "Error retrieving names of properties from a result returned by the WMI "
                     "provider (IWbemClassObject::GetNames) (error=\"Call failed.\" "
                     "HRESULT=80041001) (test: SELECT * FROM Test)");
    }
    // A name that cannot be taken from the answer has its own text.
    object.failNames(wmi::WBEM_E_FAILED, FakeClassObject::NamesStep::GET_ELEMENT);
    try {
        extractRecord(processor, record, object);
        ADD_FAILURE() << "no exception";
    } catch (const WMIException& e) {
        EXPECT_STREQ(e.what(),
                     "Error in SafeArrayGetElement (error=\"Call failed.\" HRESULT=80041001)");
    }
    EXPECT_EQ(log.of("WMI").size(), 2u);
}

TEST(ResultProcessingTest, ClassNameModeKeepsOnlyTheClass) {
    FakeClassObject object;
    object.add("Name", Variant::fromString(u"x"))
        .addSystem("__CLASS", Variant::fromString(u"Win32_Foo"));
    EXPECT_EQ(extract(object, 0), (std::map<std::string, std::string>{{"Win32_Foo", ""}}));
    // Property-name mode still fetches values.
    EXPECT_EQ(extract(object, 1), (std::map<std::string, std::string>{{"Name", "x"}}));

    RecordingProcessor processor(0);
    EventRecord record{{u"Win32_Foo", u"old"}};
    extractRecord(processor, record, object);
    EXPECT_EQ(narrow(record), (std::map<std::string, std::string>{{"Win32_Foo", ""}}));
}

TEST(ResultProcessingTest, NotificationTakesTargetInstanceAndEventClass) {
    auto instance = std::make_shared<FakeClassObject>();
    instance->add("Name", Variant::fromString(u"notepad.exe"))
        .add("ProcessId", Variant::fromUInt(wmi::VT_UI4, 4242))
        .addSystem("__CLASS", Variant::fromString(u"Win32_Process"));
    FakeClassObject event;
    event.add("TIME_CREATED", Variant::fromUInt(wmi::VT_UI8, 133000000000000000ULL))
        .addSystem("TargetInstance", Variant::fromObject(instance))
        .addSystem("__CLASS", Variant::fromString(u"__InstanceCreationEvent"));
    RecordingProcessor processor(2, true);
    EventRecord record;
    extractNotificationRecord(processor, record, event);
    EXPECT_EQ(narrow(record),
              (std::map<std::string, std::string>{{"EventClass", "InstanceCreationEvent"},
                                                  {"Name", "notepad.exe"},
                                                  {"ProcessId", "4242"}}));

    // An instance with a property EventClass of its own keeps it.
    instance->add("EventClass", Variant::fromString(u"own"));
    record.clear();
    extractNotificationRecord(processor, record, event);
    EXPECT_EQ(narrow(record)["EventClass"], "own");
}

TEST(ResultProcessingTest, EventClassLosesLeadingUnderscoresButNotAll) {
    auto instance = std::make_shared<FakeClassObject>();
    instance->add("A", Variant::fromString(u"a"));
    for (const auto& [raw, shown] : std::vector<std::pair<std::string, std::string>>{
             {"__InstanceDeletionEvent", "InstanceDeletionEvent"},
             {"Plain", "Plain"},
             {"___", "_"},
             {"_a_b", "a_b"}}) {
        FakeClassObject event;
        event.addSystem("TargetInstance", Variant::fromObject(instance))
            .addSystem("__Class", Variant::fromString(w(raw)));
        RecordingProcessor processor(2, true);
        EventRecord record;
        extractNotificationRecord(processor, record, event);
        EXPECT_EQ(narrow(record)["EventClass"], shown) << raw;
    }
    // No class at all: no line.
    FakeClassObject nameless;
    nameless.addSystem("TargetInstance", Variant::fromObject(instance));
    RecordingProcessor processor(2, true);
    EventRecord record;
    extractNotificationRecord(processor, record, nameless);
    EXPECT_EQ(narrow(record), (std::map<std::string, std::string>{{"A", "a"}}));
}

TEST(ResultProcessingTest, EventWithoutTargetInstanceIsTakenAsItStands) {
    FakeClassObject event;
    event.add("SECURITY_DESCRIPTOR", Variant::null())
        .add("Code", Variant::fromInt(wmi::VT_I4, 7))
        .addSystem("__CLASS", Variant::fromString(u"__SomeEvent"));
    RecordingProcessor processor(2, true);
    EventRecord record;
    extractNotificationRecord(processor, record, event);
    EXPECT_EQ(narrow(record),
              (std::map<std::string, std::string>{{"Code", "7"}, {"SECURITY_DESCRIPTOR", "NULL"}}));
}

TEST(ResultProcessingTest, NotificationFailuresThrow) {
    LogLines log;
    RecordingProcessor processor(2, true);
    EventRecord record;
    auto expectFailure = [&](FakeClassObject& event, const std::string& start) {
        try {
            extractNotificationRecord(processor, record, event);
            ADD_FAILURE() << "no exception: " << start;
        } catch (const WMIException& e) {
            EXPECT_EQ(std::string(e.what()).rfind(start, 0), 0u) << e.what();
        }
    };

    FakeClassObject unreadable;
    unreadable.failGet("TargetInstance", wmi::WBEM_E_FAILED);
    expectFailure(unreadable, "Unable to retrieve \"TargetInstance\" from results (");
    FakeClassObject noObject;
    noObject.addSystem("TargetInstance", Variant::fromObject(nullptr));
    expectFailure(noObject, "QueryInterface on an instance of \"TargetInstance\" failed (");
    auto instance = std::make_shared<FakeClassObject>();
    FakeClassObject classless;
    classless.addSystem("TargetInstance", Variant::fromObject(instance))
        .failGet("__Class", wmi::WBEM_E_FAILED);
    expectFailure(classless,
                  "Error occurred while trying to get value of \"__Class\" from a notification "
                  "event (");

    // A null TargetInstance cannot be read as an object: the conversion fails.
    FakeClassObject nullTarget;
    nullTarget.addSystem("TargetInstance", Variant::null());
    EXPECT_THROW(extractNotificationRecord(processor, record, nullTarget), ComErrorException);
}

TEST(ResultProcessingTest, ProcessResultsHandsOverOneBatchEvenWhenEmpty) {
    RecordingProcessor processor;
    processResults(processor, nullptr, 0);
    ASSERT_EQ(processor.batches.size(), 1u);
    EXPECT_TRUE(processor.batches[0].empty());

    auto a = std::make_shared<FakeClassObject>();
    a->add("N", Variant::fromString(u"1")).add("Secret", Variant::fromString(u"s"));
    auto b = std::make_shared<FakeClassObject>();
    b->add("N", Variant::fromString(u"2"));
    std::vector<std::shared_ptr<wmi::ClassObject>> objects{a, b};
    processor.dropProperty = u"Secret";
    processResults(processor, objects.data(), objects.size());
    ASSERT_EQ(processor.batches.size(), 2u);
    ASSERT_EQ(processor.batches[1].size(), 2u);
    EXPECT_EQ(narrow(processor.batches[1][0]), (std::map<std::string, std::string>{{"N", "1"}}));
    EXPECT_EQ(narrow(processor.batches[1][1]), (std::map<std::string, std::string>{{"N", "2"}}));
    EXPECT_EQ(processor.filtered, 2u);
}

TEST(ResultProcessingTest, ProcessResultsWritesNothingOfABatchThatFails) {
    LogLines log;
    RecordingProcessor processor;
    auto good = std::make_shared<FakeClassObject>();
    good->add("N", Variant::fromString(u"1"));
    auto bad = std::make_shared<FakeClassObject>();
    bad->failNames(wmi::WBEM_E_FAILED);
    std::vector<std::shared_ptr<wmi::ClassObject>> objects{good, bad};
    EXPECT_THROW(processResults(processor, objects.data(), objects.size()), WMIException);
    EXPECT_TRUE(processor.batches.empty());
}

TEST(ResultProcessingTest, ProcessResultsUsesTheNotificationPathForNotificationQueries) {
    auto instance = std::make_shared<FakeClassObject>();
    instance->add("Name", Variant::fromString(u"x"));
    auto event = std::make_shared<FakeClassObject>();
    event->add("TIME_CREATED", Variant::fromString(u"1"))
        .addSystem("TargetInstance", Variant::fromObject(instance))
        .addSystem("__CLASS", Variant::fromString(u"__InstanceModificationEvent"));
    std::vector<std::shared_ptr<wmi::ClassObject>> objects{event};

    RecordingProcessor notification(2, true);
    processResults(notification, objects.data(), objects.size());
    EXPECT_EQ(narrow(notification.batches.at(0).at(0)),
              (std::map<std::string, std::string>{{"EventClass", "InstanceModificationEvent"},
                                                  {"Name", "x"}}));

    RecordingProcessor polled;
    processResults(polled, objects.data(), objects.size());
    EXPECT_EQ(narrow(polled.batches.at(0).at(0)),
              (std::map<std::string, std::string>{{"TIME_CREATED", "1"}}));
}

}  // namespace
}  // namespace morvax
