#pragma once

#include <cstdint>

namespace morvax {

// The xorshift128+ generator with the shifts 23, 17 and 26. Not for anything that must be hard
// to guess: the self-test only spreads its requests with it.
class XorShift128Plus {
  public:
    // A state of two zero words never leaves zero, so one is forced odd.
    XorShift128Plus(uint64_t seed0, uint64_t seed1) : s0_(seed0 | 1), s1_(seed1) {}

    // Steps, and returns the sum of the two state words after the step.
    uint64_t next() {
        uint64_t x = s0_;
        const uint64_t y = s1_;
        s0_ = y;
        x ^= x << 23;
        s1_ = x ^ y ^ (x >> 17) ^ (y >> 26);
        return s0_ + s1_;
    }

  private:
    uint64_t s0_;
    uint64_t s1_;
};

}  // namespace morvax
