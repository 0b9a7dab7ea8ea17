#pragma once

#include <utility>
#include <vector>

#include "conf/IniFile.h"
#include "util/base/Str.h"
#include "util/io/Pathname.h"

namespace morvax {

// The bootstrap file of a configuration root, <etc>/system/default/conf.conf: which directories
// are layers, in which order, and through which handler.
class ConfSettings {
  public:
    // Looks under `etcRoot`, then, if that root is not the installation's, under
    // `installationEtc`.
    ConfSettings(const Pathname& etcRoot, const Pathname& installationEtc);

    bool isLoaded() const { return loaded_; }
    const Pathname& file() const { return file_; }
    bool hasBootstrap() const;
    // The entries of [bootstrap] as they stand in the file: path template and handler name.
    std::vector<std::pair<Str, Str>> bootstrapEntries() const;

  private:
    Pathname file_;
    IniFile ini_;
    bool loaded_ = false;
};

}  // namespace morvax
