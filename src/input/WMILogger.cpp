#include "input/WMILogger.h"

namespace morvax {

Logger& wmiLogger() {
    static Logger logger("WMI");
    return logger;
}

}  // namespace morvax
