#include <windows.h>

#include <io.h>

#include <algorithm>
#include <cstdio>

#include "util/io/FileHandle.h"

namespace morvax {

namespace {

HANDLE toHandle(FileHandle::Native native) {
    return reinterpret_cast<HANDLE>(native);
}

// ReadFile and WriteFile take 32-bit counts.
constexpr size_t kMaxChunk = 1u << 30;

}  // namespace

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    if (this != &other) {
        close();
        handle_ = other.release();
    }
    return *this;
}

int64_t FileHandle::read(void* buffer, size_t size) {
    DWORD got = 0;
    if (!ReadFile(toHandle(handle_), buffer, static_cast<DWORD>(std::min(size, kMaxChunk)), &got,
                  nullptr)) {
        // A pipe whose writer has gone is an end of data, not an error.
        return GetLastError() == ERROR_BROKEN_PIPE ? 0 : -1;
    }
    return got;
}

bool FileHandle::writeTo(Native handle, const void* bytes, size_t size) {
    const char* next = static_cast<const char*>(bytes);
    while (size > 0) {
        DWORD put = 0;
        if (!WriteFile(toHandle(handle), next, static_cast<DWORD>(std::min(size, kMaxChunk)), &put,
                       nullptr)) {
            return false;
        }
        next += put;
        size -= put;
    }
    return true;
}

FileHandle::Native FileHandle::ofStream(std::FILE* stream) {
    const int fd = _fileno(stream);
    return fd < 0 ? INVALID : static_cast<Native>(_get_osfhandle(fd));
}

bool FileHandle::seekToEnd() {
    LARGE_INTEGER zero;
    zero.QuadPart = 0;
    return SetFilePointerEx(toHandle(handle_), zero, nullptr, FILE_END) != 0;
}

bool FileHandle::sync() {
    return FlushFileBuffers(toHandle(handle_)) != 0;
}

bool FileHandle::close() {
    if (handle_ == INVALID) {
        return true;
    }
    HANDLE h = toHandle(handle_);
    handle_ = INVALID;
    return CloseHandle(h) != 0;
}

}  // namespace morvax
