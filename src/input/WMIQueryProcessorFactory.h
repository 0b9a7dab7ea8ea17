#pragma once

#include <memory>

#include "input/WMIQueryEntry.h"
#include "input/WMIQueryProcessor.h"

namespace morvax {

// Makes the processor of one kind of query for an entry.
class WMIQueryProcessorFactory {
  public:
    virtual ~WMIQueryProcessorFactory() = default;
    // Null when out of memory; a refused entry throws BaseException.
    virtual std::unique_ptr<WMIQueryProcessor> create(const WMIQueryEntry& entry) = 0;
};

}  // namespace morvax
