#include "util/thread/ConditionVariable.h"

#include <algorithm>
#include <chrono>

#include "util/thread/Thread.h"

namespace morvax {

ConditionVariable::ConditionVariable() = default;

ConditionVariable::~ConditionVariable() = default;

void ConditionVariable::wait(Mutex& mutex) {
    try {
        condition_.wait(mutex);
    } catch (const std::system_error& e) {
        if (Thread::alive()) {
            fatalThreadError("SleepConditionVariableCS", e);
        }
    }
}

bool ConditionVariable::timedWait(Mutex& mutex, uint64_t milliseconds) {
    // About 35 years: far enough to mean "no limit" without overflowing the clock.
    constexpr uint64_t LONGEST = uint64_t{1} << 40;
    auto limit = std::chrono::milliseconds(static_cast<int64_t>(std::min(milliseconds, LONGEST)));
    try {
        return condition_.wait_for(mutex, limit) == std::cv_status::no_timeout;
    } catch (const std::system_error& e) {
        if (Thread::alive()) {
            fatalThreadError("SleepConditionVariableCS", e);
        }
        return false;
    }
}

void ConditionVariable::wakeOne() {
    condition_.notify_one();
}

void ConditionVariable::wakeAll() {
    condition_.notify_all();
}

}  // namespace morvax
