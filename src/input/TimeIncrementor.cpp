#include "input/TimeIncrementor.h"

#include <limits>

namespace morvax {

Timeval TimeIncrementor::nextTime() {
    const Timeval now = Timeval::now();
    if (!nextTime_.isZero() && now.isBefore(nextTime_)) {
        return nextTime_;
    }
    if (currentMilliseconds_ == 0) {
        currentMilliseconds_ = initialMilliseconds_;
    } else {
        // Without a limit the step saturates instead of wrapping; addInterval then gives never.
        const uint64_t doubled = currentMilliseconds_ > std::numeric_limits<uint64_t>::max() / 2
                                     ? std::numeric_limits<uint64_t>::max()
                                     : currentMilliseconds_ * 2;
        currentMilliseconds_ =
            maxMilliseconds_ != 0 && doubled > maxMilliseconds_ ? maxMilliseconds_ : doubled;
    }
    if (maxMilliseconds_ != 0 && currentMilliseconds_ == maxMilliseconds_) {
        ++retriesAtMax_;
    }
    nextTime_ = Timeval::addInterval(now, currentMilliseconds_);
    return nextTime_;
}

void TimeIncrementor::reset() {
    currentMilliseconds_ = 0;
    retriesAtMax_ = 0;
    nextTime_.setZero();
}

}  // namespace morvax
