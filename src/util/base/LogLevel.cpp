#include "util/base/LogLevel.h"

namespace morvax {

const char* logLevelName(int32_t level) {
    static const char* const names[] = {"DEBUG", "INFO",  "NOTICE", "WARN", "ERROR",
                                        "CRIT",  "ALERT", "FATAL",  "EMERG"};
    if (level < 0 || level > LOG_EMERG) {
        return "???";
    }
    return names[level];
}

}  // namespace morvax
