#pragma once

#include <memory>

#include "input/WMIQueryEntry.h"
#include "util/time/Timeval.h"

namespace morvax {

// When a handler wants its next step, for each outcome of a step. Timeval::MAX_TIME means never.
class IQueryHandlerSchedulePolicy {
  public:
    virtual ~IQueryHandlerSchedulePolicy() = default;
    virtual Timeval onWaitForConn() = 0;
    virtual Timeval onError() = 0;
    virtual Timeval onConnected() = 0;
    virtual Timeval onWaitForQuery() = 0;
    virtual Timeval onBusy() = 0;
    virtual Timeval onDataReceived() = 0;
};

class IQueryHandlerSchedulePolicyFactory {
  public:
    virtual ~IQueryHandlerSchedulePolicyFactory() = default;
    virtual std::unique_ptr<IQueryHandlerSchedulePolicy> createPolicy(
        const WMIQueryEntry& entry) = 0;
};

}  // namespace morvax
