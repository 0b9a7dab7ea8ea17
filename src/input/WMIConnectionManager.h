#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <vector>

#include "input/IWMIConnector.h"
#include "util/base/Str.h"
#include "util/thread/Mutex.h"
#include "util/thread/Thread.h"
#include "util/time/Timeval.h"
#include "wmi/Wmi.h"

namespace morvax {

class IWMIConfiguration;
class WMIConnection;
class WMIConnectionFactory;
class WMIQueryHandler;

// The thread of a service run on which every query of every stanza is advanced, one handler at
// a time from a time-ordered queue. Stanzas share a connection per namespace text; a
// notification stanza has one of its own. Only connectServer runs elsewhere, on the factory.
class WMIConnectionManager : public Thread, public IWMIConnector {
  public:
    // How long a pass sleeps when nothing is due.
    static constexpr uint64_t kPassMilliseconds = 100;

    WMIConnectionManager();
    // Stops and joins a started thread first, then the factory; handlers go before connections.
    ~WMIConnectionManager() override;

    // Keeps the configuration (not owned) and makes the locator; false, logged, when that fails.
    bool init(IWMIConfiguration* configuration);
    // Lets the thread run; WMIQueryHandlerBuilder's factories must be installed by then.
    void start();
    // Any thread: cancels every connection's reading, then ends the loop at its next pass.
    void stop();
    void requestConnection(IWMIConnectionConsumer* consumer) override;
    // "PrioQ:" and a line per queued handler: number, "**" when due, state and description. Any
    // thread: it waits for the handler being advanced.
    Str dumpQueue() const;

    void main() override;

  private:
    // The next configured entry as a handler on its connection; null after the last one.
    std::unique_ptr<WMIQueryHandler> nextHandler();
    void schedule(WMIQueryHandler* handler, Timeval when);

    std::atomic<bool> stopRequested_{false};
    bool started_ = false;
    // Guards the queue and the handlers' states while the thread runs, for dumpQueue.
    mutable Mutex queueLock_;
    // Ordered by time; a new entry goes behind those of the same time.
    std::multimap<Timeval, WMIQueryHandler*> scheduleQueue_;
    // Guards `connections_` against a stop that comes during the start phase.
    mutable Mutex connectionsLock_;
    std::map<Str, std::unique_ptr<WMIConnection>> connections_;
    std::vector<std::unique_ptr<WMIQueryHandler>> handlers_;
    IWMIConfiguration* configuration_ = nullptr;
    std::unique_ptr<wmi::Locator> locator_;
    std::unique_ptr<WMIConnectionFactory> factory_;
};

}  // namespace morvax
