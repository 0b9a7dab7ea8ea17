#include "input/EventLogCheckpoint.h"

#include <gtest/gtest.h>

#include <string>

namespace morvax {
namespace {

using Checkpoint = EventLogCheckpoint;

std::string format(uint32_t mode, uint32_t chk, uint32_t low, uint32_t hi, const char* time) {
    Checkpoint checkpoint;
    const Str text(time);
    checkpoint.setCheckpoint(chk, low, hi, mode, &text);
    return checkpoint.formatCheckpoint().toStdString();
}

TEST(EventLogCheckpointTest, TheTextFormHasTheLetterOfTheModeAndTheTimeWhenThereIsOne) {
    EXPECT_EQ(format(Checkpoint::MODE_DESCENDING, 210, 0, 500, "20261114102530.000000-000"),
              "D 210 0 500 20261114102530.000000-000");
    EXPECT_EQ(format(Checkpoint::MODE_ASCENDING, 7, 1, Checkpoint::kNone, ""), "A 7 1 4294967295");
    EXPECT_EQ(format(Checkpoint::MODE_ONE_SEEN, 1, 0, 2, ""), "O 1 0 2");
    // Mode 0 keeps the mode it had (unset: U); mode 1 has no letter of its own and writes as D.
    EXPECT_EQ(format(Checkpoint::MODE_UNSET, 0, 0, 0, ""), "U 0 0 0");
    EXPECT_EQ(format(Checkpoint::MODE_UNKNOWN, 0, 0, 0, ""), "D 0 0 0");
}

TEST(EventLogCheckpointTest, SettingKeepsWhatIsNotGivenAndRenewsTheText) {
    Checkpoint checkpoint;
    const Str time("T1");
    checkpoint.setCheckpoint(5, 0, 6, Checkpoint::MODE_ONE_SEEN, &time);
    EXPECT_EQ(checkpoint.formatCheckpoint(), "O 5 0 6 T1");
    checkpoint.setCheckpoint(6, 0, 6, Checkpoint::MODE_UNSET, nullptr);
    EXPECT_EQ(checkpoint.formatCheckpoint(), "O 6 0 6 T1");
}

TEST(EventLogCheckpointTest, ReadsItsOwnFormAndRefusesAnythingElse) {
    Checkpoint checkpoint;
    ASSERT_TRUE(checkpoint.parseCheckpoint("D 210 0 500 20261114102530.000000-000"));
    EXPECT_EQ(checkpoint.mode(), Checkpoint::MODE_DESCENDING);
    EXPECT_EQ(checkpoint.chk(), 210u);
    EXPECT_EQ(checkpoint.hi(), 500u);
    EXPECT_EQ(checkpoint.time(), "20261114102530.000000-000");
    // Four fields: no time. U reads as unknown.
    ASSERT_TRUE(checkpoint.parseCheckpoint("U 0 0 4294967295"));
    EXPECT_EQ(checkpoint.mode(), Checkpoint::MODE_UNKNOWN);
    EXPECT_EQ(checkpoint.time(), "");
    EXPECT_EQ(checkpoint.hi(), Checkpoint::kNone);

    for (const char* bad :
         {"", "X 1 2 3", "d 1 2 3", "A 1 2", "A 1 x 3", "A 4294967296 0 0", "A -1 0 0"}) {
        EXPECT_FALSE(checkpoint.parseCheckpoint(StrSegment(bad))) << bad;
    }
    EXPECT_FALSE(checkpoint.parseCheckpoint(StrSegment("A 1 2 3 " + std::string(1024, 't'))));
    EXPECT_TRUE(checkpoint.parseCheckpoint(StrSegment("A 1 2 3 " + std::string(1023, 't'))));
    // A refused text leaves the checkpoint as it was.
    EXPECT_EQ(checkpoint.chk(), 1u);
    EXPECT_EQ(checkpoint.formatCheckpoint().size(), 8u + 1023u);
}

}  // namespace
}  // namespace morvax
