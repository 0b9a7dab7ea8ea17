#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "util/thread/Thread.h"

namespace morvax {

uint32_t Thread::platformThreadId() {
    return static_cast<uint32_t>(::gettid());
}

void Thread::setPlatformThreadName(const Str& name) {
    // The kernel keeps 15 bytes and refuses a longer name, so cut it, at a character boundary.
    constexpr size_t LIMIT = 15;
    size_t length = std::min(name.size(), LIMIT);
    while (length > 0 && length < name.size() &&
           (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80) {
        --length;
    }
    char buffer[LIMIT + 1];
    std::memcpy(buffer, name.data(), length);
    buffer[length] = '\0';
    pthread_setname_np(pthread_self(), buffer);
}

uint32_t Thread::platformErrorCode(const std::error_code& code) {
    // The standard library reports errno values here, which is what %m prints on this platform.
    return static_cast<uint32_t>(code.value());
}

}  // namespace morvax
