#pragma once

#include <atomic>
#include <memory>

#include "input/IQueryHandlerSchedulePolicy.h"
#include "input/WMIQueryProcessor.h"
#include "util/base/Str.h"
#include "util/time/Timeval.h"

namespace morvax {

class IWMIConnector;
class WMIConnection;

// One stanza on one connection. Each advance() is one step of the state machine kept in the
// connection, and answers when the handler wants its next step (MAX_TIME: never again).
class WMIQueryHandler {
  public:
    // The connection and connector are not owned; policy and processor are.
    WMIQueryHandler(WMIConnection* connection, std::unique_ptr<IQueryHandlerSchedulePolicy> policy,
                    std::unique_ptr<WMIQueryProcessor> processor, IWMIConnector* connector);
    ~WMIQueryHandler();
    WMIQueryHandler(const WMIQueryHandler&) = delete;
    WMIQueryHandler& operator=(const WMIQueryHandler&) = delete;

    Timeval advance();
    // The life of a handler on a thread of its own, as the one-shot run has it: advance, each
    // time at the moment it asks for, until it wants no more steps or `stopRequested` is set.
    void advanceUntilDone(const std::atomic<bool>* stopRequested = nullptr);
    // The state name padded to 12 and the processor's description, for a queue dump.
    Str describeState() const;

    WMIConnection* connection() const { return connection_; }
    IQueryHandlerSchedulePolicy* policy() const { return policy_.get(); }
    WMIQueryProcessor* processor() const { return processor_.get(); }

  private:
    Timeval onAnswer();
    Timeval errorPath();

    WMIConnection* connection_;
    std::unique_ptr<IQueryHandlerSchedulePolicy> policy_;
    std::unique_ptr<WMIQueryProcessor> processor_;
    IWMIConnector* connector_;
};

}  // namespace morvax
