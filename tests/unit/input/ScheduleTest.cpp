#include <gtest/gtest.h>

#include <vector>

#include "input/DefaultQueryHandlerSchedulePolicy.h"
#include "input/ErrorTimeIncrementor.h"
#include "input/OneShotQueryHandlerSchedulePolicy.h"
#include "input/TimeIncrementor.h"
#include "input/WMITuning.h"
#include "util/time/Timeval.h"

namespace morvax {
namespace {

constexpr uint64_t MS = Timeval::TICKS_PER_MILLISECOND;

// A clock the test moves by hand.
class ScheduleTest : public ::testing::Test {
  protected:
    void SetUp() override {
        previous_ = Timeval::setClockOverride(&clock_);
        ErrorTimeIncrementor::forgetAllServers();
        WMITuning::restoreDefaults();
    }
    void TearDown() override {
        ErrorTimeIncrementor::forgetAllServers();
        WMITuning::restoreDefaults();
        Timeval::setClockOverride(previous_);
    }
    void advanceMs(uint64_t ms) { clock_ = Timeval(clock_.ticks() + ms * MS); }
    void moveTo(Timeval t) { clock_ = t; }
    uint64_t msFromNow(Timeval t) const { return (t.ticks() - clock_.ticks()) / MS; }

    static WMIQueryEntry entry(const char* ns, const char* name) {
        WMIQueryEntry e;
        e.namespace_ = ns;
        e.parameter = "SELECT * FROM Win32_Process";
        e.name = name;
        e.intervalMilliseconds = 60000;
        return e;
    }

