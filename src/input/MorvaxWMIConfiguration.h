#pragma once

#include <list>

#include "input/IWMIConfiguration.h"
#include "input/WMIQueryEntry.h"
#include "util/base/Str.h"
#include "util/io/Pathname.h"

namespace morvax {

class PropertiesMap;

// The configuration of wmi.conf, merged over the installation's layers: the [settings] stanza
// sets the process's tuning values, and every enabled stanza whose name begins with "WMI"
// gives one entry per server and, for event logs, per log. A bad stanza is reported on the
// channel WMI and left out; it never stops the reading.
class MorvaxWMIConfiguration : public IWMIConfiguration {
  public:
    static constexpr const char* CHECKPOINT_BASE_NAME = "wmi";

    // Reads everything; `defaultIndex` is the value of -index, or "default".
    explicit MorvaxWMIConfiguration(const Str& defaultIndex);

    const WMIQueryEntry* nextQuery() override;
    bool hasQueries() const override { return !entries_.empty(); }
    const Pathname& getCheckpointPath() override;

  private:
    void readSettings(const PropertiesMap& settings);
    void readStanza(const Str& stanzaName, const PropertiesMap& stanza, const Str& defaultIndex);

    Pathname checkpointPath_;
    std::list<WMIQueryEntry> entries_;
    std::list<WMIQueryEntry>::const_iterator cursor_;
};

}  // namespace morvax
