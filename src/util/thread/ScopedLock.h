#pragma once

#include "util/thread/Mutex.h"

namespace morvax {

// Holds a Mutex for the length of a scope.
class ScopedLock {
  public:
    explicit ScopedLock(Mutex& mutex) : mutex_(mutex) { mutex_.lock(); }
    ~ScopedLock() { mutex_.unlock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

  private:
    Mutex& mutex_;
};

}  // namespace morvax