    Timeval clock_{Timeval::UNIX_EPOCH_TICKS + 1700000000ULL * Timeval::TICKS_PER_SECOND};
    const Timeval* previous_ = nullptr;
};

TEST_F(ScheduleTest, PollingDoublesToItsLimitAndKeepsADeadlineUntilItPasses) {
    TimeIncrementor poll(100, 20000);
    std::vector<uint64_t> steps;
    for (int i = 0; i < 10; ++i) {
        const Timeval deadline = poll.nextTime();
        steps.push_back(msFromNow(deadline));
        // Asked again before the deadline: the same deadline, no doubling.
        advanceMs(steps.back() - 1);
        EXPECT_EQ(poll.nextTime(), deadline);
        advanceMs(1);
    }
    EXPECT_EQ(steps,
              (std::vector<uint64_t>{100, 200, 400, 800, 1600, 3200, 6400, 12800, 20000, 20000}));
    EXPECT_EQ(poll.retriesAtMax(), 2u);
    poll.reset();
    EXPECT_EQ(poll.currentMilliseconds(), 0u);
    EXPECT_EQ(msFromNow(poll.nextTime()), 100u);
}

TEST_F(ScheduleTest, WithoutALimitTheStepGrowsAndNeverCountsRetriesAtMax) {
    TimeIncrementor schedule(5000, 0);
    for (int i = 0; i < 40; ++i) {
        const Timeval deadline = schedule.nextTime();
        moveTo(deadline.isMax() ? Timeval(clock_.ticks() + MS) : deadline);
    }
    EXPECT_EQ(schedule.retriesAtMax(), 0u);
    EXPECT_GT(schedule.currentMilliseconds(), 5000ull << 30);
}

TEST_F(ScheduleTest, AFailingServerIsRetriedAfter5_10_20_20_20SecondsAndThenGivenUp) {
    DefaultQueryHandlerSchedulePolicy policy(entry("\\\\host2\\root\\cimv2", "Memory"));
    std::vector<uint64_t> waits;
    for (int failure = 1; failure <= 6; ++failure) {
        // Each attempt asks for a connection and fails before the first poll.
        policy.onWaitForConn();
        const Timeval retry = policy.onError();
        if (retry.isMax()) {
            break;
        }
        waits.push_back(msFromNow(retry));
        moveTo(retry);
    }
    EXPECT_EQ(waits, (std::vector<uint64_t>{5000, 10000, 20000, 20000}));
    EXPECT_EQ(policy.errorSchedule().retriesAtMax(), 3u);
}

TEST_F(ScheduleTest, WithMaxRetriesZeroAServerIsRetriedForEverAtTheLargestStep) {
    WMITuning::process().maxRetriesAtMaxBackoff = 0;
    DefaultQueryHandlerSchedulePolicy policy(entry("\\\\host2\\root\\cimv2", "Memory"));
    uint64_t last = 0;
    for (int failure = 1; failure <= 20; ++failure) {
        const Timeval retry = policy.onError();
        ASSERT_FALSE(retry.isMax()) << failure;
        last = msFromNow(retry);
        moveTo(retry);
    }
    EXPECT_EQ(last, 20000u);
}

TEST_F(ScheduleTest, StanzasOfOneServerFollowTheOwnerWithoutDoubling) {
    DefaultQueryHandlerSchedulePolicy owner(entry("\\\\host2\\root\\cimv2", "One"));
    DefaultQueryHandlerSchedulePolicy second(entry("\\\\host2\\root\\cimv2", "Two"));
    DefaultQueryHandlerSchedulePolicy third(entry("\\\\HOST3\\root\\cimv2", "Three"));
    EXPECT_EQ(&owner.errorSchedule(), &second.errorSchedule());
    EXPECT_NE(&owner.errorSchedule(), &third.errorSchedule());

    EXPECT_EQ(msFromNow(owner.onError()), 5000u);
    ASSERT_NE(owner.errorSchedule().owner(), nullptr);
    EXPECT_EQ(owner.errorSchedule().owner()->name, "One");
    // A follower gets the owner's present step from now, and the schedule stays.
    advanceMs(1000);
    EXPECT_EQ(msFromNow(second.onError()), 5000u);
    EXPECT_EQ(msFromNow(second.onError()), 5000u);
    EXPECT_EQ(owner.errorSchedule().currentMilliseconds(), 5000u);

    // A follower's success leaves the back-off; the owner's ends it.
    second.onConnected();
    EXPECT_EQ(owner.errorSchedule().currentMilliseconds(), 5000u);
    advanceMs(4000);
    EXPECT_EQ(msFromNow(owner.onError()), 10000u);
    owner.onDataReceived();
    EXPECT_EQ(owner.errorSchedule().currentMilliseconds(), 0u);
    EXPECT_EQ(owner.errorSchedule().owner(), nullptr);
}

TEST_F(ScheduleTest, EqualStanzasActAsOneOwner) {
    WMIQueryEntry a = entry("\\\\host2\\root\\cimv2", "Same");
    WMIQueryEntry b = a;
    b.hostname = "other";  // not part of the comparison
    b.outputMode = 1;
    DefaultQueryHandlerSchedulePolicy first(a);
    DefaultQueryHandlerSchedulePolicy second(b);
    EXPECT_EQ(msFromNow(first.onError()), 5000u);
    advanceMs(5000);
    EXPECT_EQ(msFromNow(second.onError()), 10000u);
}

TEST_F(ScheduleTest, AskingForAConnectionAgainDoesNotEndTheBackOff) {
    DefaultQueryHandlerSchedulePolicy policy(entry("\\\\host2\\root\\cimv2", "Memory"));
    EXPECT_EQ(msFromNow(policy.onError()), 5000u);
    advanceMs(5000);
    EXPECT_EQ(msFromNow(policy.onWaitForConn()), 100u);
    EXPECT_EQ(policy.errorSchedule().currentMilliseconds(), 5000u);
    advanceMs(100);
    // The same phase again doubles the poll.
    EXPECT_EQ(msFromNow(policy.onWaitForConn()), 200u);
    // A new phase starts the poll over and, from the owner, ends the back-off.
    EXPECT_EQ(msFromNow(policy.onConnected()), 100u);
    EXPECT_EQ(policy.errorSchedule().currentMilliseconds(), 0u);
}

TEST_F(ScheduleTest, DataBringsTheNextRunAfterTheIntervalFromNow) {
    DefaultQueryHandlerSchedulePolicy policy(entry("root\\cimv2", "Local"));
    policy.onBusy();
    advanceMs(100);
    policy.onBusy();
    EXPECT_EQ(msFromNow(policy.onDataReceived()), 60000u);
    EXPECT_EQ(policy.pollSchedule().currentMilliseconds(), 0u);
}

TEST_F(ScheduleTest, TheOneShotPolicyTriesOnceAndPollsEvery100Milliseconds) {
    OneShotQueryHandlerSchedulePolicy policy;
    EXPECT_EQ(policy.onWaitForConn(), clock_);
    EXPECT_EQ(policy.onConnected(), clock_);
    EXPECT_EQ(policy.onWaitForQuery(), clock_);
    EXPECT_EQ(msFromNow(policy.onBusy()), 100u);
    EXPECT_TRUE(policy.onError().isMax());
    EXPECT_TRUE(policy.onDataReceived().isMax());
}

}  // namespace
}  // namespace morvax
