#include "util/thread/Mutex.h"

#include "util/thread/Thread.h"

namespace morvax {

Mutex::Mutex() = default;

Mutex::~Mutex() = default;

void Mutex::lock() {
    try {
        mutex_.lock();
    } catch (const std::system_error& e) {
        if (Thread::alive()) {
            fatalThreadError("EnterCriticalSection", e);
        }
    }
}

void Mutex::unlock() {
    mutex_.unlock();
}

bool Mutex::tryLock() {
    return mutex_.try_lock();
}

}  // namespace morvax
