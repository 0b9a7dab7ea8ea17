#pragma once

#include <cstdint>

namespace morvax {

// Process-wide tuning values. The settings of the configuration file may change them on the
// primary thread before any connection starts; afterwards they are only read, without a lock.
struct WMITuning {
    uint64_t initialBackoffMilliseconds = 5000;
    uint64_t maxBackoffMilliseconds = 20000;
    uint32_t maxRetriesAtMaxBackoff = 2;
    uint64_t checkpointSyncIntervalMilliseconds = 2000;

    static WMITuning& process();
    // Puts the process's values back to the defaults (tests change them).
    static void restoreDefaults();
};

}  // namespace morvax
