#pragma once

#include <cstdint>

#include "input/IWMIConnector.h"

namespace morvax {

class WMIConnection;
class WMIConnectionFactory;

// The connector of a one-shot run: hands the request to the factory and waits for the answer, so
// that the connection is answered by the time the handler takes its next step.
class OneShotWMIConnector : public IWMIConnector {
  public:
    static constexpr uint64_t POLL_MILLISECONDS = 100;

    // Neither is owned.
    OneShotWMIConnector(WMIConnection& connection, WMIConnectionFactory& factory)
        : connection_(connection), factory_(factory) {}

    // Blocks for the length of the attempt.
    void requestConnection(IWMIConnectionConsumer* consumer) override;

  private:
    WMIConnection& connection_;
    WMIConnectionFactory& factory_;
};

}  // namespace morvax
