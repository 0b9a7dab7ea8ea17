#pragma once

#include <atomic>
#include <memory>

#include "input/IWMIConnectionConsumer.h"
#include "input/QueryHandlerState.h"
#include "util/base/Str.h"
#include "wmi/Wmi.h"

namespace morvax {

class WMIQueryProcessor;

// One connection to a namespace: its state, services, and the query running on it. Queries run
// and results are read on the thread of the handlers, never waiting for the provider.
class WMIConnection : public IWMIConnectionConsumer {
  public:
    // Objects asked of Next in one call.
    static constexpr unsigned BATCH_SIZE = 100;

    explicit WMIConnection(Str nameSpace);
    ~WMIConnection() override;
    WMIConnection(const WMIConnection&) = delete;
    WMIConnection& operator=(const WMIConnection&) = delete;

    const Str& getNamespace() const override { return namespace_; }
    void connectionDone(std::shared_ptr<wmi::Services> services, wmi::HRESULT status) override;

    // Any thread: makes the read loop leave at its next batch.
    void cancel() { cancelled_.store(true, std::memory_order_relaxed); }
    bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }

    // Starts the processor's query; returns at once with the status. A failure drops the
    // services, so the next step asks for a new connection.
    wmi::HRESULT executeQuery(WMIQueryProcessor& processor);
    // Drains what the provider has ready, in batches: positive when the query has ended, 0 when
    // there is nothing more yet (or the connection runs another processor's query), negative on
    // failure.
    int readResults(WMIQueryProcessor& processor);

    QueryHandlerState state() const { return state_; }
    void setState(QueryHandlerState state) { state_ = state; }
    wmi::HRESULT status() const { return status_; }
    void setStatus(wmi::HRESULT status) { status_ = status; }

    // Whether connectionDone has delivered an answer since the last request.
    bool hasAnswer() const { return services_ != nullptr || connectStatus_ != 0; }
    wmi::HRESULT connectStatus() const { return connectStatus_; }
    // Forgets the answer before a new request.
    void clearAnswer();
    void releaseEnumerator() { enumerator_.reset(); }
    bool hasEnumerator() const { return enumerator_ != nullptr; }
    bool isConnected() const { return services_ != nullptr; }

  private:
    QueryHandlerState state_ = READY;
    wmi::HRESULT status_ = 0;
    std::unique_ptr<wmi::Enumerator> enumerator_;
    Str namespace_;
    std::shared_ptr<wmi::Services> services_;
    wmi::HRESULT connectStatus_ = 0;
    WMIQueryProcessor* activeProcessor_ = nullptr;
    std::atomic<bool> cancelled_{false};
};

}  // namespace morvax
