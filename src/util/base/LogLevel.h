#pragma once

#include <cstdint>

namespace morvax {

// The levels of every log line, from the lowest; a channel passes a line at or above its own.
enum LogLevel : int32_t {
    LOG_DEBUG = 0,
    LOG_INFO = 1,
    LOG_NOTICE = 2,
    LOG_WARN = 3,
    LOG_ERROR = 4,
    LOG_CRIT = 5,
    LOG_ALERT = 6,
    LOG_FATAL = 7,
    LOG_EMERG = 8,
};

// "DEBUG" ... "EMERG"; "???" outside the table.
const char* logLevelName(int32_t level);

}  // namespace morvax
