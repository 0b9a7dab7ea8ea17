#pragma once

#include <cstdint>

#include "util/base/Str.h"
#include "util/time/Timeval.h"

namespace morvax {

// The outcome of Pathname::renameWithRetry. `lastError` is the platform's error value of the
// last attempt, printable with %m.
struct RenameResult {
    Str operation = "Rename";
    uint8_t succeeded = 0;
    uint32_t lastError = 0;
    uint32_t attempts = 0;
    Timeval firstAttempt;
    Timeval lastAttempt;
};

}  // namespace morvax
