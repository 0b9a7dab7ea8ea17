#pragma once

#include <vector>

#include "input/IWMIConfiguration.h"

namespace morvax {

// The self-test's two fixed queries of the local machine: the operating system and the memory
// counters, every second.
class TestWMIConfiguration : public IWMIConfiguration {
  public:
    static constexpr const char* CHECKPOINT_BASE_NAME = "wmitst";

    TestWMIConfiguration();

    const WMIQueryEntry* nextQuery() override;
    bool hasQueries() const override { return true; }
    const Pathname& getCheckpointPath() override;

  private:
    std::vector<WMIQueryEntry> entries_;
    size_t cursor_ = 0;
    Pathname checkpointPath_;
};

}  // namespace morvax
