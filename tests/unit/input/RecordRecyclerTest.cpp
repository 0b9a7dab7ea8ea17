#include "input/RecordRecycler.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "input/ResultProcessing.h"
#include "input/WMIException.h"
#include "unit/input/OutputTestSupport.h"

namespace morvax {
namespace {

using outputtest::FakeClassObject;
using outputtest::RecordingProcessor;
using outputtest::w;
using wmi::Variant;
using Texts = std::map<std::string, std::string>;

Texts narrow(const EventRecord& record) {
    Texts out;
    for (const auto& [name, value] : record) {
        out[Str::fromWide(name).toStdString()] = Str::fromWide(value).toStdString();
    }
    return out;
}

std::shared_ptr<FakeClassObject> object(
    const std::vector<std::pair<std::string, std::u16string>>& properties) {
    auto made = std::make_shared<FakeClassObject>();
    for (const auto& [name, value] : properties) {
        made->add(name, Variant::fromString(value));
    }
    return made;
}

// Batch after batch through one recycler, as a connection reads an enumeration.
class RecycledBatches : public ::testing::Test {
  protected:
    std::vector<Texts> run(const std::vector<std::shared_ptr<wmi::ClassObject>>& objects) {
        processResults(processor, objects.data(), objects.size(), recycler);
        std::vector<Texts> out;
        for (const EventRecord& record : processor.batches.back()) {
            out.push_back(narrow(record));
        }
        return out;
    }

    RecordingProcessor processor;
    RecordRecycler recycler;
};

TEST_F(RecycledBatches, RecordsOfTheSameNamesCarryNoValueOver) {
    EXPECT_EQ(run({object({{"Name", u"a long first value"}, {"Size", u"1"}}),
                   object({{"Name", u"b"}, {"Size", u"2"}})}),
              (std::vector<Texts>{{{"Name", "a long first value"}, {"Size", "1"}},
                                  {{"Name", "b"}, {"Size", "2"}}}));
    // A value that cannot be read stays empty rather than showing the last batch's.
    auto unreadable = object({{"Name", u"c"}, {"Size", u"3"}});
    unreadable->failGet("Size", wmi::WBEM_E_FAILED);
    EXPECT_EQ(run({unreadable}), (std::vector<Texts>{{{"Name", "c"}, {"Size", ""}}}));
}

TEST_F(RecycledBatches, RecordsFollowTheNamesOfEachObject) {
    run({object({{"Name", u"a"}, {"Size", u"1"}, {"Kind", u"k"}}), object({{"Name", u"b"}})});
    // Fewer, other and repeated names.
    EXPECT_EQ(
        run({object({{"Size", u"2"}}), object({{"Name", u"y"}}),
             object({{"Zone", u"z"}, {"Zone", u"again"}, {"Area", u"a"}})}),
        (std::vector<Texts>{{{"Size", "2"}}, {{"Name", "y"}}, {{"Area", "a"}, {"Zone", "z"}}}));
    EXPECT_EQ(run({object({{"Name", u"a"}, {"Size", u"1"}, {"Kind", u"k"}})}),
              (std::vector<Texts>{{{"Kind", "k"}, {"Name", "a"}, {"Size", "1"}}}));
}

TEST_F(RecycledBatches, APropertyTheProcessorDroppedComesBackForTheNextObject) {
    processor.dropProperty = u"Secret";
    EXPECT_EQ(run({object({{"N", u"1"}, {"Secret", u"s"}})}), (std::vector<Texts>{{{"N", "1"}}}));
    processor.dropProperty.clear();
    EXPECT_EQ(run({object({{"N", u"2"}, {"Secret", u"t"}})}),
              (std::vector<Texts>{{{"N", "2"}, {"Secret", "t"}}}));
}

TEST_F(RecycledBatches, ABatchThatFailedLeavesNothingBehind) {
    auto bad = object({{"N", u"x"}});
    bad->failNames(wmi::WBEM_E_FAILED);
    std::vector<std::shared_ptr<wmi::ClassObject>> failing{object({{"N", u"1"}, {"M", u"m"}}), bad};
    EXPECT_THROW(processResults(processor, failing.data(), failing.size(), recycler), WMIException);
    EXPECT_TRUE(processor.batches.empty());
    EXPECT_EQ(run({object({{"N", u"2"}})}), (std::vector<Texts>{{{"N", "2"}}}));
    EXPECT_EQ(run({}), std::vector<Texts>{});
}

TEST_F(RecycledBatches, ModesOtherThanPropertiesStartFromAnEmptyRecord) {
    run({object({{"Name", u"a"}})});
    RecordingProcessor classNames(0);
    auto named = object({{"Name", u"b"}});
    named->addSystem("__CLASS", Variant::fromString(u"Win32_Thing"));
    std::vector<std::shared_ptr<wmi::ClassObject>> objects{named};
    processResults(classNames, objects.data(), objects.size(), recycler);
    EXPECT_EQ(narrow(classNames.batches.at(0).at(0)), (Texts{{"Win32_Thing", ""}}));

    auto instance = object({{"Name", u"c"}});
    auto event = object({});
    event->addSystem("TargetInstance", Variant::fromObject(instance))
        .addSystem("__CLASS", Variant::fromString(u"__InstanceCreationEvent"));
    RecordingProcessor notification(2, true);
    objects = {event, event};
    processResults(notification, objects.data(), objects.size(), recycler);
    processResults(notification, objects.data(), objects.size(), recycler);
    for (const auto& batch : notification.batches) {
        ASSERT_EQ(batch.size(), 2u);
        for (const EventRecord& record : batch) {
            EXPECT_EQ(narrow(record),
                      (Texts{{"EventClass", "InstanceCreationEvent"}, {"Name", "c"}}));
        }
    }
}

}  // namespace
}  // namespace morvax
