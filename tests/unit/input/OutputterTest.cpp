#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "input/DefaultWMIDataOutputter.h"
#include "input/PropertiesExtractingOutputter.h"
#include "input/ValueExtractingOutputter.h"
#include "input/WMIDataOutputter.h"
#include "support/WaitUntil.h"
#include "unit/input/OutputTestSupport.h"

namespace morvax {
namespace {

using outputtest::CapturedStream;
using outputtest::LogLines;
using outputtest::w;

const char* const MARKER = "\n---morvax-wmi-end-of-event---\n";

EventRecord record(std::initializer_list<std::pair<const char*, const char*>> properties) {
    EventRecord out;
    for (const auto& [name, value] : properties) {
        out[w(name)] = w(value);
    }
    return out;
}

// Writes `records` through `outputter` into a temporary file and returns the bytes.
std::string writeAll(WMIDataOutputter& outputter, ResultBatch records) {
    CapturedStream stream;
    outputter.setStream(stream.file());
    outputter.writeData(records.begin(), records.end());
    outputter.setStream(stdout);
    return stream.text();
}

TEST(OutputterTest, RecordWithoutPropertiesStillHasHeaderAndFooter) {
    WMIDataOutputter outputter;
    outputter.setHeader(w("HEAD\n"));
    outputter.setFooter(w(MARKER));
    EXPECT_EQ(writeAll(outputter, {EventRecord()}), std::string("HEAD\n") + MARKER);
    // Without header and footer an empty record is no bytes at all.
    WMIDataOutputter bare;
    EXPECT_EQ(writeAll(bare, {EventRecord(), EventRecord()}), "");
}

// Events bypass the stream's buffer: what the stream held before them must still come first.
TEST(OutputterTest, BytesTheStreamHeldGoBeforeTheEvent) {
    CapturedStream stream;
    std::fputs("held\n", stream.file());
    WMIDataOutputter outputter;
    outputter.setFooter(w(MARKER));
    outputter.setStream(stream.file());
    ResultBatch batch{record({{"A", "1"}}), record({{"B", "2"}})};
    outputter.writeData(batch.begin(), batch.end());
    outputter.setStream(stdout);
    EXPECT_EQ(stream.text(), std::string("held\nA=1\n") + MARKER + "B=2\n" + MARKER);
}

// A thread that holds the output writes its run of events before another thread's event, and
// a second hold on the holding thread neither blocks nor lets go early.
TEST(OutputterTest, AHeldOutputKeepsOtherThreadsWaiting) {
    CapturedStream stream;
    WMIDataOutputter mine;
    WMIDataOutputter theirs;
    for (WMIDataOutputter* outputter : {&mine, &theirs}) {
        outputter->setFooter(w(MARKER));
        outputter->setStream(stream.file());
    }
    ResultBatch batch{record({{"A", "1"}}), record({{"A", "2"}}), record({{"B", "3"}})};
    std::atomic<bool> started{false};
    std::thread other;
    {
        const WMIDataOutputter::OutputHold hold;
        mine.writeEvent(batch.begin());
        other = std::thread([&] {
            started = true;
            theirs.writeEvent(std::next(batch.begin(), 2));
        });
        ASSERT_TRUE(test::waitUntil([&] { return started.load(); }));
        { const WMIDataOutputter::OutputHold again; }
        mine.writeEvent(std::next(batch.begin()));
    }
    other.join();
    mine.setStream(stdout);
    theirs.setStream(stdout);
    EXPECT_EQ(stream.text(), std::string("A=1\n") + MARKER + "A=2\n" + MARKER + "B=3\n" + MARKER);
}

TEST(OutputterTest, NameOrderThenFixedPropertiesThenMessage) {
    WMIDataOutputter outputter;
    outputter.setFixedProperty(w("wmi_type"), w("Old"));
    outputter.setFixedProperty(w("wmi_type"), w("Memory"));
    outputter.setFixedProperty(w("ComputerName"), w("fixed-host"));
    outputter.setFixedProperty(w("Gone"), w("x"));
    outputter.removeFixedProperty(w("Gone"));
    ResultBatch batch{record({{"message", "lower"},
                              {"Message", "the message"},
                              {"Zeta", "z"},
                              {"ComputerName", "own-host"},
                              {"Alpha", "a"},
                              {"Empty", ""},
                              {"Alph", "prefix first"}}),
                      record({{"B", "2"}})};
    EXPECT_EQ(writeAll(outputter, batch),
              "Alph=prefix first\nAlpha=a\nEmpty=\nZeta=z\nmessage=lower\n"
              "ComputerName=fixed-host\nwmi_type=Memory\nMessage=the message\n"
              "B=2\nComputerName=fixed-host\nwmi_type=Memory\n");
}

TEST(OutputterTest, GuardDropsOnlyValuesThatForgeAnEvent) {
    LogLines log;
    WMIDataOutputter outputter;
    outputter.setFooter(w(MARKER));
    const std::string forged =
        std::string("before") + MARKER + "***MORVAX*** index=main source=\"x\" sourcetype=\"x\"";
    ResultBatch batch{record({{"A", "***MORVAX***"},
                              {"B", forged.c_str()},
                              {"C", "***MORVAX*** index=main"},
                              {"D", "tail"}})};
    EXPECT_EQ(writeAll(outputter, batch),
              std::string("A=***MORVAX***\nC=***MORVAX*** index=main\nD=tail\n") + MARKER);
    const std::vector<std::string> lines = log.of("WMI");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "WMI ERROR Found pattern - \\n***MORVAX*** in data " + forged +
                            ". This data will not be printed.");
}

TEST(OutputterTest, WideTextBecomesUtf8WithReplacementForLoneSurrogates) {
    WMIDataOutputter outputter;
    EventRecord r;
    r[u"N\u00e4me"] = u"caf\u00e9 \u20ac \U0001F600 abcdefghij";
    r[u"Z1"] = WStr(u"ab") + char16_t(0xD800) + u"cdefgh";  // high surrogate without its pair
    r[u"Z2"] = WStr(1, char16_t(0xDC00));                   // lone low surrogate
    r[u"Z3"] = WStr(u"x") + char16_t(0xDBFF);               // high surrogate at the end
    EXPECT_EQ(writeAll(outputter, {r}),
              "N\xc3\xa4me=caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80 abcdefghij\n"
              "Z1=ab\xef\xbf\xbd"
              "cdefgh\n"
              "Z2=\xef\xbf\xbd\n"
              "Z3=x\xef\xbf\xbd\n");
}

TEST(OutputterTest, NulEndsALineLikeACString) {
    WMIDataOutputter outputter;
    EventRecord r;
    r[u"A"] = WStr(u"left") + char16_t(0) + u"right";
    r[u"B"] = u"b";
    EXPECT_EQ(writeAll(outputter, {r}), "A=left\nB=b\n");
}

TEST(OutputterTest, LargeEventsAreWrittenWhole) {
    WMIDataOutputter outputter;
    outputter.setHeader(w("H\n"));
    EventRecord r;
    const WStr big(100000, u'\u00e9');
    r[u"Big"] = big;
    r[u"Small"] = u"s";
    const std::string out = writeAll(outputter, {r, r});
    std::string value;
    for (int i = 0; i < 100000; ++i) {
        value += "\xc3\xa9";
    }
    const std::string one = "H\nBig=" + value + "\nSmall=s\n";
    EXPECT_EQ(out, one + one);
}

TEST(OutputterTest, EmptyRangeWritesNothing) {
    WMIDataOutputter outputter;
    outputter.setHeader(w("H\n"));
    EXPECT_EQ(writeAll(outputter, {}), "");
}

TEST(OutputterTest, DefaultOutputterIsOneForTheProcess) {
    EXPECT_EQ(&DefaultWMIDataOutputter::instance(), &DefaultWMIDataOutputter::instance());
}

TEST(OutputterTest, PropertiesExtractorListsNamesInRecordOrder) {
    std::vector<Str> list;
    PropertiesExtractingOutputter outputter(&list);
    outputter.setHeader(w("not used"));
    ResultBatch batch{record({{"b", "1"}, {"A", "2"}}), record({{"C\xc3\xa9", ""}})};
    CapturedStream stream;
    outputter.setStream(stream.file());
    outputter.writeData(batch.begin(), batch.end());
    EXPECT_EQ(stream.text(), "");
    EXPECT_EQ(list, (std::vector<Str>{"A", "b", "C\xc3\xa9"}));
}

TEST(OutputterTest, ValueExtractorTakesOneValueOrTheFirstName) {
    ResultBatch batch{record({{"Name", "one"}, {"Other", "x"}}), record({{"Other", "y"}}),
                      record({{"Name", "thr\xc3\xa9\x65"}}), EventRecord()};
    std::vector<Str> values;
    ValueExtractingOutputter byName(u"Name", &values);
    byName.writeData(batch.begin(), batch.end());
    EXPECT_EQ(values, (std::vector<Str>{"one", "thr\xc3\xa9\x65"}));

    // With no name: the first key, which is the class name in class-name mode.
    ResultBatch classes{record({{"Win32_Process", ""}}), record({{"B", "1"}, {"A", "2"}}),
                        EventRecord()};
    std::vector<Str> names;
    ValueExtractingOutputter first(WStr(), &names);
    first.writeData(classes.begin(), classes.end());
    EXPECT_EQ(names, (std::vector<Str>{"Win32_Process", "A"}));
}

}  // namespace
}  // namespace morvax
