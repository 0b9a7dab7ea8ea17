#include <windows.h>

#include <algorithm>

#include "util/time/TimeZoneFile.h"

namespace morvax {

bool TimeZoneFile::readFile(const char* path, size_t limit, std::string& bytes, Str& resolved) {
    WStr wide = Str::toWide(StrSegment(path));
    HANDLE file = CreateFileW(reinterpret_cast<const wchar_t*>(wide.c_str()), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    bytes.assign(limit + 1, '\0');
    size_t total = 0;
    while (total < bytes.size()) {
        DWORD chunk = static_cast<DWORD>(std::min<size_t>(bytes.size() - total, 1 << 20));
        DWORD read = 0;
        if (!ReadFile(file, bytes.data() + total, chunk, &read, nullptr)) {
            DWORD error = GetLastError();
            CloseHandle(file);
            SetLastError(error);
            return false;
        }
        if (read == 0) {
            break;
        }
        total += read;
    }
    CloseHandle(file);
    bytes.resize(total);
    resolved = path;
    return true;
}

}  // namespace morvax
