#include "conf/PropertiesMapLogger.h"

namespace morvax {

Logger& propertiesMapLogger() {
    static Logger logger("PropertiesMap");
    return logger;
}

}  // namespace morvax
