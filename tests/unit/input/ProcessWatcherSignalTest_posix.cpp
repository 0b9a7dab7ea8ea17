// SIGINT and SIGTERM take the place of the console's Ctrl-C and Ctrl-Break; and what only
// Linux can show of the parent watch.
#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "input/ProcessWatcher.h"
#include "unit/input/ProcessWatcherTestSupport.h"

namespace morvax::test {
namespace {

void otherHandler(int) {}

TEST_F(ProcessWatcherTest, SigintThenSigtermFireTheCallbackOnce) {
    CallbackCounter counter;
    processWatcherStart(&CallbackCounter::onStop, &counter, WATCH_NONE, 0);
    // raise() returns after the handler has run; the callback follows on the watcher's thread.
    ::raise(SIGINT);
    ASSERT_TRUE(waitUntil([&] { return counter.calls == 1; }));
    // Still ours: the default action would end this test.
    ::raise(SIGTERM);
    processWatcherStop();
    EXPECT_EQ(counter.calls, 1);
}

TEST_F(ProcessWatcherTest, SigtermAloneStops) {
    CallbackCounter counter;
    processWatcherStart(&CallbackCounter::onStop, &counter, WATCH_NONE, 0);
    ::raise(SIGTERM);
    EXPECT_TRUE(waitUntil([&] { return counter.calls == 1; }));
}

TEST_F(ProcessWatcherTest, StopGivesTheSignalsBackToTheirFormerHandlers) {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction other = {};
    other.sa_handler = otherHandler;
    struct sigaction savedInt = {};
    struct sigaction savedTerm = {};
    ASSERT_EQ(::sigaction(SIGINT, &ignore, &savedInt), 0);
    ASSERT_EQ(::sigaction(SIGTERM, &other, &savedTerm), 0);

    processWatcherStart(&CallbackCounter::onStop, nullptr, WATCH_NONE, 0);
    struct sigaction during = {};
    ::sigaction(SIGINT, nullptr, &during);
    EXPECT_NE(during.sa_handler, SIG_IGN);
    processWatcherStop();

    struct sigaction after = {};
    ::sigaction(SIGINT, nullptr, &after);
    EXPECT_EQ(after.sa_handler, SIG_IGN);
    ::sigaction(SIGTERM, nullptr, &after);
    EXPECT_EQ(after.sa_handler, &otherHandler);
    ::sigaction(SIGINT, &savedInt, nullptr);
    ::sigaction(SIGTERM, &savedTerm, nullptr);
}

TEST_F(ProcessWatcherTest, SigintWithDieWhenPidDiesThenTheProcessEnds) {
    auto sleeper = startSleeper();
    auto probe = startProbe(WATCH_DIE_WHEN_PID_DIES, sleeper->pid(), path("never"));
    ASSERT_TRUE(waitForProbeOutput("started"));
    ::kill(static_cast<pid_t>(probe->pid()), SIGINT);
    ASSERT_TRUE(waitForProbeOutput("callback"));
    ::kill(static_cast<pid_t>(probe->pid()), SIGTERM);
    sleeper->terminate();
    ASSERT_TRUE(probe->waitForExit(kWaitLimitMs));
    EXPECT_EQ(probe->exitStatus(), 2) << probeOutput();
    EXPECT_EQ(countOf(probeOutput(), "callback"), 1u);
}

// Windows can open an ended process until its last handle is closed; a pid whose process the
// system has forgotten is one that cannot be opened. Wine keeps such processes openable a while,
// so this case is checked here only.
TEST_F(ParentWatchTest, AParentThatIsGoneCannotBeOpened) {
    EXPECT_EQ(probeStatusFor(std::to_string(gonePid())), 98);
}

}  // namespace
}  // namespace morvax::test
