#pragma once

#include "input/IQueryHandlerSchedulePolicy.h"

namespace morvax {

// As fast as possible, and once: every wait is now (polling every 100 ms), an error or a
// completed read is the end.
class OneShotQueryHandlerSchedulePolicy : public IQueryHandlerSchedulePolicy {
  public:
    static constexpr uint64_t BUSY_MILLISECONDS = 100;

    Timeval onWaitForConn() override { return Timeval::now(); }
    Timeval onError() override { return Timeval::MAX_TIME; }
    Timeval onConnected() override { return Timeval::now(); }
    Timeval onWaitForQuery() override { return Timeval::now(); }
    Timeval onBusy() override { return Timeval::addInterval(Timeval::now(), BUSY_MILLISECONDS); }
    Timeval onDataReceived() override { return Timeval::MAX_TIME; }
};

}  // namespace morvax
