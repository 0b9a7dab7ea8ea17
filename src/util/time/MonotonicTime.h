#pragma once

#include <cstdint>

namespace morvax {

// Milliseconds from the platform's monotonic tick counter (GetTickCount64, CLOCK_MONOTONIC).
class MonotonicTime {
  public:
    static uint64_t now();
    // Test hook: while `source` is non-null, now() reads *source. Returns the previous one.
    static const uint64_t* setTestHook(const uint64_t* source);

  private:
    static uint64_t platformNow();
};

}  // namespace morvax
