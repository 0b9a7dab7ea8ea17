#include "input/ProcessWatcher.h"

#include <gtest/gtest.h>

#include <string>

#include "unit/input/ProcessWatcherTestSupport.h"

namespace morvax::test {
namespace {

// Status of the probe when the watched process has ended under -die-when-pid-dies.
constexpr int kWatchedEnded = 2;

TEST_F(ProcessWatcherTest, TriggerFiresTheCallbackOnceWithItsArgument) {
    CallbackCounter counter;
    // Nothing to fire before a start.
    processWatcherTrigger();
    processWatcherStart(&CallbackCounter::onStop, &counter, WATCH_NONE, 0);
    processWatcherTrigger();
    processWatcherTrigger();
    EXPECT_EQ(counter.calls, 1);
    processWatcherStop();
    processWatcherStop();
    processWatcherTrigger();
    EXPECT_EQ(counter.calls, 1);
}

TEST_F(ProcessWatcherTest, SecondStartKeepsTheFirstAndAStopSilencesTheCallback) {
    CallbackCounter first;
    CallbackCounter second;
    processWatcherStart(&CallbackCounter::onStop, &first, WATCH_NONE, 0);
    processWatcherStart(&CallbackCounter::onStop, &second, WATCH_NONE, 0);
    processWatcherStop();
    processWatcherTrigger();
    EXPECT_EQ(first.calls, 0);

    // A start after a stop is a new start.
    processWatcherStart(&CallbackCounter::onStop, &second, WATCH_NONE, 0);
    processWatcherTrigger();
    EXPECT_EQ(first.calls, 0);
    EXPECT_EQ(second.calls, 1);
}

TEST_F(ProcessWatcherTest, RunUntilPidDiesStopsAtOnceForAProcessThatIsGone) {
    uint32_t pid = gonePid();
    CallbackCounter counter;
    processWatcherStart(&CallbackCounter::onStop, &counter, WATCH_RUN_UNTIL_PID_DIES, pid);
    EXPECT_TRUE(waitUntil([&] { return counter.calls == 1; }));
    processWatcherStop();
    EXPECT_EQ(counter.calls, 1);
}

TEST_F(ProcessWatcherTest, RunUntilPidDiesStopsWhenTheProcessEnds) {
    auto sleeper = startSleeper();
    CallbackCounter counter;
    processWatcherStart(&CallbackCounter::onStop, &counter, WATCH_RUN_UNTIL_PID_DIES,
                        sleeper->pid());
    EXPECT_EQ(counter.calls, 0);
    // Ended but not yet released, as a process is whose parent has not looked at it yet.
    sleeper->terminate();
    ASSERT_TRUE(sleeper->waitForExit(kWaitLimitMs));
    EXPECT_TRUE(waitUntil([&] { return counter.calls == 1; }));
    // A console event after that finds nothing more to do.
    processWatcherTrigger();
    processWatcherStop();
    EXPECT_EQ(counter.calls, 1);
}

TEST_F(ProcessWatcherTest, StopEndsTheWatchOfALiveProcessWithoutTheCallback) {
    auto sleeper = startSleeper();
    for (ProcessWatcherMode mode : {WATCH_RUN_UNTIL_PID_DIES, WATCH_DIE_WHEN_PID_DIES}) {
        CallbackCounter counter;
        processWatcherStart(&CallbackCounter::onStop, &counter, mode, sleeper->pid());
        processWatcherStop();
        EXPECT_EQ(counter.calls, 0) << "mode " << mode;
    }
    // Nothing of -die-when-pid-dies outlives the stop: this process survives the end.
    sleeper->terminate();
    ASSERT_TRUE(sleeper->waitForExit(kWaitLimitMs));
}

TEST_F(ProcessWatcherTest, DieWhenPidDiesExitsWithTwoForAProcessThatIsGone) {
    auto probe = startProbe(WATCH_DIE_WHEN_PID_DIES, gonePid(), path("never"));
    ASSERT_TRUE(probe->waitForExit(kWaitLimitMs));
    EXPECT_EQ(probe->exitStatus(), kWatchedEnded) << probeOutput();
    EXPECT_EQ(probeOutput().find("callback"), std::string::npos);
}

TEST_F(ProcessWatcherTest, DieWhenPidDiesExitsWithTwoWhenTheProcessEnds) {
    auto sleeper = startSleeper();
    auto probe = startProbe(WATCH_DIE_WHEN_PID_DIES, sleeper->pid(), path("never"));
    ASSERT_TRUE(waitForProbeOutput("started"));
    EXPECT_FALSE(probe->waitForExit(0));
    sleeper->terminate();
    ASSERT_TRUE(probe->waitForExit(kWaitLimitMs));
    EXPECT_EQ(probe->exitStatus(), kWatchedEnded) << probeOutput();
    EXPECT_EQ(probeOutput().find("callback"), std::string::npos);
}

TEST_F(ProcessWatcherTest, DieWhenPidDiesStaysInForceDuringAGracefulStop) {
    auto sleeper = startSleeper();
    // "trigger" stands for a console event: the stop has begun, the watcher is not stopped yet.
    auto probe = startProbe(WATCH_DIE_WHEN_PID_DIES, sleeper->pid(), path("never"), true);
    ASSERT_TRUE(waitForProbeOutput("callback"));
    sleeper->terminate();
    ASSERT_TRUE(probe->waitForExit(kWaitLimitMs));
    EXPECT_EQ(probe->exitStatus(), kWatchedEnded) << probeOutput();
}

TEST_F(ProcessWatcherTest, DieWhenPidDiesEndsWithTheStopAfterAConsoleEvent) {
    auto sleeper = startSleeper();
    auto probe = startProbe(WATCH_DIE_WHEN_PID_DIES, sleeper->pid(), path("stop"), true);
    ASSERT_TRUE(waitForProbeOutput("callback"));
    createFile("stop");
    ASSERT_TRUE(probe->waitForExit(kWaitLimitMs));
    EXPECT_EQ(probe->exitStatus(), 0) << probeOutput();
    EXPECT_EQ(countOf(probeOutput(), "callback"), 1u);
    EXPECT_NE(probeOutput().find("stopped"), std::string::npos);
}

TEST_F(ParentWatchTest, AValueThatNamesNoProcessCannotBeOpened) {
    // No number reads as 0, which no process has.
    EXPECT_EQ(probeStatusFor("abc"), 98);
    EXPECT_EQ(probeStatusFor("0" + std::string(48, 'x')), 98);
}

TEST_F(ParentWatchTest, AParentThatHasAlreadyEndedEndsTheProcessWith97) {
    auto sleeper = startSleeper();
    sleeper->terminate();
    ASSERT_TRUE(sleeper->waitForExit(kWaitLimitMs));
    // Not released: the ended process can still be opened.
    EXPECT_EQ(probeStatusFor(std::to_string(sleeper->pid())), 97);
}

TEST_F(ParentWatchTest, TheEndOfTheParentEndsTheProcessWith99) {
    auto sleeper = startSleeper();
    // Blanks and trailing text are read as _wtol reads them.
    setEnvironment("MORVAXD_PROCESSID", (" " + std::to_string(sleeper->pid()) + "x").c_str());
    auto probe = startProbe(WATCH_PARENT_ENV, 0, path("never"));
    ASSERT_TRUE(waitForProbeOutput("started"));
    EXPECT_FALSE(probe->waitForExit(0));
    sleeper->terminate();
    ASSERT_TRUE(probe->waitForExit(kWaitLimitMs));
    EXPECT_EQ(probe->exitStatus(), 99) << probeOutput();
    EXPECT_EQ(probeOutput().find("callback"), std::string::npos);
}

TEST_F(ParentWatchTest, AValueOfFiftyCharactersOrMoreWatchesNothing) {
    // Read, this would be process 0, and the probe would end with 98.
    for (size_t length : {50, 60}) {
        setEnvironment("MORVAXD_PROCESSID", ("0" + std::string(length - 1, 'x')).c_str());
        std::string stopFile = "stop" + std::to_string(length);
        auto probe = startProbe(WATCH_PARENT_ENV, 0, path(stopFile));
        ASSERT_TRUE(waitForProbeOutput("started"));
        createFile(stopFile);
        ASSERT_TRUE(probe->waitForExit(kWaitLimitMs));
        EXPECT_EQ(probe->exitStatus(), 0) << length;
    }
}

TEST_F(ParentWatchTest, WithoutTheVariableNothingIsWatched) {
    setEnvironment("MORVAXD_PROCESSID", nullptr);
    CallbackCounter counter;
    processWatcherStart(&CallbackCounter::onStop, &counter, WATCH_PARENT_ENV, 0);
    processWatcherTrigger();
    processWatcherStop();
    EXPECT_EQ(counter.calls, 1);
}

}  // namespace
}  // namespace morvax::test
