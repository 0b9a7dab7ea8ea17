#pragma once

#include "input/WMIDataOutputter.h"

namespace morvax {

// The outputter that every processor of the process writes through, to standard output. Only
// the thread that drives the query handlers uses it, so it takes no lock.
class DefaultWMIDataOutputter : public WMIDataOutputter {
  public:
    // Made on first use and never destroyed, so that it outlives every processor.
    static DefaultWMIDataOutputter& instance();
};

}  // namespace morvax
