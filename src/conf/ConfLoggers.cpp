#include "conf/ConfLoggers.h"

namespace morvax {

#define MORVAX_CONF_LOGGER(function, name) \
    Logger& function() {                   \
        static Logger logger(name);        \
        return logger;                     \
    }

MORVAX_CONF_LOGGER(confPathMapperLogger, "ConfPathMapper")
MORVAX_CONF_LOGGER(confPathMapperManagerLogger, "ConfPathMapperManager")
MORVAX_CONF_LOGGER(confSettingsLogger, "ConfSettings")
MORVAX_CONF_LOGGER(propertiesMapConfigLogger, "PropertiesMapConfig")
MORVAX_CONF_LOGGER(confCacheLogger, "IConfCache")

#undef MORVAX_CONF_LOGGER

}  // namespace morvax
