#pragma once

namespace morvax {

class IWMIConnectionConsumer;

// How a handler asks for a connection.
class IWMIConnector {
  public:
    virtual ~IWMIConnector() = default;
    virtual void requestConnection(IWMIConnectionConsumer* consumer) = 0;
};

}  // namespace morvax
