#include <windows.h>

#include "util/time/Timeval.h"

namespace morvax {

uint64_t Timeval::systemNow() {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return (static_cast<uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
}

uint64_t Timeval::systemCoarseNow() {
    // The system time is kept at the grain of the clock interrupt already.
    return systemNow();
}

}  // namespace morvax
