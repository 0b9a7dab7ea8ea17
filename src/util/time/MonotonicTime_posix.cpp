#include <time.h>

#include "util/time/MonotonicTime.h"

namespace morvax {

uint64_t MonotonicTime::platformNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

}  // namespace morvax
