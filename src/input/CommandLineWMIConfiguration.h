#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "input/IWMIConfiguration.h"
#include "input/WMIQueryEntry.h"
#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/io/Pathname.h"

namespace morvax {

// The configuration that needs no file: one event-log entry for every server and log of the
// -loglist and -servers options.
class CommandLineWMIConfiguration : public IWMIConfiguration {
  public:
    static constexpr const char* CHECKPOINT_BASE_NAME = "wmicmdln";

    // `logList` and `servers` are comma-separated lists; without servers the local machine
    // (".") is asked.
    CommandLineWMIConfiguration(StrSegment logList, const std::optional<Str>& servers, bool watch);

    const WMIQueryEntry* nextQuery() override;
    bool hasQueries() const override;
    const Pathname& getCheckpointPath() override;

  private:
    Pathname checkpointPath_;
    std::vector<WMIQueryEntry> entries_;
    uint32_t cursor_ = 0;
};

}  // namespace morvax
