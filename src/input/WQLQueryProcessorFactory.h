#pragma once

#include <memory>

#include "input/WMIQueryProcessorFactory.h"

namespace morvax {

// Makes a WQLQueryProcessor; an entry it refuses leaves as BaseException.
class WQLQueryProcessorFactory : public WMIQueryProcessorFactory {
  public:
    std::unique_ptr<WMIQueryProcessor> create(const WMIQueryEntry& entry) override;
};

}  // namespace morvax
