#include "conf/IniFileLogger.h"

namespace morvax {

Logger& iniFileLogger() {
    static Logger logger("IniFile");
    return logger;
}

}  // namespace morvax
