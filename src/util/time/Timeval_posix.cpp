#include <time.h>

#include "util/time/Timeval.h"

namespace morvax {

uint64_t Timeval::systemNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec < 0) {
        return UNIX_EPOCH_TICKS;
    }
    return UNIX_EPOCH_TICKS + static_cast<uint64_t>(now.tv_sec) * TICKS_PER_SECOND +
           static_cast<uint64_t>(now.tv_nsec) / 100;
}

}  // namespace morvax
