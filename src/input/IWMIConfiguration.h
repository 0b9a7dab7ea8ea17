#pragma once

#include "input/WMIQueryEntry.h"
#include "util/io/Pathname.h"

namespace morvax {

// The source of the configured queries.
class IWMIConfiguration {
  public:
    virtual ~IWMIConfiguration() = default;
    // The next entry, or null after the last one. A one-way cursor: each entry is handed out
    // once, and the pointer stays valid as long as the configuration.
    virtual const WMIQueryEntry* nextQuery() = 0;
    // Whether there is at least one entry, wherever the cursor stands.
    virtual bool hasQueries() const = 0;
    // The checkpoint file, formed on the first call and cached; empty when it cannot be formed.
    virtual const Pathname& getCheckpointPath() = 0;
};

}  // namespace morvax
