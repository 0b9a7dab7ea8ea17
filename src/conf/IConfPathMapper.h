#pragma once

#include "conf/ConfPathTrie.h"
#include "conf/ConfSearch.h"
#include "util/base/Str.h"
#include "util/io/Pathname.h"

namespace morvax {

// One source of configuration in the layer list: a conf directory, in the collector's case.
// The collector only reads, so only the search exists here; writers would add their operations.
class IConfPathMapper {
  public:
    virtual ~IConfPathMapper() = default;
    // Copies into `out` what this source holds for `search`, loading it on first demand.
    virtual void fillSearch(const ConfSearch& search, ConfPathTrie& out) = 0;
    virtual const Pathname& directory() const = 0;
    // For log lines: the class and the directory.
    virtual Str describe() const = 0;
};

}  // namespace morvax
