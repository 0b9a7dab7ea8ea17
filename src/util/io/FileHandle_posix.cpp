#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "util/io/FileHandle.h"

namespace morvax {

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    if (this != &other) {
        close();
        handle_ = other.release();
    }
    return *this;
}

int64_t FileHandle::read(void* buffer, size_t size) {
    size_t chunk = std::min<size_t>(size, SSIZE_MAX);
    ssize_t got;
    do {
        got = ::read(static_cast<int>(handle_), buffer, chunk);
    } while (got < 0 && errno == EINTR);
    return got;
}

bool FileHandle::writeTo(Native handle, const void* bytes, size_t size) {
    const char* next = static_cast<const char*>(bytes);
    while (size > 0) {
        // The system call itself: the C library's write() is a point of thread cancellation,
        // which in a process with threads costs two atomic operations around every call, once
        // per event here. No thread of ours is ever cancelled.
        const auto put = static_cast<ssize_t>(::syscall(SYS_write, static_cast<int>(handle), next,
                                                        std::min<size_t>(size, SSIZE_MAX)));
        if (put < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        next += put;
        size -= static_cast<size_t>(put);
    }
    return true;
}

FileHandle::Native FileHandle::ofStream(std::FILE* stream) {
    const int fd = ::fileno(stream);
    return fd < 0 ? INVALID : fd;
}

bool FileHandle::seekToEnd() {
    return ::lseek(static_cast<int>(handle_), 0, SEEK_END) >= 0;
}

bool FileHandle::sync() {
    return ::fsync(static_cast<int>(handle_)) == 0;
}

bool FileHandle::close() {
    if (handle_ == INVALID) {
        return true;
    }
    int fd = static_cast<int>(handle_);
    handle_ = INVALID;
    // The descriptor is gone even when close reports an error; retrying could close another.
    return ::close(fd) == 0;
}

}  // namespace morvax
