#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

namespace morvax::test {

// Generous: the Windows build runs under Wine, where starting a process takes a while.
constexpr uint32_t kWaitLimitMs = 30000;

// Polls every 10 ms until `condition` holds or `limitMs` have passed; true when it held. The one
// way a test waits for something: never a fixed sleep.
template <typename Condition>
bool waitUntil(Condition condition, uint32_t limitMs = kWaitLimitMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

}  // namespace morvax::test
