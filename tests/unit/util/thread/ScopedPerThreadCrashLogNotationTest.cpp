#include "util/thread/ScopedPerThreadCrashLogNotation.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <thread>

#include "util/base/Str.h"
#include "util/thread/ScopedPerThreadCrashLogConstantStringNotation.h"

namespace morvax {
namespace {

class StrSink : public FormatSink {
  public:
    void write(const char* bytes, size_t length) override { text.append(bytes, length); }
    Str text;
};

Str currentNotations() {
    StrSink sink;
    ScopedPerThreadCrashLogNotation::writeCurrentThreadNotations(sink);
    return sink.text;
}

using ConstantNote = ScopedPerThreadCrashLogConstantStringNotation;

TEST(ScopedPerThreadCrashLogNotationTest, OnlyLiveNotationsAreWrittenNewestFirst) {
    EXPECT_EQ(currentNotations(), "");
    {
        ConstantNote outer("reading wmi.conf");
        {
            ConstantNote inner("compiling a pattern");
            EXPECT_EQ(currentNotations(), "compiling a pattern\r\nreading wmi.conf\r\n");
        }
        EXPECT_EQ(currentNotations(), "reading wmi.conf\r\n");
    }
    EXPECT_EQ(currentNotations(), "");

    // Entries that do not end in order leave the rest of the list whole.
    auto a = std::make_unique<ConstantNote>("a");
    auto b = std::make_unique<ConstantNote>("b");
    auto c = std::make_unique<ConstantNote>("c");
    b.reset();
    EXPECT_EQ(currentNotations(), "c\r\na\r\n");
    a.reset();
    EXPECT_EQ(currentNotations(), "c\r\n");
    c.reset();
    EXPECT_EQ(currentNotations(), "");
}

// An entry is listed only while it is whole: a crash writer that walked the list while the
// object was still being built, or already half destroyed, would call a pure virtual function.
class SelfObservingNote : public ScopedPerThreadCrashLogNotation {
  public:
    explicit SelfObservingNote(Str& seenWhenGone)
        : seenWhileBuilt(currentNotations()), seenWhenGone_(seenWhenGone) {
        link();
    }
    ~SelfObservingNote() override {
        unlink();
        seenWhenGone_ = currentNotations();
    }
    void write(FormatSink& sink) const override { sink.write("whole\r\n", 7); }

    const Str seenWhileBuilt;

  private:
    Str& seenWhenGone_;
};

TEST(ScopedPerThreadCrashLogNotationTest, AnEntryIsListedOnlyWhileWhole) {
    ConstantNote outer("outer");
    Str seenWhenGone;
    {
        SelfObservingNote note(seenWhenGone);
        EXPECT_EQ(note.seenWhileBuilt, "outer\r\n");
        EXPECT_EQ(currentNotations(), "whole\r\nouter\r\n");
    }
    EXPECT_EQ(seenWhenGone, "outer\r\n");
}

TEST(ScopedPerThreadCrashLogNotationTest, EachThreadHasItsOwnList) {
    ConstantNote mine("on the test thread");
    const ScopedPerThreadCrashLogNotation::List* mainList =
        ScopedPerThreadCrashLogNotation::currentThreadList();
    Str seenThere;
    Str mainSeenFromThere;
    std::thread other([&] {
        ConstantNote theirs("on another thread");
        seenThere = currentNotations();
        StrSink sink;
        ScopedPerThreadCrashLogNotation::writeList(*mainList, sink);
        mainSeenFromThere = sink.text;
    });
    other.join();
    EXPECT_EQ(seenThere, "on another thread\r\n");
    EXPECT_EQ(mainSeenFromThere, "on the test thread\r\n");
    EXPECT_EQ(currentNotations(), "on the test thread\r\n");
}

TEST(ScopedPerThreadCrashLogNotationTest, WalkStopsAfterTheLimit) {
    std::deque<ConstantNote> notes;
    Str expected;
    for (uint32_t i = 0; i < ScopedPerThreadCrashLogNotation::MAX_WALK; ++i) {
        notes.emplace_back("n");
        expected.append("n\r\n");
    }
    EXPECT_EQ(currentNotations(), expected);

    notes.emplace_back("n");
    expected.append(
        "Max crashlog notation count exceeded (1024), probably linked list of notations "
        "corrupted. breaking out.\r\n");
    EXPECT_EQ(currentNotations(), expected);
    while (!notes.empty()) {
        notes.pop_back();
    }
    EXPECT_EQ(currentNotations(), "");
}

}  // namespace
}  // namespace morvax
