// Results written straight from the objects must give the bytes that their records give.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "input/ResultProcessing.h"
#include "input/WMIDataOutputter.h"
#include "input/WQLQueryProcessor.h"
#include "unit/input/OutputTestSupport.h"
#include "wmi/Wmi.h"

namespace morvax {
namespace {

using outputtest::CapturedStream;
using outputtest::FakeClassObject;
using outputtest::FixedClock;
using outputtest::utcTime;
using wmi::Variant;

using Objects = std::vector<std::shared_ptr<wmi::ClassObject>>;

// An object whose provider tells its shape by a key, and counts the values read by position.
class KeyedObject : public FakeClassObject {
  public:
    explicit KeyedObject(const int* key) : key_(key) {}
    const void* shapeKey() const override { return key_; }
    wmi::HRESULT getAt(size_t index, const std::u16string& name, Variant& out) override {
        ++byPosition;
        return FakeClassObject::getAt(index, name, out);
    }
    int byPosition = 0;

  private:
    const int* key_;
};

WMIQueryEntry entry(bool notification, const char* hostname = "") {
    WMIQueryEntry e;
    e.type = WMIQueryEntry::TYPE_WQL;
    e.namespace_ = "\\\\host2\\root\\cimv2";
    e.parameter = "SELECT * FROM Anything";
    e.name = "Rows";
    e.hostname = hostname;
    e.index = "main";
    e.notification = notification;
    return e;
}

// The bytes of `objects` (one batch) through the row path and through records.
struct Both {
    std::string rows;
    std::string records;
};

Both writeBoth(const WMIQueryEntry& e, const Objects& objects) {
    FixedClock clock(utcTime(2026, 11, 14, 10, 25, 30, 1234567));
    Both out;
    {
        CapturedStream stream;
        WMIDataOutputter shared;
        shared.setStream(stream.file());
        WQLQueryProcessor processor(e);
        processor.setOutputter(&shared);
        EXPECT_TRUE(processor.writesObjects());
        processResults(processor, objects.data(), objects.size());
        out.rows = stream.text();
    }
    {
        CapturedStream stream;
        WMIDataOutputter shared;
        shared.setStream(stream.file());
        WQLQueryProcessor processor(e);
        processor.setOutputter(&shared);
        ResultBatch batch(objects.size());
        for (size_t i = 0; i < objects.size(); ++i) {
            if (e.notification) {
                extractNotificationRecord(processor, batch[i], *objects[i]);
            } else {
                extractRecord(processor, batch[i], *objects[i]);
            }
        }
        processor.writeData(batch.begin(), batch.end());
        out.records = stream.text();
    }
    return out;
}

std::shared_ptr<KeyedObject> disk(const int* key, const char16_t* name, uint32_t size) {
    auto object = std::make_shared<KeyedObject>(key);
    object->add("Name", Variant::fromString(name))
        .add("Size", Variant::fromUInt(wmi::VT_UI4, size))
        .add("Message", Variant::fromString(u"last"));
    return object;
}

TEST(RowPathTest, AShapeChangeInTheMiddleOfAnEnumerationTakesANewPlan) {
    const int shapeA = 0;
    const int shapeB = 0;
    auto other = std::make_shared<KeyedObject>(&shapeB);
    other->add("Zone", Variant::fromString(u"z")).add("Alpha", Variant::null());
    // Same key, other names: a backend that cannot tell is caught by the names.
    auto unkeyed = std::make_shared<FakeClassObject>();
    unkeyed->add("Name", Variant::fromString(u"u")).add("Extra", Variant::fromBool(true));
    auto unkeyedToo = std::make_shared<FakeClassObject>();
    unkeyedToo->add("Name", Variant::fromString(u"v"));
    const Objects objects{disk(&shapeA, u"a", 1),
                          disk(&shapeA, u"b", 2),
                          other,
                          disk(&shapeA, u"c", 3),
                          unkeyed,
                          unkeyedToo};
    const Both both = writeBoth(entry(false), objects);
    EXPECT_EQ(both.rows, both.records);
    EXPECT_NE(both.rows.find("\nAlpha=NULL\nZone=z\nComputerName=host2\nwmi_type=Rows\n"),
              std::string::npos);
    EXPECT_NE(both.rows.find("\nName=c\nSize=3\nComputerName=host2\nwmi_type=Rows\nMessage=last\n"),
              std::string::npos);
    EXPECT_NE(both.rows.find("\nExtra=True\nName=u\nComputerName"), std::string::npos);
    EXPECT_NE(both.rows.find("\nName=v\nComputerName"), std::string::npos);
    // Values of a known shape are read by position.
    EXPECT_EQ(static_cast<KeyedObject&>(*objects[3]).byPosition, 3);
}

TEST(RowPathTest, ANotificationWhoseTargetInstanceChangesClass) {
    const int processShape = 0;
    const int serviceShape = 0;
    auto event = [](std::shared_ptr<wmi::ClassObject> instance, const char16_t* eventClass) {
        auto outer = std::make_shared<FakeClassObject>();
        outer->addSystem("TargetInstance", Variant::fromObject(std::move(instance)))
            .addSystem("__CLASS", Variant::fromString(eventClass));
        return outer;
    };
    auto process = std::make_shared<KeyedObject>(&processShape);
    process->add("Name", Variant::fromString(u"notepad.exe"))
        .add("ProcessId", Variant::fromUInt(wmi::VT_UI4, 42));
    auto service = std::make_shared<KeyedObject>(&serviceShape);
    service->add("State", Variant::fromString(u"Running")).add("EventClass", Variant::null());
    // Not an instance event: the object is the event, without EventClass.
    auto plain = std::make_shared<FakeClassObject>();
    plain->add("Name", Variant::fromString(u"plain")).add("ProcessId", Variant::null());
    const Objects objects{event(process, u"__InstanceCreationEvent"),
                          event(service, u"__InstanceModificationEvent"), plain,
                          event(process, u"__InstanceDeletionEvent")};
    const Both both = writeBoth(entry(true), objects);
    EXPECT_EQ(both.rows, both.records);
    EXPECT_NE(
        both.rows.find("\nEventClass=InstanceCreationEvent\nName=notepad.exe\nProcessId=42\n"),
        std::string::npos);
    // The instance's own EventClass stands.
    EXPECT_NE(both.rows.find("\nEventClass=NULL\nState=Running\n"), std::string::npos);
    EXPECT_NE(both.rows.find("\nName=plain\nProcessId=NULL\nComputerName"), std::string::npos);
    EXPECT_NE(both.rows.find("\nEventClass=InstanceDeletionEvent\nName=notepad.exe\n"),
              std::string::npos);
}

TEST(RowPathTest, APropertyNamedAsAFixedProperty) {
    const int shape = 0;
    auto object = std::make_shared<KeyedObject>(&shape);
    object->add("wmi_type", Variant::fromString(u"data's type"))
        .add("ComputerName", Variant::fromString(u"data-host"))
        .add("wmi_hostname", Variant::fromString(u"data's host"))
        .add("Value", Variant::fromInt(wmi::VT_I4, -1));
    // The fixed property hides the data's own; a ComputerName of the data stands unless the
    // host is explicit, and then it keeps its place in name order.
    const Both implicit = writeBoth(entry(false), {object});
    EXPECT_EQ(implicit.rows, implicit.records);
    EXPECT_NE(implicit.rows.find("\nComputerName=data-host\nValue=-1\nwmi_hostname=data's "
                                 "host\nwmi_type=Rows\n\n"),
              std::string::npos);
    const Both explicitHost = writeBoth(entry(false, "conf-host"), {object});
    EXPECT_EQ(explicitHost.rows, explicitHost.records);
    EXPECT_NE(explicitHost.rows.find(
                  "\nComputerName=data-host\nValue=-1\nwmi_hostname=conf-host\nwmi_type=Rows\n\n"),
              std::string::npos);
}

TEST(RowPathTest, AHostThatWouldForgeAnEventIsLeftOut) {
    outputtest::LogLines log;
    auto object = std::make_shared<FakeClassObject>();
    object->add("Value", Variant::fromInt(wmi::VT_I4, -1));
    const Both forged =
        writeBoth(entry(false, "h\n---morvax-wmi-end-of-event---\n***MORVAX*** x"), {object});
    EXPECT_EQ(forged.rows, forged.records);
    EXPECT_NE(forged.rows.find("\nValue=-1\nwmi_type=Rows\n"), std::string::npos);
}

TEST(RowPathTest, TextsAreWrittenAsRecordsWriteThem) {
    outputtest::LogLines log;
    auto object = std::make_shared<FakeClassObject>();
    object->add("Nul", Variant::fromString(std::u16string(u"before\0after", 12)))
        .add("Surrogate", Variant::fromString(std::u16string(u"x\xD800y")))
        .add("Wide", Variant::fromString(u"h\u00e9llo w\u00f6rld, caf\u00e9\u00e9\u00e9"))
        .add("Forged", Variant::fromString(u"a\n---morvax-wmi-end-of-event---\n***MORVAX*** x"))
        .add("Array", Variant())
        .add("NAME", Variant::fromString(u"upper"))
        .add("name", Variant::fromString(u"lower"))
        .add("Big", Variant::fromInt(wmi::VT_I8, -9000000000LL))
        .add("Short", Variant::fromInt(wmi::VT_I2, -7));
    object->failGet("Short", wmi::WBEM_E_FAILED);
    const Both both = writeBoth(entry(false), {object, object});
    EXPECT_EQ(both.rows, both.records);
    EXPECT_EQ(both.rows.find("Forged="), std::string::npos);
    // Logged once per event and path.
    EXPECT_EQ(log.of("WMI").size(), 4u);
    EXPECT_NE(both.rows.find("\nShort=\n"), std::string::npos);
}

}  // namespace
}  // namespace morvax
