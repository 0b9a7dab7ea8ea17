#pragma once

#include "util/log/Logger.h"

namespace morvax {

// The log channels of the conf tree and of the merged views over it.
Logger& confPathMapperLogger();         // "ConfPathMapper": loading of conf files
Logger& confPathMapperManagerLogger();  // "ConfPathMapperManager": the layer set-up
Logger& confSettingsLogger();           // "ConfSettings": the bootstrap file
Logger& propertiesMapConfigLogger();    // "PropertiesMapConfig": reads of stanzas
Logger& confCacheLogger();              // "IConfCache": the caches of merged stanzas

}  // namespace morvax
