#pragma once

#include <cstdint>

#include "util/time/Timeval.h"

namespace morvax {

// A doubling schedule: each step is twice the last, up to a largest step. A deadline once drawn
// holds until it has passed, however often it is asked for.
class TimeIncrementor {
  public:
    // `maxMilliseconds` 0 means no limit.
    TimeIncrementor(uint64_t initialMilliseconds, uint64_t maxMilliseconds)
        : initialMilliseconds_(initialMilliseconds), maxMilliseconds_(maxMilliseconds) {}
    virtual ~TimeIncrementor() = default;

    Timeval nextTime();
    void reset();

    uint64_t initialMilliseconds() const { return initialMilliseconds_; }
    uint64_t maxMilliseconds() const { return maxMilliseconds_; }
    // The step in force; 0 before the first draw.
    uint64_t currentMilliseconds() const { return currentMilliseconds_; }
    // Steps taken at the largest step, the first one included.
    uint64_t retriesAtMax() const { return retriesAtMax_; }
    Timeval deadline() const { return nextTime_; }
    // Moves the deadline in force, so that the next draw takes its step at once.
    void setDeadline(Timeval deadline) { nextTime_ = deadline; }

  protected:
    uint64_t initialMilliseconds_;
    uint64_t maxMilliseconds_;
    uint64_t currentMilliseconds_ = 0;
    uint64_t retriesAtMax_ = 0;
    Timeval nextTime_;
};

}  // namespace morvax
