#pragma once

#include "util/log/Logger.h"

namespace morvax {

// The log channel "IniFile": every warning of conf file reading and every failure of writing.
Logger& iniFileLogger();

}  // namespace morvax
