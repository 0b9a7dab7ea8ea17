#include "util/time/MonotonicTime.h"

#include <atomic>

namespace morvax {

namespace {

std::atomic<const uint64_t*>& testHook() {
    static std::atomic<const uint64_t*> source{nullptr};
    return source;
}

}  // namespace

uint64_t MonotonicTime::now() {
    const uint64_t* source = testHook().load(std::memory_order_acquire);
    return source ? *source : platformNow();
}

const uint64_t* MonotonicTime::setTestHook(const uint64_t* source) {
    return testHook().exchange(source, std::memory_order_acq_rel);
}

}  // namespace morvax
