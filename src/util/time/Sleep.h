#pragma once

#include <cstdint>

namespace morvax {

// Blocks the calling thread for at least `milliseconds`.
void sleep(uint64_t milliseconds);

}  // namespace morvax
