#include <windows.h>

#include <algorithm>

#include "util/log/LogPlatform.h"

namespace morvax {

namespace {

// WriteFile takes 32-bit counts.
constexpr size_t kMaxChunk = 1u << 30;

}  // namespace

bool LogPlatform::writeStandardError(const char* bytes, size_t length) {
    // Asked at every write, so that a handle replaced with SetStdHandle is followed.
    HANDLE handle = GetStdHandle(STD_ERROR_HANDLE);
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) {
        return false;
    }
    while (length > 0) {
        DWORD put = 0;
        if (!WriteFile(handle, bytes, static_cast<DWORD>(std::min(length, kMaxChunk)), &put,
                       nullptr)) {
            return false;
        }
        bytes += put;
        length -= put;
    }
    return true;
}

bool LogPlatform::fileSize(const FileHandle& file, int64_t& size) {
    LARGE_INTEGER value;
    if (!GetFileSizeEx(reinterpret_cast<HANDLE>(file.native()), &value)) {
        return false;
    }
    size = static_cast<int64_t>(value.QuadPart);
    return true;
}

bool LogPlatform::isNotFoundError(uint32_t error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

}  // namespace morvax
