#pragma once

#include <mutex>

namespace morvax {

// A recursive lock. A failure to take it ends the process (fatalThreadError) while the process
// is alive.
class Mutex {
  public:
    Mutex();
    ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock();
    void unlock();
    bool tryLock();

  private:
    std::recursive_mutex mutex_;
};

}  // namespace morvax
