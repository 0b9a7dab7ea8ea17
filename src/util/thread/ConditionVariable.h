#pragma once

#include <condition_variable>
#include <cstdint>

#include "util/thread/Mutex.h"

namespace morvax {

// A condition variable over a Mutex. The caller holds the mutex exactly once: a wait releases
// one level of it. Wake-ups may be spurious, so a caller re-checks its condition.
class ConditionVariable {
  public:
    ConditionVariable();
    ~ConditionVariable();
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    // Waits without limit. A failure ends the process while the process is alive.
    void wait(Mutex& mutex);
    // True if woken, false once `milliseconds` have passed.
    bool timedWait(Mutex& mutex, uint64_t milliseconds);
    void wakeOne();
    void wakeAll();

  private:
    std::condition_variable_any condition_;
};

}  // namespace morvax
