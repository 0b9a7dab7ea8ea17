#pragma once

#include <cstdint>

#include "util/time/Timeval.h"

namespace morvax {

class Logger;

// What is known of one log call besides its text.
struct LogRecord {
    // Read once per call.
    Timeval time;
    const Logger* logger = nullptr;
    int32_t level = 0;
};

}  // namespace morvax
