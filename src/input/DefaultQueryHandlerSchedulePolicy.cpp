#include "input/DefaultQueryHandlerSchedulePolicy.h"

#include <cstring>

#include "input/NamespaceServer.h"
#include "input/WMITuning.h"

namespace morvax {

DefaultQueryHandlerSchedulePolicy::DefaultQueryHandlerSchedulePolicy(const WMIQueryEntry& entry)
    : pollSchedule_(POLL_INITIAL_MILLISECONDS, POLL_MAX_MILLISECONDS),
      entry_(entry),
      errorSchedule_(&ErrorTimeIncrementor::forServer(serverFromNamespace(entry.namespace_))) {}

Timeval DefaultQueryHandlerSchedulePolicy::onPhase(const char* phase) {
    if (std::strcmp(lastPhase_, phase) != 0) {
        // Set first: asking for a connection again must not end the server's back-off.
        lastPhase_ = phase;
        resetSchedule();
    }
    return pollSchedule_.nextTime();
}

Timeval DefaultQueryHandlerSchedulePolicy::onError() {
    Timeval answer = errorSchedule_->nextTime(entry_);
    lastPhase_ = "error";
    const uint64_t maxRetries = WMITuning::process().maxRetriesAtMaxBackoff;
    if (maxRetries != 0 && errorSchedule_->maxMilliseconds() != 0 &&
        errorSchedule_->currentMilliseconds() == errorSchedule_->maxMilliseconds() &&
        errorSchedule_->retriesAtMax() > maxRetries) {
        answer = Timeval::MAX_TIME;
    }
    return answer;
}

Timeval DefaultQueryHandlerSchedulePolicy::onDataReceived() {
    resetSchedule();
    return Timeval::addInterval(Timeval::now(), entry_.intervalMilliseconds);
}

void DefaultQueryHandlerSchedulePolicy::resetSchedule() {
    pollSchedule_.reset();
    if (std::strcmp(lastPhase_, "waitForConn") != 0) {
        errorSchedule_->resetFor(entry_);
    }
}

std::unique_ptr<IQueryHandlerSchedulePolicy> DefaultQueryHandlerSchedulePolicyFactory::createPolicy(
    const WMIQueryEntry& entry) {
    return std::make_unique<DefaultQueryHandlerSchedulePolicy>(entry);
}

}  // namespace morvax
