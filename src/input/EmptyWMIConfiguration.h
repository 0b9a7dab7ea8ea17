#pragma once

#include "input/IWMIConfiguration.h"
#include "util/io/Pathname.h"

namespace morvax {

// A configuration without entries: the caller sees no query and ends the run.
class EmptyWMIConfiguration : public IWMIConfiguration {
  public:
    const WMIQueryEntry* nextQuery() override;
    bool hasQueries() const override;
    // Always empty: with no entries nothing is checkpointed.
    const Pathname& getCheckpointPath() override;

  private:
    Pathname checkpointPath_;
};

}  // namespace morvax
