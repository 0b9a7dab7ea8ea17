#pragma once

#include <deque>
#include <memory>

#include "util/thread/ConditionVariable.h"
#include "util/thread/Mutex.h"
#include "util/thread/Thread.h"
#include "util/time/Timeval.h"
#include "wmi/Wmi.h"

namespace morvax {

class IWMIConnectionConsumer;

// The one thread on which connectServer runs, so that its blocking holds up no query: requests
// come in on one queue, finished attempts go out on another, one attempt at a time for the
// whole process.
class WMIConnectionFactory : public Thread {
  public:
    struct ConnectionResponse {
        IWMIConnectionConsumer* consumer = nullptr;
        Timeval started;
        Timeval finished;
        std::shared_ptr<wmi::Services> services;  // null on failure
        wmi::HRESULT status = 0;
    };

    // `locator` is not owned and must outlive the thread.
    explicit WMIConnectionFactory(wmi::Locator& locator);
    ~WMIConnectionFactory() override;

    void start();
    // Any thread; returns at once. `consumer` is not owned and must stay until answered or the
    // factory has stopped.
    void request(IWMIConnectionConsumer* consumer);
    // Moves the oldest finished attempt to `out`; false when there is none.
    bool pollResponse(ConnectionResponse& out);
    // pollResponse, waiting up to `milliseconds` for an attempt to finish first.
    bool waitResponse(ConnectionResponse& out, uint64_t milliseconds);
    // Asks the thread to end after the attempt in progress; the caller joins afterwards.
    void stop();

    void main() override;

  private:
    wmi::Locator& locator_;
    bool stopRequested_ = false;
    bool started_ = false;
    Mutex lock_;
    ConditionVariable wake_;
    ConditionVariable answered_;  // signalled when an attempt has finished
    std::deque<IWMIConnectionConsumer*> requests_;
    std::deque<ConnectionResponse> responses_;
};

}  // namespace morvax
