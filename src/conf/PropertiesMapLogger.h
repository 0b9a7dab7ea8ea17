#pragma once

#include "util/log/Logger.h"

namespace morvax {

// The log channel "PropertiesMap": values that the typed getters could not convert.
Logger& propertiesMapLogger();

}  // namespace morvax
