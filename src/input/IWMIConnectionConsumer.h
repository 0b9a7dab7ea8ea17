#pragma once

#include <memory>

#include "util/base/Str.h"
#include "wmi/Wmi.h"

namespace morvax {

// What wants a connection to a namespace.
class IWMIConnectionConsumer {
  public:
    virtual ~IWMIConnectionConsumer() = default;
    // Stays the same for the life of the consumer: the factory's thread reads it.
    virtual const Str& getNamespace() const = 0;
    // The answer: services (null on failure) and the status of the attempt.
    virtual void connectionDone(std::shared_ptr<wmi::Services> services, wmi::HRESULT status) = 0;
};

}  // namespace morvax
