#include "util/time/Sleep.h"

#include <chrono>
#include <thread>

namespace morvax {

void sleep(uint64_t milliseconds) {
    // In slices, so that a huge value never overflows the clock's representation.
    constexpr uint64_t SLICE = 24ULL * 3600 * 1000;
    while (milliseconds > 0) {
        uint64_t step = milliseconds < SLICE ? milliseconds : SLICE;
        std::this_thread::sleep_for(std::chrono::milliseconds(static_cast<int64_t>(step)));
        milliseconds -= step;
    }
}

}  // namespace morvax
