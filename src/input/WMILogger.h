#pragma once

#include "util/log/Logger.h"

namespace morvax {

// The collector's log channel "WMI": what a running stanza reports, and every WMI failure.
Logger& wmiLogger();

}  // namespace morvax
