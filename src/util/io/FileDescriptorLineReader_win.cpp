#include <windows.h>

#include "util/io/FileDescriptorLineReader.h"

namespace morvax {

namespace {

// WSAEWOULDBLOCK, the code by which callers know a pipe read would have waited.
constexpr DWORD WOULD_BLOCK = 10035;

HANDLE toHandle(FileDescriptorLineReader::Handle handle) {
    return reinterpret_cast<HANDLE>(handle);
}

}  // namespace

uint32_t FileDescriptorLineReader::wouldBlockCode() {
    return WOULD_BLOCK;
}

bool FileDescriptorLineReader::isPipe(Handle handle) {
    return GetFileType(toHandle(handle)) == FILE_TYPE_PIPE;
}

FileDescriptorLineReader::ReadStatus FileDescriptorLineReader::readSome(
    Handle handle, bool pipe, char* buffer, size_t capacity, size_t& got, uint32_t& error) {
    HANDLE h = toHandle(handle);
    got = 0;
    DWORD toRead = capacity > MAXDWORD ? MAXDWORD : static_cast<DWORD>(capacity);
    if (pipe) {
        DWORD available = 0;
        if (!PeekNamedPipe(h, nullptr, 0, nullptr, &available, nullptr)) {
            error = GetLastError();
            return error == ERROR_BROKEN_PIPE ? READ_END : READ_ERROR;
        }
        if (available == 0) {
            error = WOULD_BLOCK;
            return READ_WOULD_BLOCK;
        }
        if (available < toRead) {
            toRead = available;
        }
    }
    DWORD n = 0;
    if (!ReadFile(h, buffer, toRead, &n, nullptr)) {
        error = GetLastError();
        return error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF ? READ_END : READ_ERROR;
    }
    if (n == 0) {
        return READ_END;
    }
    got = n;
    return READ_DATA;
}

void FileDescriptorLineReader::closeHandle(Handle handle) {
    CloseHandle(toHandle(handle));
}

}  // namespace morvax
