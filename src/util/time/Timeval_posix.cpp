#include <time.h>

#include "util/time/Timeval.h"

namespace morvax {

namespace {

uint64_t ticksOf(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    if (now.tv_sec < 0) {
        return Timeval::UNIX_EPOCH_TICKS;
    }
    return Timeval::UNIX_EPOCH_TICKS +
           static_cast<uint64_t>(now.tv_sec) * Timeval::TICKS_PER_SECOND +
           static_cast<uint64_t>(now.tv_nsec) / 100;
}

}  // namespace

uint64_t Timeval::systemNow() {
    return ticksOf(CLOCK_REALTIME);
}

uint64_t Timeval::systemCoarseNow() {
#if defined(CLOCK_REALTIME_COARSE)
    return ticksOf(CLOCK_REALTIME_COARSE);
#else
    return ticksOf(CLOCK_REALTIME);
#endif
}

}  // namespace morvax
