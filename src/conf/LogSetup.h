#pragma once

#include <map>

#include "util/base/Str.h"

namespace morvax {

// The log bootstrap of a command-line run: reads the installation's environment (ending the
// process when MORVAX_HOME is not set), then loads <etc>/`fileName` ("log-cmdline.cfg" when
// null) and its local companion, with "${MORVAX_HOME}" and the caller's `substitutions`
// replaced in appender values. Unless `quiet`, it says which file it uses on standard error.
void setupLogging(bool quiet, const char* fileName,
                  const std::map<Str, WStr>& substitutions = std::map<Str, WStr>());

}  // namespace morvax
