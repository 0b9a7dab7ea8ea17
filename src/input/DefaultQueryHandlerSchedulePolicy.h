#pragma once

#include "input/ErrorTimeIncrementor.h"
#include "input/IQueryHandlerSchedulePolicy.h"
#include "input/TimeIncrementor.h"
#include "input/WMIQueryEntry.h"

namespace morvax {

// The schedule of the service run: each phase polls after 100 ms doubling to 20 s, errors draw
// from the back-off shared by the stanzas of one server, data brings the next run after the
// stanza's interval.
class DefaultQueryHandlerSchedulePolicy : public IQueryHandlerSchedulePolicy {
  public:
    static constexpr uint64_t POLL_INITIAL_MILLISECONDS = 100;
    static constexpr uint64_t POLL_MAX_MILLISECONDS = 20000;

    explicit DefaultQueryHandlerSchedulePolicy(const WMIQueryEntry& entry);

    Timeval onWaitForConn() override { return onPhase("waitForConn"); }
    Timeval onError() override;
    Timeval onConnected() override { return onPhase("connected"); }
    Timeval onWaitForQuery() override { return onPhase("waitForQuery"); }
    Timeval onBusy() override { return onPhase("busy"); }
    Timeval onDataReceived() override;

    const ErrorTimeIncrementor& errorSchedule() const { return *errorSchedule_; }
    const TimeIncrementor& pollSchedule() const { return pollSchedule_; }
    ErrorTimeIncrementor& errorSchedule() { return *errorSchedule_; }
    TimeIncrementor& pollSchedule() { return pollSchedule_; }

  private:
    Timeval onPhase(const char* phase);
    void resetSchedule();

    TimeIncrementor pollSchedule_;
    WMIQueryEntry entry_;
    ErrorTimeIncrementor* errorSchedule_;
    const char* lastPhase_ = "";
};

class DefaultQueryHandlerSchedulePolicyFactory : public IQueryHandlerSchedulePolicyFactory {
  public:
    std::unique_ptr<IQueryHandlerSchedulePolicy> createPolicy(const WMIQueryEntry& entry) override;
};

}  // namespace morvax
